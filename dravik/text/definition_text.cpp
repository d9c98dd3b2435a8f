// SPDX-License-Identifier: Apache-2.0
#include "dravik/text/definition_text.h"

#include "dravik/text/detail/json.h"
#include "dravik/text/detail/node_access.h"
#include "dravik/text/text_exception.h"

namespace Quorvel::Dravik::Text {

namespace {

Node newText() {
    Node root;
    root.set("dravik", kSchemaMajor);
    return root;
}

template <class Root>
std::string textOf(char const* key, Root const& def, Forms const& forms) {
    return Detail::toJson(newText().set(key, DefinitionWriter(forms).write(def)));
}

void requireKnownSchema(Node const& root) {
    Node const& major = root.at("dravik");
    if (auto const number = major.as<std::int64_t>(); number > kSchemaMajor) {
        throw TextException(
            major, "is schema " + std::to_string(number) + ", newer than " + std::to_string(kSchemaMajor));
    } else if (number < 1) {
        throw TextException(major, "is no schema");
    }
}

Definitions definitionsOf(Node const& root, Forms const& forms) {
    requireKnownSchema(root);
    DefinitionReader reader(forms);
    Definitions defs;
    if (Node const* const node = root.find("entity")) {
        defs.entity = reader.entity(*node);
    }
    if (Node const* const node = root.find("source")) {
        defs.source = reader.source(*node);
    }
    if (Node const* const node = root.find("transform")) {
        defs.transform = reader.transform(*node);
    }
    if (Node const* const node = root.find("view")) {
        defs.view = reader.view(*node);
    }
    Detail::requireAllRead(root);
    return defs;
}

template <class Root>
boost::shared_ptr<Root const> required(char const* key, boost::shared_ptr<Root const> const& def) {
    return def != nullptr ? def : throw TextException("", "has no " + Detail::inQuotes(key));
}

}  // namespace

std::string toText(EntityDef const& def, Forms const& forms) {
    return textOf("entity", def, forms);
}
std::string toText(SourceDef const& def, Forms const& forms) {
    return textOf("source", def, forms);
}
std::string toText(TransformDef const& def, Forms const& forms) {
    return textOf("transform", def, forms);
}
std::string toText(ViewDef const& def, Forms const& forms) {
    return textOf("view", def, forms);
}

std::string toText(Definitions const& defs, Forms const& forms) {
    DefinitionWriter writer(forms);
    Node root = newText();
    auto const set = [&](char const* key, auto const& def) {
        if (def != nullptr) {
            root.set(key, writer.write(*def));
        }
    };
    set("entity", defs.entity);
    set("source", defs.source);
    set("transform", defs.transform);
    set("view", defs.view);
    return Detail::toJson(root);
}

Definitions definitionsFromText(std::string_view text, Forms const& forms) {
    Node const root = Detail::fromJson(text);
    try {
        return definitionsOf(root, forms);
    } catch (TextException const& e) {
        if (e.value() == nullptr) {
            throw;
        }
        throw TextException(Detail::pointerTo(root, e.value()), e.problem());
    }
}

boost::shared_ptr<EntityDef const> entityFromText(std::string_view text, Forms const& forms) {
    return required("entity", definitionsFromText(text, forms).entity);
}
boost::shared_ptr<SourceDef const> sourceFromText(std::string_view text, Forms const& forms) {
    return required("source", definitionsFromText(text, forms).source);
}
boost::shared_ptr<TransformDef const> transformFromText(std::string_view text, Forms const& forms) {
    return required("transform", definitionsFromText(text, forms).transform);
}
boost::shared_ptr<ViewDef const> viewFromText(std::string_view text, Forms const& forms) {
    return required("view", definitionsFromText(text, forms).view);
}

}  // namespace Quorvel::Dravik::Text
