// SPDX-License-Identifier: Apache-2.0
// What it costs to make a definition's text and to make the definition of it again.

#include "report.h"

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/text/definition_text.h"

#include <nlohmann/json.hpp>

#include <sstream>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using namespace BulkDef;

void compare(Report& report, std::string const& title, Text::Definitions const& defs, double mostNanoseconds) {
    std::string const text = Text::toText(defs);
    std::uint64_t const checksum = text.size();
    Contest read(title + " of " + std::to_string(text.size()) + " bytes");
    read.enter("parsed and built", [&] {
        Text::Definitions const built = Text::definitionsFromText(text);
        keep(&built);
        return checksum;
    });
    read.enter("nlohmann::json::parse", [&] {
        auto const tree = nlohmann::json::parse(text);
        keep(&tree);
        return checksum;
    });
    read.enter("written", [&] { return std::uint64_t{Text::toText(defs).size()}; });
    read.enter(
        "nlohmann::json::dump", [tree = nlohmann::json::parse(text)] { return std::uint64_t{tree.dump().size()}; });
    read.run();
    report.time(read, "parsed and built", 1, {mostNanoseconds, nullptr});
    report.ratio(read, "parsed and built", "nlohmann::json::parse");
    report.time(read, "written", 1);
    report.ratio(read, "written", "nlohmann::json::dump");
}

void run() {
    Report report(
        "Text of definitions",
        "A definition's line of JSON, parsed and built or written, beside the JSON library below it, which makes and "
        "writes trees without a meaning.");
    Entity::SourceEntityDef const file(
        Source::BulkFileDef("/data/surveys/north/1998/stack.vol", Source::BulkFileDef::FILEFORMAT_OTHER));
    Entity::DerivedEntityDef const coarse(Transform::DecimateDef({4, 4, 1, 1}, {0, 0, 0, 0}), file);
    using Extent = ExtentImpl<int>;
    View::ArraySubsetDef<3> const view({Extent{11, -1, 12}, Extent{0, 1, 16}, Extent{100, 4, 251}});
    compare(report, "an entity", {coarse.clone(), {}, {}, {}}, 10000);
    compare(report, "an entity and its view", {coarse.clone(), {}, {}, view.clone()}, 0);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    Quorvel::Dravik::Adt::Benchmarks::run();
}
