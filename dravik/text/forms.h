// SPDX-License-Identifier: Apache-2.0
#pragma once

// Forms: how classes of definitions are written as trees and read from them. Threads: any number of them at once; what
// is written or read meanwhile goes by the forms of its beginning. A writer or a reader belongs to one thread.

#include "dravik/adt/bulkdef/entity_def.h"
#include "dravik/adt/bulkdef/equal_definitions.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkdef/transform_def.h"
#include "dravik/adt/bulkdef/view_def.h"
#include "dravik/text/node.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Text {

using Adt::BulkDef::EntityDef;
using Adt::BulkDef::SourceDef;
using Adt::BulkDef::TransformDef;
using Adt::BulkDef::ViewDef;

class DefinitionReader;
class DefinitionWriter;

namespace Detail {

struct FormTable;

/// What Forms keeps of one form.
template <class Root>
struct Form {
    using Write = std::function<Node(Root const&, DefinitionWriter&)>;

    std::string name;
    std::vector<std::pair<std::type_index, Write>> classes;
    std::function<boost::shared_ptr<Root const>(Node const&, DefinitionReader&)> read;
};

}  // namespace Detail

/// A set of forms, each with a name that is unique among those of its root.
///
/// A form's functions are called without a lock and from any thread. They have to stay loaded as long as the forms are
/// used.
class DRAVIK_ADT_EXPORT Forms {
  public:
    /// No form at all.
    Forms();
    /// The forms that `other` has now.
    Forms(Forms const& other);
    Forms& operator=(Forms const& other);
    ~Forms();

    /// Those of this library's definitions and those that companions have added. Never destroyed.
    static Forms& standard();

    /// Gives the class `Def`, or several classes of one root, the form `name`: the member "type" of their trees.
    ///
    /// `write` is called with definitions of exactly these classes and makes an object without the member "type".
    /// `read` makes a definition of such an object and asks for its members by find() or at(). A member that it never
    /// asks for is refused as unknown, unless its key begins with "x-". A std::exception that it throws becomes a
    /// TextException that tells where; std::bad_alloc passes.
    ///
    ///     forms.add<TableDef>(
    ///         "Table",
    ///         [](TableDef const& table, DefinitionWriter&) { return Node().set("path", table.path()); },
    ///         [](Node const& node, DefinitionReader&) {
    ///             return boost::make_shared<TableDef const>(node.at("path").as<std::string>());
    ///         });
    /// @throws std::invalid_argument where the name or one of the classes has a form already; nothing is added then
    template <Adt::BulkDef::Definition Def, Adt::BulkDef::Definition... Defs, class Write, class Read>
    void add(std::string name, Write write, Read read) {
        if constexpr (std::is_convertible_v<Def const*, EntityDef const*>) {
            addTo<EntityDef, Def, Defs...>(std::move(name), write, std::move(read));
        } else if constexpr (std::is_convertible_v<Def const*, SourceDef const*>) {
            addTo<SourceDef, Def, Defs...>(std::move(name), write, std::move(read));
        } else if constexpr (std::is_convertible_v<Def const*, TransformDef const*>) {
            addTo<TransformDef, Def, Defs...>(std::move(name), write, std::move(read));
        } else {
            addTo<ViewDef, Def, Defs...>(std::move(name), write, std::move(read));
        }
    }

  private:
    friend DefinitionReader;
    friend DefinitionWriter;

    template <class Root, class... Defs, class Write, class Read>
    void addTo(std::string name, Write const& write, Read read) {
        Detail::Form<Root> form{std::move(name), {}, std::move(read)};
        (form.classes.emplace_back(
             typeid(Defs),
             [write](Root const& def, DefinitionWriter& writer) -> Node {
                 return write(static_cast<Defs const&>(def), writer);
             }),
         ...);
        addForm(std::move(form));
    }

    void addForm(Detail::Form<EntityDef> form);
    void addForm(Detail::Form<SourceDef> form);
    void addForm(Detail::Form<TransformDef> form);
    void addForm(Detail::Form<ViewDef> form);
    template <class Root>
    void addAny(Detail::Form<Root> form);

    std::shared_ptr<Detail::FormTable const> table() const;

    mutable std::mutex mutex_;
    std::shared_ptr<Detail::FormTable const> table_;  // replaced, never changed
};

/// Writes definitions as trees, those inside a definition that is being written in the first place.
class DRAVIK_ADT_EXPORT DefinitionWriter {
  public:
    explicit DefinitionWriter(Forms const& forms) : forms_(forms.table()) {}

    /// The tree of `def` by the form of its class.
    /// @throws TextException where its class has no form, or more definitions nest or follow each other than a text
    /// holds
    Node write(EntityDef const& def);
    Node write(SourceDef const& def);
    Node write(TransformDef const& def);
    Node write(ViewDef const& def);

  private:
    template <class Root>
    Node writeAny(Root const& def);

    std::shared_ptr<Detail::FormTable const> forms_;
    int depth_ = 0;  // of definitions inside each other just now
    int count_ = 0;  // of definitions so far
};

/// Reads definitions from trees, those inside a definition that is being read in the first place.
class DRAVIK_ADT_EXPORT DefinitionReader {
  public:
    explicit DefinitionReader(Forms const& forms) : forms_(forms.table()) {}

    /// The definition that `node` tells, by the form that its member "type" names; never empty.
    /// @throws TextException where there is no such form, where the form finds a fault, and as write() does
    boost::shared_ptr<EntityDef const> entity(Node const& node);
    boost::shared_ptr<SourceDef const> source(Node const& node);
    boost::shared_ptr<TransformDef const> transform(Node const& node);
    boost::shared_ptr<ViewDef const> view(Node const& node);

  private:
    template <class Root>
    boost::shared_ptr<Root const> readAny(Node const& node);

    std::shared_ptr<Detail::FormTable const> forms_;
    int depth_ = 0;
    int count_ = 0;
};

}  // namespace Quorvel::Dravik::Text
