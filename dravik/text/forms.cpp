// SPDX-License-Identifier: Apache-2.0
#include "dravik/text/forms.h"

#include "dravik/text/definition_text.h"
#include "dravik/text/detail/form_table.h"
#include "dravik/text/detail/node_access.h"
#include "dravik/text/text_exception.h"

#include <boost/core/demangle.hpp>

#include <new>
#include <stdexcept>

namespace Quorvel::Dravik::Text {

namespace {

// One definition more, as long as it lives one level deeper.
class Level {
  public:
    Level(int& depth, int& count) : depth_(depth) {
        if (depth == kMostLevels) {
            throw TextException("", "nests deeper than " + std::to_string(kMostLevels) + " levels");
        }
        if (count == kMostDefinitions) {
            throw TextException("", "has more than " + std::to_string(kMostDefinitions) + " definitions");
        }
        ++depth_;
        ++count;
    }
    Level(Level const&) = delete;
    Level& operator=(Level const&) = delete;
    ~Level() { --depth_; }

  private:
    int& depth_;
};

}  // namespace

Forms::Forms() : table_(std::make_shared<Detail::FormTable const>()) {}

Forms::Forms(Forms const& other) : table_(other.table()) {}

Forms& Forms::operator=(Forms const& other) {
    if (this != &other) {
        auto table = other.table();
        std::lock_guard const lock(mutex_);
        table_.swap(table);
    }
    return *this;
}

Forms::~Forms() = default;

Forms& Forms::standard() {
    static Forms& forms = *[] {
        auto made = std::make_unique<Forms>();
        Detail::addStandardForms(*made);
        return made.release();
    }();
    return forms;
}

std::shared_ptr<Detail::FormTable const> Forms::table() const {
    std::lock_guard const lock(mutex_);
    return table_;
}

template <class Root>
void Forms::addAny(Detail::Form<Root> form) {
    auto const added = std::make_shared<Detail::Form<Root> const>(std::move(form));
    for (auto before = table();;) {
        auto const after = std::make_shared<Detail::FormTable>(*before);
        auto& forms = after->of<Root>();
        if (!forms.byName.emplace(added->name, added).second) {
            throw std::invalid_argument("[Forms::add] The name is taken. (" + added->name + ")");
        }
        for (auto const& [type, write] : added->classes) {
            if (!forms.byClass.emplace(type, typename Detail::FormsOf<Root>::Writing{added, &write}).second) {
                throw std::invalid_argument(
                    "[Forms::add] The class has a form already. (" + boost::core::demangle(type.name()) + ")");
            }
        }
        std::lock_guard const lock(mutex_);
        if (table_ == before) {
            table_ = after;
            return;
        }
        before = table_;  // another thread has added a form meanwhile
    }
}

void Forms::addForm(Detail::Form<EntityDef> form) {
    addAny(std::move(form));
}
void Forms::addForm(Detail::Form<SourceDef> form) {
    addAny(std::move(form));
}
void Forms::addForm(Detail::Form<TransformDef> form) {
    addAny(std::move(form));
}
void Forms::addForm(Detail::Form<ViewDef> form) {
    addAny(std::move(form));
}

template <class Root>
Node DefinitionWriter::writeAny(Root const& def) {
    Level const level(depth_, count_);
    auto const& byClass = forms_->of<Root>().byClass;
    auto const found = byClass.find(typeid(def));
    if (found == byClass.end()) {
        throw TextException("", "has no form for the class " + boost::core::demangle(typeid(def).name()));
    }
    Node node = (*found->second.write)(def, *this);
    node.set("type", found->second.form->name);
    return node;
}

Node DefinitionWriter::write(EntityDef const& def) {
    return writeAny(def);
}
Node DefinitionWriter::write(SourceDef const& def) {
    return writeAny(def);
}
Node DefinitionWriter::write(TransformDef const& def) {
    return writeAny(def);
}
Node DefinitionWriter::write(ViewDef const& def) {
    return writeAny(def);
}

template <class Root>
boost::shared_ptr<Root const> DefinitionReader::readAny(Node const& node) {
    Level const level(depth_, count_);
    Node const& type = node.at("type");
    auto const name = type.as<std::string>();
    auto const& byName = forms_->of<Root>().byName;
    auto const found = byName.find(name);
    if (found == byName.end()) {
        throw TextException(type, "names an unknown type, " + Detail::inQuotes(name));
    }
    try {
        auto def = found->second->read(node, *this);
        return def != nullptr ? def : throw TextException(node, "was read as no definition");
    } catch (TextException const&) {
        throw;
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& e) {
        throw TextException(node, e.what());
    }
}

boost::shared_ptr<EntityDef const> DefinitionReader::entity(Node const& node) {
    return readAny<EntityDef>(node);
}
boost::shared_ptr<SourceDef const> DefinitionReader::source(Node const& node) {
    return readAny<SourceDef>(node);
}
boost::shared_ptr<TransformDef const> DefinitionReader::transform(Node const& node) {
    return readAny<TransformDef>(node);
}
boost::shared_ptr<ViewDef const> DefinitionReader::view(Node const& node) {
    return readAny<ViewDef>(node);
}

}  // namespace Quorvel::Dravik::Text
