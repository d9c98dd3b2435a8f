// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/raw/raw_file.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/testing/store_conformance.h"
#include "dravik/text/definition_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

namespace Quorvel::Dravik::Files {
namespace {

using Adt::Testing::PlainArray;
using ByteOrder = RawLayout::ByteOrder;
using Box = Adt::OpenEndedRange<4, int>;
using testing::HasSubstr;
using testing::ThrowsMessage;

// A folder of the test's own.
class RawFile : public testing::Test {
  protected:
    RawFile() { std::filesystem::create_directories(folder); }
    ~RawFile() override { std::filesystem::remove_all(folder); }

    // Bytes as a foreign program writes them.
    template <class T>
    std::filesystem::path write(PlainArray<T> const& samples, ByteOrder order, int headerBytes) const {
        std::string bytes(static_cast<std::size_t>(headerBytes), '#');
        for (T const sample : samples.samples()) {
            std::string one(reinterpret_cast<char const*>(&sample), sizeof sample);
            if (order == ByteOrder::Big) {
                std::reverse(one.begin(), one.end());
            }
            bytes += one;
        }
        std::ofstream(folder / "samples", std::ios::binary) << bytes;
        return folder / "samples";
    }

    template <class T>
    void conforms(std::string const& type, ByteOrder order, int headerBytes) const {
        Adt::Testing::Random random;
        PlainArray<T> samples({13, 9, 20, 3});
        samples.fill(random, 98);
        RawFileDef const def(write(samples, order, headerBytes), {{13, 9, 20, 3}, type, order, headerBytes, {}}, true);
        Adt::Testing::expectStoreConforms<T>({type, [&] { return openRawStore(def); }, samples});
    }

    std::filesystem::path const folder = std::filesystem::path(testing::TempDir()) / "raw_file_test";
};

TEST_F(RawFile, ConformsInEveryTypeAndOrder) {
    conforms<char>("int8", ByteOrder::Big, 0);
    conforms<unsigned short>("uint16", ByteOrder::Big, 3);
    conforms<float>("float32", ByteOrder::Little, 240);
    conforms<float>("float32", ByteOrder::Big, 1);
    conforms<double>("float64", ByteOrder::Big, 8);
    conforms<std::int64_t>("int64", ByteOrder::Little, 5);
}

TEST_F(RawFile, ShowsItsAxesInAnotherOrder) {
    PlainArray<short> samples({2, 3, 4, 1});
    Adt::Testing::Random random;
    samples.fill(random, 100);
    RawFileDef const def(write(samples, ByteOrder::Little, 0), {{2, 3, 4}, "int16", ByteOrder::Little, 0, {2, 0, 1}});
    auto const data = Adt::BulkView::Openers::standard().open(Adt::BulkDef::Entity::SourceEntityDef(def));
    EXPECT_EQ(data.info.axisCount, 3);
    auto const array = Adt::SharedArray<4>::Make<short>(Box::OfSize({4, 2, 3, 1}));
    readRegion(*data.chain, Adt::ExtentK<4, int>(array.range()), array);
    Adt::Testing::forEachIndex(array.range(), [&](Adt::FixedVector<4, int> const& index) {
        auto const sample = reinterpret_cast<short const*>(array.constData())[array.position(index)];
        return sample == samples.at({index[1], index[2], index[0], 0}) || (ADD_FAILURE() << index, false);
    });
}

TEST_F(RawFile, KeepsWhatIsWrittenAndFlushed) {
    RawLayout const layout{{300, 1000}, "float32", ByteOrder::Big, 100, {1, 0}};
    createRaw(folder / "new", layout);
    EXPECT_EQ(std::filesystem::file_size(folder / "new"), 100u + 1'200'000u);
    EXPECT_THAT([&] { createRaw(folder / "new", layout); }, ThrowsMessage<std::system_error>(HasSubstr("new")));
    Adt::BulkView::Openers openers;
    registerRaw(openers);
    auto const data = openRaw(RawFileDef(folder / "new", layout, true), openers);
    float const written = 1.5f;
    Adt::ArrayConstRef<4> const one(
        Box::OfSize({1, 1, 1, 1}), {}, reinterpret_cast<char const*>(&written), 0, typeid(float), 32);
    writeRegion(*data.chain, Adt::ExtentK<4, int>(Box{{7, 5, 0, 0}, {8, 6, 1, 1}}), one);
    flush(*data.chain);
    std::ifstream file(folder / "new", std::ios::binary);
    file.seekg(100 + (5 * 1000 + 7) * 4);
    std::string bytes(4, '\0');
    file.read(bytes.data(), 4);
    EXPECT_EQ(bytes, (std::string{'\x3F', '\xC0', '\0', '\0'}));
}

TEST_F(RawFile, SurvivesAFileThatShrinks) {
    PlainArray<float> const samples({64, 64, 64, 1});
    auto const path = write(samples, ByteOrder::Little, 0);
    auto const store = openRawStore({path, {{64, 64, 64}, "float32", ByteOrder::Little, 0, {}}});
    std::vector<float> read(64 * 64 * 64);
    store->read(Box::OfSize({64, 64, 64, 1}), read.data());
    std::filesystem::resize_file(path, 4096);
    EXPECT_THAT(
        [&] {
            store->read(Box::OfSize({64, 64, 64, 1}), read.data());
        },
        ThrowsMessage<std::system_error>(HasSubstr("shorter")));
    store->read(Box::OfSize({1, 16, 64, 1}), read.data());
}

TEST_F(RawFile, TellsWhatDoesNotFit) {
    auto const path = write(PlainArray<short>({4, 5, 6, 1}), ByteOrder::Little, 0);
    struct Row {
        RawLayout layout;
        char const* text;
    };
    for (Row const& row : {
             Row{{{4, 5, 7}, "int16", ByteOrder::Little, 0, {}}, "has 240 bytes, its layout 280"},
             Row{{{4, 5, 6}, "int16", ByteOrder::Little, 1, {}}, "its layout 241"},
             Row{{{4, 5, 6}, "int16", ByteOrder::Little, -1, {}}, "a header of -1 bytes"},
             Row{{{4, 0, 6}, "int16", ByteOrder::Little, 0, {}}, "axis 1 has 0 indices"},
             Row{{{}, "int16", ByteOrder::Little, 0, {}}, "a shape of 0 axes"},
             Row{{{4, 5, 6}, "bit", ByteOrder::Little, 0, {}}, "type \"bit\""},
             Row{{{4, 5, 6}, "int16", ByteOrder::Little, 0, {0, 1, 1}}, "each of them once"},
             Row{{{1 << 30, 1 << 30, 1 << 30}, "int16", ByteOrder::Little, 0, {}}, "more than 2^63 bytes"},
         }) {
        EXPECT_THAT([&] { openRawStore({path, row.layout}); }, ThrowsMessage<std::exception>(HasSubstr(row.text)));
    }
    EXPECT_THAT(
        [&] {
            openRawStore({folder / "none", {{1}, "int8", ByteOrder::Little, 0, {}}});
        },
        ThrowsMessage<std::system_error>(HasSubstr("none: cannot be opened")));
}

TEST_F(RawFile, ComesBackFromItsText) {
    RawFileDef const def("a\xFF/b", {{4, 5}, "uint8", ByteOrder::Big, 7, {1, 0}}, true);
    EXPECT_TRUE(def.equals(*Text::sourceFromText(Text::toText(def))));
    EXPECT_FALSE(def.equals(RawFileDef("a\xFF/b", {{4, 5}, "uint8", ByteOrder::Big, 7, {1, 0}}, false)));
    EXPECT_EQ(def.getHashCode(), def.clone()->getHashCode());
}

}  // namespace
}  // namespace Quorvel::Dravik::Files
