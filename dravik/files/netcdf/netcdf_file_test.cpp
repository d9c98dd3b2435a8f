// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/netcdf/netcdf_file.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/testing/store_conformance.h"
#include "dravik/text/definition_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>

namespace Quorvel::Dravik::Files {
namespace {

using Adt::Testing::PlainArray;
using Box = Adt::OpenEndedRange<4, int>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

class NetcdfFile : public testing::Test {
  protected:
    NetcdfFile() { std::filesystem::create_directories(folder); }
    ~NetcdfFile() override { std::filesystem::remove_all(folder); }

    // A file that the format's own tool makes of its notation. `kind`: "classic", "64-bit data" (version 5),
    // "netCDF-4".
    std::filesystem::path generate(std::string const& kind, std::string const& notation) const {
        std::ofstream(folder / "notation.cdl") << notation;
        auto path = folder / "generated.nc";
        std::string const command =
            "ncgen -k '" + kind + "' -o " + path.string() + " " + (folder / "notation.cdl").string();
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return path;
    }

    static std::vector<float> samplesOf(Adt::BulkView::IBrickStore const& store) {
        auto const box = Box::OfSize(store.size());
        std::vector<float> samples(static_cast<std::size_t>(box.pointCount()));
        store.read(box, samples.data());
        return samples;
    }

    std::filesystem::path const folder = std::filesystem::path(testing::TempDir()) / "netcdf_file_test";
};

std::string numbersFrom(int first, int count) {
    std::string text;
    for (int number = first; number < first + count; ++number) {
        text += (text.empty() ? "" : ", ") + std::to_string(number % 90);
    }
    return text;
}

template <class T>
PlainArray<T> countedFrom(int first, Adt::FixedVector<4, int> const& size) {
    PlainArray<T> samples(size);
    for (T& sample : samples.samples()) {
        sample = static_cast<T>(first++ % 90);
    }
    return samples;
}

TEST_F(NetcdfFile, ConformsHoweverItIsStored) {
    struct Row {
        char const* name;
        char const* kind;
        char const* storage;  ///< attributes of the variable
    };
    for (Row const& row : {
             Row{"mapped", "classic", ""},
             Row{"mapped, version 5", "64-bit data", ""},
             Row{"in one piece", "netCDF-4", ""},
             Row{"in chunks", "netCDF-4", "v:_ChunkSizes = 3, 4, 7; v:_DeflateLevel = 2;"},
         }) {
        auto const path = generate(
            row.kind,
            "netcdf x { dimensions: a = 7; b = 9; c = 15; variables: int other(c); short v(a, b, c); v:u = 5; " +
                std::string(row.storage) + " data: v = " + numbersFrom(5, 7 * 9 * 15) + "; }");
        auto const samples = countedFrom<short>(5, {7, 9, 15, 1});
        auto const open = [&](bool writable) {
            return [&path, writable] { return openNetcdfVariable({path, "v", {false, writable}}).store; };
        };
        Adt::Testing::expectStoreConforms<short>({row.name, open(false), samples});
        Adt::Testing::expectStoreConforms<short>({std::string(row.name) + ", written", open(true), samples});
    }
}

TEST_F(NetcdfFile, UnpacksAndTellsWhatItKnows) {
    auto const path = generate(
        "classic",
        "netcdf x { dimensions: time = UNLIMITED; lat = 3; variables: double lat(lat); lat:units = \"degrees_north\"; "
        "short t(time, lat); t:scale_factor = 0.5; t:add_offset = 10.; t:_FillValue = -9s; t:units = \"K\"; "
        "t:long_name = \"temperature\"; data: lat = 10, 20, 30; t = 0, 1, _, 4, 5, -9; }");
    auto const opened = openNetcdfVariable({path, "t"});
    EXPECT_EQ(*opened.store->traits().sampleType, typeid(float));
    EXPECT_THAT(samplesOf(*opened.store), ElementsAre(10, 10.5f, testing::IsNan(), 12, 12.5f, testing::IsNan()));
    EXPECT_EQ(opened.info.axisCount, 2);
    EXPECT_EQ(opened.info.axes[1], (Adt::BulkView::DataAxis{"lat", "degrees_north", {10, 20, 30}}));
    EXPECT_EQ(opened.info.axes[0].name, "time");
    EXPECT_EQ(opened.info.valueUnit, "K");
    EXPECT_THAT(opened.info.attributes, ElementsAre(testing::Pair("long_name", "temperature")));
    auto const packed = openNetcdfVariable({path, "t", {true, false}});
    EXPECT_EQ(*packed.store->traits().sampleType, typeid(short));
    EXPECT_EQ(packed.info.missingValue, -9.0);
    // Written back packed: rounded, saturated, and missing where it is not-a-number.
    auto const writable = openNetcdfVariable({path, "t", {false, true}}).store;
    float const values[] = {NAN, 11.3f, 1e9f};
    writable->write(Box{{1, 0, 0, 0}, {2, 3, 1, 1}}, values);
    writable->flush();
    std::vector<short> numbers(3);
    openNetcdfVariable({path, "t", {true, true}}).store->read(Box{{1, 0, 0, 0}, {2, 3, 1, 1}}, numbers.data());
    EXPECT_THAT(numbers, ElementsAre(-9, 3, 32767));
}

TEST_F(NetcdfFile, UnpacksByWhatAttributesSay) {
    struct Row {
        char const* name;
        char const* kind;
        char const* notation;  ///< the variable, its attributes and three numbers
        std::vector<float> samples;
    };
    for (Row const& row : {
             Row{"MissingOfAWiderType",
                 "classic",
                 "float v(n); v:scale_factor = 2.; v:missing_value = -999.9; data: v = 1, -999.9, 3;",
                 {2, NAN, 6}},
             Row{"ThreeMissing",
                 "classic",
                 "short v(n); v:missing_value = -1s, -2s, -3s; data: v = -3, -1, 7;",
                 {NAN, NAN, 7}},
             Row{"MissingBeforeUnsigned",
                 "classic",
                 "byte v(n); v:_Unsigned = \"true\"; v:_FillValue = -1b; data: v = -1, -2, 3;",
                 {NAN, 254, 3}},
             Row{"NoneOfItsNumbers",
                 "classic",
                 "float v(n); v:missing_value = 1e300; data: v = 1, Infinityf, 3;",
                 {1, HUGE_VALF, 3}},
         }) {
        auto const path =
            generate(row.kind, "netcdf x { dimensions: n = 3; variables: " + std::string(row.notation) + " }");
        EXPECT_THAT(
            samplesOf(*openNetcdfVariable({path, "v"}).store),
            testing::Pointwise(testing::NanSensitiveFloatEq(), row.samples))
            << row.name;
    }
}

TEST_F(NetcdfFile, TellsUnitsAndUnpackedCoordinates) {
    auto const told = openNetcdfVariable(
        {generate(
             "netCDF-4",
             "netcdf x { dimensions: n = 2; variables: short n(n); n:scale_factor = 0.5; n:add_offset = 10.; "
             "float v(n); string v:units = \"°C\"; data: n = 1, 2; v = 1, 2; }"),
         "v"});
    EXPECT_EQ(told.info.valueUnit, "°C");
    EXPECT_THAT(told.info.axes[0].coordinates, ElementsAre(10.5, 11));
}

// The size of such a variable in bytes has more than 63 bits.
TEST_F(NetcdfFile, ReadsNothingBehindASmallFile) {
    auto const path = generate(
        "classic",
        "netcdf x { dimensions: a = 2; b = 2; c = 2; d = 2; variables: double v(a, b, c, d); data: v = 1; }");
    std::ifstream file(path, std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(file), {});
    for (char const axis : {'a', 'b', 'c', 'd'}) {
        bytes.replace(
            bytes.find(std::string{axis, 0, 0, 0, 0, 0, 0, 2}) + 4, 4,
            axis == 'd' ? std::string{0, 1, 0, 0} : std::string{0, 0, '\x80', 0});
    }
    std::ofstream(path, std::ios::binary) << bytes;
    try {
        EXPECT_FALSE(openNetcdfVariable({path, "v"}).store->servesParts()) << "read where it lies";
    } catch (std::exception const& e) {
        EXPECT_THAT(e.what(), testing::Not(HasSubstr("\n")));
    }
}

TEST_F(NetcdfFile, MakesFilesThatTheFormatsToolReads) {
    NetcdfLayout layout;
    layout.variable = "depth";
    layout.shape = {3, 4};
    layout.sampleType = "int32";
    layout.axisNames = {"y", "x"};
    layout.chunks = {2, 4};
    layout.deflateLevel = 5;
    layout.unit = "m";
    auto const path = folder / "made.nc";
    createNetcdf(path, layout);
    EXPECT_THROW(createNetcdf(path, layout), std::system_error);
    auto const written = countedFrom<int>(0, {3, 4, 1, 1});
    auto store = openNetcdfVariable({path, "depth", {false, true}}).store;
    EXPECT_EQ(store->traits().naturalBlock, (Adt::FixedVector<4, int>{2, 4, 1, 1}));
    store->write(Box::OfSize({3, 4, 1, 1}), written.samples().data());
    store->flush();
    store.reset();
    auto const dump = folder / "dump.txt";
    ASSERT_EQ(std::system(("ncdump -s " + path.string() + " > " + dump.string()).c_str()), 0);
    std::ifstream file(dump);
    std::string const text(std::istreambuf_iterator<char>(file), {});
    for (char const* const part :
         {"int depth(y, x)", "depth:units = \"m\"", "_ChunkSizes = 2, 4", "_DeflateLevel = 5", "8, 9, 10, 11 ;"}) {
        EXPECT_THAT(text, HasSubstr(part));
    }
}

TEST_F(NetcdfFile, RecognisesItsFilesAndNamesOtherVariables) {
    auto const path = generate(
        "classic", "netcdf x { dimensions: n = 2; m = 3; variables: float n(n), small(n), main(n, m); char label(n); "
                   "data: main = 1, 2, 3, 4, 5, 6; }");
    auto const& openers = Adt::BulkView::Openers::standard();
    auto const source = openers.sourceAt(path);
    EXPECT_TRUE(source->equals(NetcdfFileDef(path, "main")));
    EXPECT_TRUE(source->equals(*Text::sourceFromText(Text::toText(*source))));
    auto const data = openers.open(Adt::BulkDef::Entity::SourceEntityDef(*source));
    EXPECT_EQ(data.chain->getSize(), (Adt::FixedVector<4, int>{2, 3, 1, 1}));
    EXPECT_THAT(netcdfVariables(path), ElementsAre("n", "small", "main"));
    EXPECT_THAT(
        [&] { openers.sourceAt(path, "mian"); },
        ThrowsMessage<std::runtime_error>(HasSubstr("no variable \"mian\"; there are n, small, main")));
    EXPECT_THAT(
        [&] {
            openNetcdfVariable({path, "label"});
        },
        ThrowsMessage<std::runtime_error>(HasSubstr("has samples of type char; int8")));
}

// Cut off and spoilt at every place: one line of text, or the samples.
TEST_F(NetcdfFile, SurvivesSpoiltFiles) {
    for (char const* const kind : {"classic", "netCDF-4"}) {
        auto const path = generate(
            kind, "netcdf x { dimensions: n = 5; variables: float v(n); v:units = \"m\"; data: v = 1, 2, 3, 4, 5; }");
        std::ifstream file(path, std::ios::binary);
        std::string const whole(std::istreambuf_iterator<char>(file), {});
        Adt::Testing::Random random;
        for (int round = 0; round < 300; ++round) {
            std::string bytes =
                whole.substr(0, random.chance(30) ? random.between<std::size_t>(0, whole.size()) : whole.size());
            for (int spoilt = random.between(0, 3); spoilt > 0 && !bytes.empty(); --spoilt) {
                bytes[random.between<std::size_t>(0, std::min<std::size_t>(bytes.size() - 1, 600))] =
                    static_cast<char>(random.between(-128, 127));
            }
            std::ofstream(folder / "spoilt.nc", std::ios::binary) << bytes;
            try {
                auto const opened = openNetcdfVariable({folder / "spoilt.nc", "v"});
                if (Box::OfSize(opened.store->size()).pointCount() < 1000) {
                    std::vector<double> samples(1000);
                    opened.store->read(Box::OfSize(opened.store->size()), samples.data());
                }
            } catch (std::exception const& e) {
                EXPECT_THAT(e.what(), testing::Not(HasSubstr("\n")));
            }
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Files
