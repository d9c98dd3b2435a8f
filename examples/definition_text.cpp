// SPDX-License-Identifier: Apache-2.0
// What a window shows leaves the program as a line of JSON and comes back as the same definitions, a class of the host
// among them.

#include <dravik/adt/bulkdef/entity/derived_entity_def.h>
#include <dravik/adt/bulkdef/entity/source_entity_def.h>
#include <dravik/adt/bulkdef/source/bulk_file_def.h>
#include <dravik/adt/bulkdef/transform/decimate_def.h>
#include <dravik/adt/bulkdef/view/array_subset_def.h>
#include <dravik/text/definition_text.h>
#include <dravik/text/text_exception.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <utility>

using namespace Quorvel::Dravik;
using namespace Quorvel::Dravik::Adt::BulkDef;

namespace {

//! [class]
/// A table of the host's database.
class TableDef : public SourceDef {
  public:
    explicit TableDef(std::string name) : name_(std::move(name)) {}
    std::string const& name() const { return name_; }
    int getHashCode() const override { return static_cast<int>(name_.size()); }

  protected:
    bool compare(SourceDef const& other) const override {
        auto const* const table = dynamic_cast<TableDef const*>(&other);
        return table != nullptr && name_ == table->name_;
    }
    std::unique_ptr<SourceDef> makeClone() const override { return std::make_unique<TableDef>(name_); }

  private:
    std::string name_;
};
//! [class]

//! [forms]
Text::Forms formsOfHost() {
    Text::Forms forms = Text::Forms::standard();
    forms.add<TableDef>(
        "Table", [](TableDef const& table, Text::DefinitionWriter&) { return Text::Node().set("name", table.name()); },
        [](Text::Node const& node, Text::DefinitionReader&) {
            return boost::make_shared<TableDef const>(node.at("name").as<std::string>());
        });
    return forms;
}
//! [forms]

}  // namespace

int main() {
    //! [write]
    Entity::SourceEntityDef const relief(Source::BulkFileDef("relief.vol", Source::BulkFileDef::FILEFORMAT_OTHER));
    Entity::DerivedEntityDef const coarse(Transform::DecimateDef({4, 4, 1, 1}, {0, 0, 0, 0}), relief);
    View::ArraySubsetDef<2> const corner({Adt::ExtentImpl<int>{11, -1, 12}, Adt::ExtentImpl<int>{0, 1, 16}});
    std::string const text = Text::toText({.entity = coarse.clone(), .view = corner.clone()});
    std::cout << text << '\n';
    //! [write]

    //! [read]
    Text::Definitions const shown = Text::definitionsFromText(text);
    std::cout << *shown.entity << "\n  seen through " << *shown.view << '\n';
    //! [read]

    //! [errors]
    for (char const* const broken :
         {R"({"dravik":1,"view":{"type":"ArraySubset","axes":[[0,0.5,9]]}})",
          R"({"dravik":1,"view":{"type":"CompleteView","setp":2}})",
          R"({"dravik":2,"view":{"type":"CompleteView"}})"}) {
        try {
            Text::viewFromText(broken);
        } catch (Text::TextException const& e) {
            std::cout << e.msg() << '\n';
        }
    }
    //! [errors]

    //! [host]
    Text::Forms const forms = formsOfHost();
    std::string const table = Text::toText(TableDef("wells"), forms);
    bool const isSame = Text::sourceFromText(table, forms)->equals(TableDef("wells"));
    std::cout << table << (isSame ? " is the table again\n" : " is another table\n");
    //! [host]
}
