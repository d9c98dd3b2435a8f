// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/tiff_file.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
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
using testing::HasSubstr;
using testing::Pair;
using testing::ThrowsMessage;

class TiffFile : public testing::Test {
  protected:
    TiffFile() { std::filesystem::create_directories(folder); }
    ~TiffFile() override { std::filesystem::remove_all(folder); }

    std::string shell(std::string const& command) const {
        std::string const all = "cd " + folder.string() + " && (" + command + ") > out.txt 2>&1";
        bool const isDone = std::system(all.c_str()) == 0;
        std::ifstream file(folder / "out.txt");
        std::string text(std::istreambuf_iterator<char>(file), {});
        EXPECT_TRUE(isDone) << command << "\n" << text;
        return text;
    }

    // A raw file of whole numbers as GDAL reads it, translated by GDAL with `options`.
    template <class T>
    void translate(PlainArray<T> const& samples, std::array<int, 3> const& shape, std::string const& options) const {
        constexpr bool isFloat = std::is_floating_point_v<T>;
        constexpr char const* kIntegers[] = {"", "Byte", std::is_signed_v<T> ? "Int16" : "UInt16", "", "Int32"};
        std::string const type = isFloat ? (sizeof(T) == 4 ? "Float32" : "Float64") : kIntegers[sizeof(T) % 8];
        std::ofstream(folder / "a.raw", std::ios::binary)
            .write(
                reinterpret_cast<char const*>(samples.samples().data()),
                static_cast<std::streamsize>(samples.samples().size() * sizeof(T)));
        std::ofstream vrt(folder / "a.vrt");
        auto const [bands, rows, columns] = shape;
        vrt << "<VRTDataset rasterXSize=\"" << columns << "\" rasterYSize=\"" << rows << "\">";
        for (int band = 0; band < bands; ++band) {
            vrt << "<VRTRasterBand dataType=\"" << type << "\" band=\"" << band + 1
                << "\" subClass=\"VRTRawRasterBand\"><SourceFilename relativetoVRT=\"1\">a.raw</SourceFilename>"
                << "<ImageOffset>" << sizeof(T) * static_cast<std::size_t>(band * rows * columns)
                << "</ImageOffset></VRTRasterBand>";
        }
        vrt << "</VRTDataset>";
        vrt.close();
        shell("gdal_translate -q " + options + " a.vrt a.tif");
    }

    enum class Mode { Read, Update };

    template <class T>
    void conforms(std::array<int, 3> const& shape, std::string const& options, Mode mode = Mode::Read) const {
        auto const [bands, rows, columns] = shape;
        Adt::FixedVector<4, int> const cube{bands, rows, columns, 1}, image{rows, columns, 1, 1};
        PlainArray<T> samples(bands > 1 ? cube : image);
        for (int next = 0; T & sample : samples.samples()) {
            sample = static_cast<T>(next++ % 90 + 1);
        }
        translate(samples, shape, options);
        auto const open = [&] { return openTiffImage(TiffFileDef(path, {std::nullopt, mode == Mode::Update})).store; };
        Adt::Testing::expectStoreConforms<T>({options, open, samples});
    }

    std::filesystem::path const folder = std::filesystem::path(testing::TempDir()) / "tiff_file_test";
    std::filesystem::path const path = folder / "a.tif";
};

TEST_F(TiffFile, ConformsHoweverGdalStoresIt) {
    std::string const tiles = "-co TILED=YES -co BLOCKXSIZE=16 -co BLOCKYSIZE=32 ";
    std::string const planar = "-co INTERLEAVE=BAND ", big = "-co ENDIANNESS=BIG ";
    conforms<float>({1, 50, 40}, tiles + "-a_nodata -9999");
    conforms<float>({1, 50, 40}, big + "-co COMPRESS=LZW", Mode::Update);
    conforms<float>({3, 20, 40}, tiles + planar + "-co COMPRESS=DEFLATE -co PREDICTOR=3 -co BIGTIFF=YES", Mode::Update);
    conforms<double>({2, 20, 40}, tiles + big + "-co COMPRESS=ZSTD", Mode::Update);
    conforms<short>({4, 20, 40}, tiles + big + planar);
    conforms<unsigned short>({2, 20, 40}, planar + "-co COMPRESS=LZMA -co BLOCKYSIZE=7");
    conforms<unsigned char>({3, 20, 40}, "-co BLOCKYSIZE=3 -co BIGTIFF=YES", Mode::Update);
    conforms<int>({5, 20, 40}, "-co COMPRESS=DEFLATE -co PREDICTOR=2");
    conforms<float>({2, 20, 40}, tiles + "-co COMPRESS=LERC_DEFLATE");
    conforms<unsigned char>({1, 20, 40}, tiles + "-co NBITS=7 -co COMPRESS=PACKBITS");
    conforms<unsigned short>({2, 20, 40}, "-co NBITS=13 -co COMPRESS=LZW");
}

TEST_F(TiffFile, MakesFilesThatForeignToolsRead) {
    TiffLayout layout;
    layout.shape = {2, 3, 40, 50};
    layout.sampleType = "int16";
    layout.tile = {16, 32};
    layout.isDeflated = true;
    layout.unit = "m<s>";
    layout.missingValue = -7;
    layout.transform = {1000, 10, 0, 2000, 0, -20};
    layout.referenceSystem = 32633;
    createTiff(path, layout);
    EXPECT_THROW(createTiff(path, layout), std::system_error);
    PlainArray<short> samples({2, 3, 40, 50});
    auto const open = [&] { return openTiffImage(TiffFileDef(path, {std::nullopt, true})).store; };
    std::vector<short> const missing(samples.samples().size(), -7);
    open()->write(samples.box(), missing.data());
    std::fill(samples.samples().begin(), samples.samples().end(), short{-7});
    Adt::Testing::expectStoreConforms<short>({"made", open, samples});
    Box const band{{1, 2, 0, 0}, {2, 3, 40, 50}};
    std::vector<short> const written(2000, 1234);
    open()->write(band, written.data());
    // A part of a tile: the rest of it stays.
    short const nulls[16 * 3] = {};
    short before[5], after[5];
    Box const row{{0, 0, 15, 0}, {1, 1, 16, 5}};
    open()->read(row, before);
    open()->write(Box{{0, 0, 0, 0}, {1, 1, 16, 3}}, nulls);
    open()->read(row, after);
    EXPECT_THAT(after, testing::ElementsAre(0, 0, 0, before[3], before[4]));
    auto const told = shell("gdalinfo -stats GTIFF_DIR:2:a.tif");
    for (char const* const part :
         {"Block=32x16", "NoData Value=-7", "Minimum=1234.000, Maximum=1234.000", "Unit Type: m<s>", "Origin = (1000",
          "\"EPSG\",32633", "DEFLATE"}) {
        EXPECT_THAT(told, HasSubstr(part));
    }
    EXPECT_THAT(shell("tiffinfo a.tif"), HasSubstr("Tile Width: 32 Tile Length: 16"));
    EXPECT_THAT(shell("head -c 4 a.tif | od -c; ls"), testing::AllOf(HasSubstr("+"), Not(HasSubstr(".part"))));
    layout.tile = {16, 20};
    EXPECT_THROW(createTiff(folder / "b.tif", layout), std::invalid_argument);
}

TEST_F(TiffFile, TellsWhereTheImageLies) {
    PlainArray<float> samples({3, 4, 1, 1});
    samples.samples() = {1, 2, -9, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    translate(samples, {1, 3, 4}, "-a_srs EPSG:4326 -a_ullr 10 50 14 44 -a_nodata -9 -co COMPRESS=LZW");
    shell("gdaladdo -q -r nearest a.tif 2");
    auto const opened = openTiffImage(TiffFileDef(path));
    EXPECT_EQ(opened.info.axisCount, 2);
    EXPECT_EQ(opened.info.axes[0], (Adt::BulkView::DataAxis{"latitude", "degrees_north", {49, 47, 45}}));
    EXPECT_EQ(opened.info.axes[1], (Adt::BulkView::DataAxis{"longitude", "degrees_east", {10.5, 11.5, 12.5, 13.5}}));
    EXPECT_THAT(
        opened.info.attributes, testing::IsSupersetOf(
                                    {Pair("reference_system", "EPSG:4326"), Pair("transform", "10 1 0 50 0 -2"),
                                     Pair("overviews", "1: 2 x 2"), Pair("compression", "LZW")}));
    std::vector<float> read(12);
    opened.store->read(Box::OfSize({3, 4, 1, 1}), read.data());
    EXPECT_THAT(read[2], testing::IsNan());
    EXPECT_EQ(read[3], 4);
    EXPECT_EQ(openTiffImage(TiffFileDef(path, {1, false})).store->size(), (Adt::FixedVector<4, int>{2, 2, 1, 1}));
    EXPECT_EQ(tiffImages(path)[1], (TiffImage{TiffImage::Role::Overview, 2, 2, 1, "float32"}));
}

TEST_F(TiffFile, ShowsTilesThatAreNowhereAsMissing) {
    for (auto const& [type, missing, isKept] :
         {std::tuple("float32", std::optional(-9.), false), std::tuple("float32", std::optional<double>(), true),
          std::tuple("int16", std::optional(-9.), true), std::tuple("int16", std::optional<double>(), false)}) {
        std::filesystem::remove(path);
        TiffLayout layout;
        layout.shape = {32, 32};
        layout.tile = {16, 16};
        layout.sampleType = type;
        layout.missingValue = missing;
        createTiff(path, layout);
        auto const store = openTiffImage(TiffFileDef(path)).store;
        EXPECT_EQ(store->hasSamples(Box::OfSize({32, 32, 1, 1})), isKept) << type;
        std::vector<float> samples(1);
        store->read(Box::OfSize({1, 1, 1, 1}), samples.data());
        EXPECT_EQ(std::isnan(samples[0]), missing && layout.sampleType == "float32") << type;
    }
}

TEST_F(TiffFile, RecognisesPagesAndNamesOthers) {
    PlainArray<unsigned char> samples({4, 5, 1, 1});
    translate(samples, {1, 4, 5}, "-ot Byte");
    shell(
        "tiffcp a.tif a.tif a.tif pages.tif && gdal_translate -q -outsize 9 9 a.tif b.tif && tiffcp a.tif b.tif c.tif");
    auto const& openers = Adt::BulkView::Openers::standard();
    auto const pages = openers.sourceAt(folder / "pages.tif");
    EXPECT_TRUE(pages->equals(TiffFileDef(folder / "pages.tif")));
    EXPECT_TRUE(pages->equals(*Text::sourceFromText(Text::toText(*pages))));
    auto const data = openers.open(Adt::BulkDef::Entity::SourceEntityDef(*pages));
    EXPECT_EQ(data.chain->getSize(), (Adt::FixedVector<4, int>{3, 4, 5, 1}));
    EXPECT_EQ(data.info.axes[0].name, "page");
    auto const second = openers.sourceAt(folder / "c.tif", "1");
    EXPECT_EQ(
        openers.open(Adt::BulkDef::Entity::SourceEntityDef(*second)).chain->getSize(),
        (Adt::FixedVector<4, int>{9, 9, 1, 1}));
    EXPECT_EQ(openTiffImage(TiffFileDef(folder / "c.tif")).store->size(), (Adt::FixedVector<4, int>{4, 5, 1, 1}));
    EXPECT_THAT(
        [&] { openers.sourceAt(folder / "c.tif", "2"); },
        ThrowsMessage<std::runtime_error>(HasSubstr("no image 2; there are 0 to 1")));
    shell("gdal_translate -q -ot CInt16 a.tif b.tif");
    EXPECT_THAT(
        [&] { openTiffImage(TiffFileDef(folder / "b.tif")); },
        ThrowsMessage<std::runtime_error>(HasSubstr("has samples of format 5 and 32 bits")));
    EXPECT_THROW(tiffImages(folder / "none.tif"), std::system_error);
}

TEST_F(TiffFile, ReadsColoursAsLossyCodecsTellThem) {
    PlainArray<unsigned char> samples({3, 32, 48, 1});
    for (std::size_t k = 0; k < samples.samples().size(); ++k) {
        samples.samples()[k] = k < 1536 ? 200 : k < 3072 ? 30 : 90;
    }
    std::vector<unsigned char> read(samples.samples().size());
    for (char const* const codec : {"JPEG -co PHOTOMETRIC=YCBCR", "JPEG", "WEBP"}) {
        translate(
            samples, {3, 32, 48},
            "-co TILED=YES -co BLOCKXSIZE=16 -co BLOCKYSIZE=16 -co COMPRESS=" + std::string(codec));
        openTiffImage(TiffFileDef(path)).store->read(samples.box(), read.data());
        for (std::size_t k = 0; k < read.size(); ++k) {
            ASSERT_NEAR(read[k], samples.samples()[k], 4) << codec << " at " << k;
        }
        EXPECT_THAT(
            [&] {
                openTiffImage(TiffFileDef(path, {0, true}));
            },
            ThrowsMessage<std::runtime_error>(HasSubstr("compressed with loss")));
    }
}

// Cut off and spoilt at any place: one line of text, or samples.
TEST_F(TiffFile, SurvivesSpoiltFiles) {
    PlainArray<short> samples({2, 20, 30, 1});
    translate(
        samples, {2, 20, 30}, "-co COMPRESS=LZW -co TILED=YES -co BLOCKXSIZE=16 -co BLOCKYSIZE=16 -a_srs EPSG:4326");
    shell("gdaladdo -q a.tif 2");
    std::ifstream file(path, std::ios::binary);
    std::string const whole(std::istreambuf_iterator<char>(file), {});
    Adt::Testing::Random random;
    for (int round = 0; round < 500; ++round) {
        auto bytes = whole.substr(0, random.chance(20) ? random.between<std::size_t>(0, whole.size()) : whole.size());
        for (int spoilt = random.between(0, 3); spoilt > 0 && !bytes.empty(); --spoilt) {
            auto const last = random.chance(80) ? std::min<std::size_t>(bytes.size() - 1, 600) : bytes.size() - 1;
            bytes[random.between<std::size_t>(0, last)] = static_cast<char>(random.between(-128, 127));
        }
        std::ofstream(folder / "spoilt.tif", std::ios::binary) << bytes;
        try {
            auto const store = openTiffImage(TiffFileDef(folder / "spoilt.tif")).store;
            Box const box{{}, {1, std::min(store->size()[1], 20), std::min(store->size()[2], 30), 1}};
            std::vector<double> read(600);
            store->read(box, read.data());
        } catch (std::exception const& error) {
            EXPECT_THAT(error.what(), testing::Not(HasSubstr("\n")));
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Files
