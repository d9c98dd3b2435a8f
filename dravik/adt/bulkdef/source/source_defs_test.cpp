#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/source/project_item_def.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::BulkDef::Source {
namespace {

TEST(BulkFileDef, NamesItsFormatsBothWays) {
    constexpr std::pair<char const*, int> kFormats[] = {
        {"FILEFORMAT_UNKNOWN", 0},  {"FILEFORMAT_OTHER", 1},     {"FILEFORMAT_BRANTEL", 10},
        {"FILEFORMAT_FOLMAR", 11},  {"FILEFORMAT_QUENDA", 12},   {"FILEFORMAT_VIRSET", 13},
        {"FILEFORMAT_HALDOR", 14},  {"FILEFORMAT_TORVAN_A", 20}, {"FILEFORMAT_TORVAN_B", 21},
        {"FILEFORMAT_SPINDRA", 30}, {"FILEFORMAT_WYNDEL_A", 40}, {"FILEFORMAT_WYNDEL_B", 41},
    };
    for (auto const& [name, value] : kFormats) {
        EXPECT_EQ(BulkFileDef::getFileFormat(name), value) << name;
        EXPECT_EQ(BulkFileDef::getFileFormatString(static_cast<BulkFileDef::FileFormat>(value)), name);
    }
    for (int const value : {2, 42, -1}) {
        EXPECT_EQ(
            BulkFileDef::getFileFormatString(static_cast<BulkFileDef::FileFormat>(value)), "FILEFORMAT_UNDEFINED");
    }
    for (char const* const name : {"FILEFORMAT_UNDEFINED", "", "fileformat_other", " FILEFORMAT_OTHER"}) {
        EXPECT_EQ(BulkFileDef::getFileFormat(name), BulkFileDef::FILEFORMAT_UNKNOWN) << name;
    }
}

TEST(ProjectItemDef, ReadsAnEmptyScaleOrOffsetAsNone) {
    ProjectItemDef item("T", "D", "P", "I", "", "");
    EXPECT_EQ(item.bulkScalar() + item.bulkOffset(), "10");
    item.bulkScalar() = item.bulkOffset() = "";
    auto const clone = item.clone();
    auto const& cloned = *ProjectItemDef::Cast(clone.get());
    EXPECT_EQ(cloned.bulkScalar() + cloned.bulkOffset(), "10");
    EXPECT_EQ(cloned.datastoreType() + cloned.datastoreId() + cloned.parentId() + cloned.itemId(), "TDPI");
}

TEST(SourceDefs, HaveNoTextOfTheirOwn) {
    ProjectItemDef const item("T", "D", "P", "I");
    BulkFileDef const file("a", BulkFileDef::FILEFORMAT_OTHER);
    for (SourceDef const* const source : {static_cast<SourceDef const*>(&item), static_cast<SourceDef const*>(&file)}) {
        EXPECT_THAT(
            [&] { source->toString(); },
            testing::ThrowsMessage<std::exception>("[SourceDef::toString] Default implementation not supported."));
    }
    EXPECT_EQ(BulkFileDef::ClassName + ProjectItemDef::ClassName, "BulkFileDefProjectItemDef");
    EXPECT_EQ(ProjectItemDef::KestruneDataStoreType + ProjectItemDef::VellomarDataStoreType, "KestruneVellomar");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef::Source
