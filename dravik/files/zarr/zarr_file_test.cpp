// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/zarr/zarr_file.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/testing/store_conformance.h"
#include "dravik/text/definition_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

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

class ZarrFile : public testing::Test {
  protected:
    ZarrFile() { std::filesystem::create_directories(folder); }
    ~ZarrFile() override { std::filesystem::remove_all(folder); }

    // Runs a script of the format's own library in the test's folder.
    void python(std::string const& script) const {
        std::ofstream(folder / "script.py") << "import zarr, numpy as np\nfrom numcodecs import Blosc, Zstd, Zlib\n"
                                            << script << std::endl;
        std::string const command = "cd " + folder.string() + " && /usr/bin/python3 script.py";
        ASSERT_EQ(std::system(command.c_str()), 0) << script;
    }

    void write(std::filesystem::path const& name, std::string const& text) const {
        std::filesystem::create_directories((folder / name).parent_path());
        std::ofstream(folder / name, std::ios::binary) << text;
    }

    template <class T>
    void conforms(std::string const& name, Adt::FixedVector<4, int> const& size) const {
        PlainArray<T> samples(size);
        for (int next = 0; T & sample : samples.samples()) {
            sample = static_cast<T>(next++ % 90);
        }
        for (bool const isWritable : {false, true}) {
            auto const open = [&] { return openZarrArray(ZarrFileDef(folder / "g", name, {isWritable})).store; };
            Adt::Testing::expectStoreConforms<T>({name, open, samples});
        }
    }

    std::filesystem::path const folder = std::filesystem::path(testing::TempDir()) / "zarr_file_test";
};

ZarrLayout layoutOf(std::vector<int> shape, std::vector<int> chunks, std::string type = "float32") {
    ZarrLayout layout;
    layout.shape = std::move(shape);
    layout.chunks = std::move(chunks);
    layout.sampleType = std::move(type);
    return layout;
}

template <class T>
std::vector<T> samplesOf(Adt::BulkView::IBrickStore const& store) {
    auto const box = Box::OfSize(store.size());
    std::vector<T> samples(static_cast<std::size_t>(box.pointCount()));
    store.read(box, samples.data());
    return samples;
}

TEST_F(ZarrFile, ConformsHoweverTheFormatsLibraryStores) {
    python(R"(
g = zarr.open_group("g", mode="w")
def make(name, dtype, shape, chunks, compressor, **options):
    a = g.create_dataset(name, shape=shape, chunks=chunks, dtype=dtype, compressor=compressor, **options)
    a[...] = (np.arange(np.prod(shape)) % 90).reshape(shape)
make("raw", ">i2", (7, 9, 15), (4, 9, 8), None)
make("in/blosc", "<f4", (7, 9, 15), (3, 9, 15), Blosc("zstd", 3, Blosc.BITSHUFFLE), order="F")
make("zstd", ">f8", (5, 6, 7, 8), (3, 6, 4, 8), Zstd(3), dimension_separator="/")
make("zlib", "|u1", (50, 30), (50, 8), Zlib(2), order="F")
)");
    conforms<short>("raw", {7, 9, 15, 1});
    conforms<float>("in/blosc", {7, 9, 15, 1});
    conforms<double>("zstd", {5, 6, 7, 8});
    conforms<unsigned char>("zlib", {50, 30, 1, 1});
    EXPECT_THAT(zarrArrays(folder / "g"), ElementsAre("in/blosc", "raw", "zlib", "zstd"));
    python(
        "g = zarr.open('g', mode='r')\n"
        "assert all(np.isfinite(a[...]).all() and a[...].max() <= 98 for a in (g['raw'], g['in/blosc'], g['zstd']))");
}

TEST_F(ZarrFile, MakesArraysThatTheFormatsLibraryReads) {
    using Compressor = ZarrLayout::Compressor;
    auto layout = layoutOf({5, 6, 7}, {2, 6, 4});
    layout.axisNames = {"z", "y", "x"};
    layout.unit = "m";
    std::string script = "g = zarr.open_group('made', mode='r')\nwanted = np.arange(210).reshape(5, 6, 7)\n";
    for (auto const& [compressor, id] :
         {std::pair(Compressor::None, "None"), std::pair(Compressor::Blosc, "'blosc'"),
          std::pair(Compressor::Zstd, "'zstd'"), std::pair(Compressor::Zlib, "'zlib'")}) {
        layout.array = "group/a" + std::to_string(static_cast<int>(compressor));
        layout.compressor = compressor;
        layout.order = compressor == Compressor::Zlib ? ZarrLayout::Order::F : ZarrLayout::Order::C;
        layout.byteOrder = compressor == Compressor::Zstd ? ZarrLayout::ByteOrder::Big : ZarrLayout::ByteOrder::Little;
        createZarr(folder / "made", layout);
        EXPECT_THROW(createZarr(folder / "made", layout), std::system_error);
        auto const store = openZarrArray(ZarrFileDef(folder / "made", layout.array, {true})).store;
        std::vector<float> samples(210);
        for (std::size_t k = 0; k < samples.size(); ++k) {
            samples[k] = static_cast<float>(k);
        }
        store->write(Box::OfSize({5, 6, 7, 1}), samples.data());
        store->flush();
        script += "a = g['" + layout.array +
                  "']\nassert (a[...] == wanted).all() and a.attrs['units'] == 'm', a.info\n" +
                  "assert (a.compressor.codec_id if a.compressor else None) == " + id + "\n";
    }
    python(script);
    layout.chunks.clear();
    layout.array = "large";
    layout.shape = {1000, 1000, 1000};
    createZarr(folder / "made", layout);
    auto const block = openZarrArray(ZarrFileDef(folder / "made", "large")).store->traits().naturalBlock;
    EXPECT_EQ(block, (Adt::FixedVector<4, int>{63, 63, 63, 1}));
}

TEST_F(ZarrFile, ShowsMissingChunksWithoutMemoryOrFilled) {
    python(R"(
g = zarr.open_group("g", mode="w")
for name, dtype, fill in (("nan", "f4", float("nan")), ("none", "i2", None), ("zero", "f4", 0), ("seven", ">i2", 7)):
    a = g.create_dataset(name, shape=(4, 5), chunks=(2, 5), dtype=dtype, fill_value=fill)
    a[2:] = 1
)");
    Box const missing{{0, 0, 0, 0}, {2, 5, 1, 1}}, all = Box::OfSize({4, 5, 1, 1});
    for (auto const& [name, isKept] :
         {std::pair("nan", false), std::pair("none", false), std::pair("zero", true), std::pair("seven", true)}) {
        auto const store = openZarrArray(ZarrFileDef(folder / "g", name)).store;
        EXPECT_EQ(store->hasSamples(missing), isKept) << name;
        EXPECT_TRUE(store->hasSamples(all)) << name;
    }
    auto const first = [&](char const* name) { return openZarrArray(ZarrFileDef(folder / "g", name)).store; };
    EXPECT_THAT(samplesOf<float>(*first("nan"))[0], testing::IsNan());
    EXPECT_EQ(samplesOf<float>(*first("zero"))[0], 0.f);
    EXPECT_EQ(samplesOf<short>(*first("none"))[0], 0);
    EXPECT_THAT(samplesOf<short>(*first("seven")), testing::Contains(7).Times(10));
    // A part of a missing chunk is written: the rest of it is the fill value.
    short const written = 3;
    openZarrArray(ZarrFileDef(folder / "g", "seven", {true})).store->write(Box::OfSize({1, 1, 1, 1}), &written);
    EXPECT_THAT(samplesOf<short>(*first("seven")), testing::Contains(7).Times(9));
}

TEST_F(ZarrFile, IsWrittenByManyProcessesAtOnce) {
    createZarr(folder / "many", layoutOf({64, 32, 32}, {4, 32, 32}, "int32"));
    std::vector<pid_t> children;
    for (int worker = 0; worker < 4; ++worker) {
        children.push_back(::fork());
        if (children.back() == 0) {
            auto const store = openZarrArray(ZarrFileDef(folder / "many", "", {true})).store;
            for (int begin = 4 * worker; begin < 64; begin += 16) {
                std::vector<int> const samples(4 * 32 * 32, begin);
                for (int round = 0; round < 20; ++round) {
                    store->write(Box{{begin, 0, 0, 0}, {begin + 4, 32, 32, 1}}, samples.data());
                }
            }
            ::_exit(0);
        }
    }
    for (pid_t const child : children) {
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    auto const samples = samplesOf<int>(*openZarrArray(ZarrFileDef(folder / "many")).store);
    for (std::size_t k = 0; k < samples.size(); ++k) {
        ASSERT_EQ(samples[k], static_cast<int>(k / 4096 * 4)) << k;
    }
    auto const files = std::distance(std::filesystem::directory_iterator(folder / "many"), {});
    EXPECT_EQ(files, 16 + 2) << "chunks, .zarray and .zattrs";
}

TEST_F(ZarrFile, RecognisesDirectoriesAndNamesOtherArrays) {
    python(R"(
g = zarr.open_group("g", mode="w")
a = g.create_dataset("depth", shape=(2, 3), dtype="i4"); a[...] = 5
a.attrs.update(_ARRAY_DIMENSIONS=["y", "x"], units="m", long_name="Tiefe", levels=[1, 2])
x = g.create_dataset("x", shape=(3,), dtype="f8"); x[...] = [1, 2, 4]; x.attrs.update(_ARRAY_DIMENSIONS=["x"], units="km")
zarr.consolidate_metadata("g")
)");
    auto const& openers = Adt::BulkView::Openers::standard();
    auto const source = openers.sourceAt(folder / "g");
    EXPECT_TRUE(source->equals(ZarrFileDef(folder / "g", "depth")));
    auto const info = openers.open(Adt::BulkDef::Entity::SourceEntityDef(*source)).info;
    EXPECT_EQ(info.axisCount, 2);
    EXPECT_EQ(info.axes[1], (Adt::BulkView::DataAxis{"x", "km", {1, 2, 4}}));
    EXPECT_EQ(info.valueUnit, "m");
    EXPECT_THAT(info.attributes, ElementsAre(testing::Pair("levels", "[1,2]"), testing::Pair("long_name", "Tiefe")));
    std::filesystem::remove(folder / "g/x/.zarray");  // the consolidated metadata know it still
    EXPECT_THAT(samplesOf<double>(*openZarrArray(ZarrFileDef(folder / "g", "x")).store), ElementsAre(1, 2, 4));
    EXPECT_THAT(
        [&] { openers.sourceAt(folder / "g", "depht"); },
        ThrowsMessage<std::runtime_error>(HasSubstr("no array \"depht\"; there are depth, x")));
    EXPECT_TRUE(openers.sourceAt(folder / "g/depth")->equals(ZarrFileDef(folder / "g/depth")));
}

TEST_F(ZarrFile, TellsInOneLineWhatCannotBeRead) {
    std::string const good = R"({"zarr_format":2,"shape":[4],"chunks":[2],"dtype":"<i2","order":"C","fill_value":0})";
    struct Row {
        std::string from, to, text;
    };
    for (Row const& row : {
             Row{"[4]", "[4, 0]", "shape has an axis of 0 samples"},
             Row{"[4]", "[4, 5]", "shape and chunks have 2 and 1 axes"},
             Row{"[4]", "[1,1,1,1,1]", "shape is no list of one to four numbers"},
             Row{"[2]", "[18446744073709551615]", "an axis of 18446744073709551615"},
             Row{"[2]", "[2147483647]", "chunks of 2 GiB"},
             Row{"<i2", "<U4", "samples of type \"<U4\""},
             Row{"\"<i2\"", "[[\"a\\n\",\"<i2\"]]", "samples of type [[\"a\\n\""},
             Row{"\"C\"", "\"C\",\"compressor\":{\"id\":\"lzma\"}", "none of blosc, zstd and zlib but \"lzma\""},
             Row{"\"C\"", "\"C\",\"filters\":[{\"id\":\"delta\"}]", "filters cannot be read"},
             Row{":0}", ":40000}", "fill_value is 40000"},
             Row{"t\":2", "t\":3", "is of Zarr version 3"},
             Row{"{", "{{", "is no JSON object"},
         }) {
        auto text = good;
        write("bad/.zarray", text.replace(text.find(row.from), row.from.size(), row.to));
        EXPECT_THAT(
            [&] { openZarrArray(ZarrFileDef(folder / "bad")); },
            ThrowsMessage<std::runtime_error>(HasSubstr(row.text)));
    }
    write("bad/.zarray", good);
    write("bad/1", "abc");
    EXPECT_THAT(
        [&] { samplesOf<short>(*openZarrArray(ZarrFileDef(folder / "bad")).store); },
        ThrowsMessage<std::runtime_error>(HasSubstr("bad/1: holds 3 bytes of samples in place of 4")));
    EXPECT_THROW(openZarrArray(ZarrFileDef(folder, "../zarr_file_test/bad")), std::invalid_argument);
    EXPECT_THROW(createZarr(folder / "new", layoutOf({4}, {4}, "bit")), std::invalid_argument);
    EXPECT_THROW(createZarr(folder / "new", layoutOf({4}, {2, 2})), std::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
}

// Cut off and spoilt at any place, metadata and chunk: one line of text, or samples.
TEST_F(ZarrFile, SurvivesSpoiltFiles) {
    Adt::Testing::Random random;
    for (auto const compressor : {ZarrLayout::Compressor::Blosc, ZarrLayout::Compressor::Zlib}) {
        auto const path = folder / std::to_string(static_cast<int>(compressor));
        auto layout = layoutOf({9, 40}, {9, 40});
        layout.compressor = compressor;
        layout.axisNames = {"a", "b"};
        createZarr(path, layout);
        std::vector<float> const samples(9 * 40, 1.f);
        openZarrArray(ZarrFileDef(path, "", {true})).store->write(Box::OfSize({9, 40, 1, 1}), samples.data());
        for (int round = 0; round < 300; ++round) {
            auto const name = path / random.oneOf({".zarray", ".zarray", ".zattrs", "0.0"});
            std::ifstream file(name, std::ios::binary);
            std::string const whole(std::istreambuf_iterator<char>(file), {});
            std::string bytes =
                whole.substr(0, random.chance(30) ? random.between<std::size_t>(0, whole.size()) : whole.size());
            for (int spoilt = random.between(0, 3); spoilt > 0 && !bytes.empty(); --spoilt) {
                auto const at = random.between<std::size_t>(0, bytes.size() - 1);
                bytes[at] = random.chance(50) ? static_cast<char>(random.between(32, 126))
                                              : static_cast<char>(random.between(-128, 127));
            }
            std::ofstream(name, std::ios::binary) << bytes;
            try {
                auto const store = openZarrArray(ZarrFileDef(path)).store;
                if (Box::OfSize(store->size()).pointCount() < 10000) {
                    std::vector<double> read(10000);
                    store->read(Box::OfSize(store->size()), read.data());
                }
            } catch (std::exception const& error) {
                EXPECT_THAT(error.what(), testing::Not(HasSubstr("\n")));
            }
            std::ofstream(name, std::ios::binary) << whole;
        }
    }
}

TEST_F(ZarrFile, ComesBackFromItsText) {
    ZarrFileDef const def("a\xFF/b", "c/d", {true});
    EXPECT_TRUE(def.equals(*Text::sourceFromText(Text::toText(def))));
    EXPECT_FALSE(def.equals(ZarrFileDef("a\xFF/b", "c/d")));
    EXPECT_EQ(def.getHashCode(), def.clone()->getHashCode());
}

}  // namespace
}  // namespace Quorvel::Dravik::Files
