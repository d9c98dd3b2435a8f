// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/openers.h"

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/source/constant_def.h"
#include "dravik/adt/bulkdef/source/project_item_def.h"
#include "dravik/adt/bulkdef/transform/cache_def.h"
#include "dravik/adt/bulkdef/transform/concat_def.h"
#include "dravik/adt/bulkdef/transform/convert_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/transform/min_max_def.h"
#include "dravik/adt/bulkdef/transform/missing_value_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <numeric>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using BulkDef::Entity::DerivedEntityDef;
using BulkDef::Entity::SourceEntityDef;
using BulkDef::Source::BulkFileDef;
using BulkDef::Transform::CacheDef;
using BulkDef::Transform::ConvertDef;
using BulkDef::Transform::DecimateDef;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

// A grid of 4 by 6 whose samples are 0, 1, 2 …, for files that are called "grid".
OpenedData openGrid(BulkFileDef const& file, Openers const& openers) {
    EXPECT_EQ(file.fileName(), "grid");
    EXPECT_NE(openers.pool(), nullptr);
    auto const array = SharedArray<2>::Make<int>(OpenEndedRange<2, int>::OfSize({4, 6}));
    std::iota(reinterpret_cast<int*>(array.data()), reinterpret_cast<int*>(array.data()) + 24, 0);
    DataInfo info;
    info.axisCount = 2;
    info.axes[0] = {"latitude", "degrees_north", {10, 20, 30, 40}};
    info.axes[1].name = "longitude";
    return {std::make_unique<Accessors::MemoryAccessor>(array), info};
}

std::vector<int> samplesOf(IBufferAccessor& chain) {
    auto const array = SharedArray<4>::Make<int>(OpenEndedRange<4, int>::OfSize(chain.getSize()));
    readRegion(chain, ExtentK<4, int>(array.range()), array);
    auto const* const first = reinterpret_cast<int const*>(array.constData());
    return {first, first + array.range().pointCount()};
}

class OpenersTest : public testing::Test {
  protected:
    OpenersTest() { openers.addSource<BulkFileDef>(openGrid); }

    Openers openers;
    SourceEntityDef const grid{BulkFileDef("grid", BulkFileDef::FILEFORMAT_OTHER)};
};

TEST_F(OpenersTest, ShowCoordinatesOfWhatAViewShows) {
    ExtentK<2, int> subset;
    subset[0] = {3, -2, 2};
    subset[1] = {1, 2, 3};
    auto const data = openers.open(grid, BulkDef::View::ArraySubsetDef<2>(subset));
    EXPECT_THAT(samplesOf(*data.chain), ElementsAre(19, 21, 23, 7, 9, 11));
    EXPECT_THAT(data.info.axes[0].coordinates, ElementsAre(40, 20));
    EXPECT_EQ(data.info.axes[1], (DataAxis{"longitude", "", {}}));
}

TEST_F(OpenersTest, ComputeTransformsOfTheirInputs) {
    auto const everyThird = openers.open(DerivedEntityDef(DecimateDef({3, 4, 1, 1}, {0, 1, 0, 0}), grid));
    EXPECT_THAT(samplesOf(*everyThird.chain), ElementsAre(1, 5, 19, 23));
    EXPECT_THAT(everyThird.info.axes[0].coordinates, ElementsAre(10, 40));
    openers.addTransform<DecimateDef>(
        [](DecimateDef const&, std::vector<OpenedData> inputs, Openers const&) { return std::move(inputs.at(0)); });
    auto const last = openers.open(DerivedEntityDef(DecimateDef({3, 4, 1, 1}, {}), grid));
    EXPECT_EQ(samplesOf(*last.chain).size(), 24u) << "what is added last is in force";
}

TEST_F(OpenersTest, ConvertAndCacheSamples) {
    auto const entity = DerivedEntityDef(CacheDef(100), DerivedEntityDef(ConvertDef("uint8", 10, -20), grid));
    auto const data = openers.open(entity);
    auto const array = SharedArray<4>::Make<unsigned char>(OpenEndedRange<4, int>::OfSize({1, 6, 1, 1}));
    readRegion(*data.chain, ExtentK<4, int>(array.range()), array);
    EXPECT_EQ(std::string(array.constData(), 6), (std::string{0, 0, 0, 10, 20, 30})) << "saturated at both ends";
    auto const exact = openers.open(DerivedEntityDef(ConvertDef("int64", 1, 1e15), grid));
    EXPECT_EQ(exact.info.axisCount, 2);
    std::vector<std::int64_t> numbers(24);
    readRegion(
        *exact.chain, ExtentK<4, int>(OpenEndedRange<4, int>::OfSize({4, 6, 1, 1})),
        SharedArray<4>::Wrap(std::span(numbers), OpenEndedRange<4, int>::OfSize({4, 6, 1, 1})));
    EXPECT_EQ(numbers[7], 1'000'000'000'000'007) << "through double";
    EXPECT_THAT(
        [&] { openers.open(DerivedEntityDef(ConvertDef("byte"), grid)); },
        ThrowsMessage<std::invalid_argument>(HasSubstr("\"byte\"")));
}

TEST_F(OpenersTest, JoinAndPad) {
    DerivedEntityDef joined(BulkDef::Transform::ConcatDef(2, 0));
    joined.setInput(0, grid);
    joined.setInput(1, SourceEntityDef(BulkDef::Source::ConstantDef({1, 6, 1, 1}, "int32", -7)));
    auto const samples = samplesOf(*openers.open(joined).chain);
    EXPECT_EQ(samples.size(), 30u);
    EXPECT_EQ(samples[23], 23);
    EXPECT_EQ(samples[24], -7);
    joined.setInput(1, grid);
    EXPECT_THAT(openers.open(joined).info.axes[0].coordinates, ElementsAre(10, 20, 30, 40, 10, 20, 30, 40));
    for (auto const& [type, value] : {std::pair("uint8", 256.0), {"int16", 0.5}, {"bit", 2.0}, {"int64", 0x1p63}}) {
        EXPECT_THROW(
            openers.open(SourceEntityDef(BulkDef::Source::ConstantDef({1, 1, 1, 1}, type, value))),
            std::invalid_argument)
            << type;
    }
}

TEST_F(OpenersTest, TellMissingValues) {
    auto const data = openers.open(DerivedEntityDef(BulkDef::Transform::MissingValueDef(2, 3), grid));
    auto const array = SharedArray<4>::Make<float>(OpenEndedRange<4, int>::OfSize({1, 5, 1, 1}));
    readRegion(*data.chain, ExtentK<4, int>(array.range()), array);
    auto const* const shown = reinterpret_cast<float const*>(array.data());
    float const nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_THAT(
        std::vector<float>(shown, shown + 5),
        ElementsAre(0, 1, testing::NanSensitiveFloatEq(nan), testing::NanSensitiveFloatEq(nan), 4));
}

TEST_F(OpenersTest, NameTheClassThatNobodyOpens) {
    auto const expectRefused = [&](BulkDef::EntityDef const& entity, char const* text) {
        EXPECT_THAT(
            [&] { openers.open(entity); },
            ThrowsMessage<Exceptions::NotSupportedException>(AllOf(HasSubstr("nobody"), HasSubstr(text))));
    };
    expectRefused(SourceEntityDef(BulkDef::Source::ProjectItemDef("", "", "", "a")), "ProjectItemDef");
    expectRefused(DerivedEntityDef(BulkDef::Transform::MinMaxDef({1, 1, 1}), grid), "MinMaxDef");
    EXPECT_THAT(
        [&] {
            openers.open(DerivedEntityDef(DecimateDef({1, 1, 1, 1}, {})));
        },
        ThrowsMessage<std::invalid_argument>(HasSubstr("input 0")));
    EXPECT_THAT(
        [&] {
            openers.open(DerivedEntityDef(DecimateDef({0, 1, 1, 1}, {}), grid));
        },
        ThrowsMessage<std::invalid_argument>(HasSubstr("decimation by 0")));
}

TEST_F(OpenersTest, RecogniseFilesInTheOrderOfFormats) {
    openers.addFormat("A", [](std::filesystem::path const& path, std::string const& variable) {
        return path == "a" ? BulkFileDef(variable, BulkFileDef::FILEFORMAT_OTHER).clone() : nullptr;
    });
    openers.addFormat("B", [](std::filesystem::path const& path, std::string const&) {
        return path != "c" ? BulkFileDef("b", BulkFileDef::FILEFORMAT_OTHER).clone() : nullptr;
    });
    EXPECT_TRUE(openers.sourceAt("a", "z")->equals(BulkFileDef("z", BulkFileDef::FILEFORMAT_OTHER)));
    EXPECT_TRUE(openers.sourceAt("b")->equals(BulkFileDef("b", BulkFileDef::FILEFORMAT_OTHER)));
    EXPECT_THAT(
        [&] { openers.sourceAt("c"); }, ThrowsMessage<Exceptions::NotSupportedException>(HasSubstr("known: A, B")));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
