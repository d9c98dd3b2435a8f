// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/hdf5/hdf5_file.h"

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
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

class Hdf5File : public testing::Test {
  protected:
    Hdf5File() { std::filesystem::create_directories(folder); }
    ~Hdf5File() override { std::filesystem::remove_all(folder); }

    // Runs a script of a foreign library in the test's folder; `f` is the file.
    void python(std::string const& script) const {
        std::ofstream(folder / "script.py")
            << "import h5py, numpy as np\nwith h5py.File('a.h5', 'w', libver='earliest') as f:\n"
            << script << std::endl;
        std::string const command = "cd " + folder.string() + " && /usr/bin/python3 script.py";
        ASSERT_EQ(std::system(command.c_str()), 0) << script;
    }

    template <class T>
    void conforms(std::string const& name, Adt::FixedVector<4, int> const& size) const {
        PlainArray<T> samples(size);
        for (int next = 0; T & sample : samples.samples()) {
            sample = static_cast<T>(next++ % 90);
        }
        for (bool const isWritable : {false, true}) {
            auto const open = [&] { return openHdf5DataSet({path, name, {false, isWritable}}).store; };
            Adt::Testing::expectStoreConforms<T>({name, open, samples});
        }
    }

    std::filesystem::path const folder = std::filesystem::path(testing::TempDir()) / "hdf5_file_test";
    std::filesystem::path const path = folder / "a.h5";
};

TEST_F(Hdf5File, ConformsHoweverItIsStored) {
    python(R"(
    def make(name, dtype, shape, **options):
        f.create_dataset(name, data=(np.arange(np.prod(shape)) % 90).reshape(shape).astype(dtype), **options)
    make("whole", ">i2", (7, 9, 15))
    make("group/gzip", "<f4", (7, 9, 15), chunks=(4, 9, 8), compression="gzip", shuffle=True, fletcher32=True)
    make("group/double", ">f8", (5, 6, 7, 8), chunks=(3, 6, 4, 8))
    f["text"] = "no numbers"
)");
    conforms<short>("whole", {7, 9, 15, 1});
    conforms<float>("group/gzip", {7, 9, 15, 1});
    conforms<double>("group/double", {5, 6, 7, 8});
    EXPECT_THAT(hdf5DataSets(path), ElementsAre("group/double", "group/gzip", "whole"));
}

TEST_F(Hdf5File, UnpacksAndTellsWhatItKnows) {
    python(R"(
    d = f.create_dataset("t", data=np.array([0, 1, -9], "i2"), chunks=(2,))
    d.attrs.update(scale_factor=0.5, add_offset=10.0, units="K", long_name=np.bytes_("temperature"), levels=[1, 2])
    d.attrs["_FillValue"] = np.int16(-9)
)");
    Box const all = Box::OfSize({3, 1, 1, 1});
    auto const opened = openHdf5DataSet({path, "t"});
    EXPECT_EQ(*opened.store->traits().sampleType, typeid(float));
    std::vector<float> samples(3);
    opened.store->read(all, samples.data());
    EXPECT_THAT(samples, ElementsAre(10, 10.5f, testing::IsNan()));
    EXPECT_EQ(opened.info.valueUnit, "K");
    EXPECT_THAT(
        opened.info.attributes, ElementsAre(testing::Pair("levels", "1 2"), testing::Pair("long_name", "temperature")));
    EXPECT_EQ(openHdf5DataSet({path, "t", {true, false}}).info.missingValue, -9.0);
}

TEST_F(Hdf5File, TellsTheScalesOfAxes) {
    python(R"(
    d = f.create_dataset("g/v", data=np.zeros((2, 3, 4), "f4"))
    f["g/depth"] = np.array([5, 7], ">i2"); f["g/depth"].make_scale(); f["g/depth"].attrs.update(units="m", scale_factor=2.0)
    f["x"] = np.array([1.5, 2.5, 3.5, 4.5]); f["x"].make_scale("longitude")
    d.dims[0].attach_scale(f["g/depth"]); d.dims[2].attach_scale(f["x"]);
    w = f.create_dataset("g/w", data=np.zeros((2, 3))); f["g/row"] = np.arange(3); f["g/row"].make_scale()
    w.dims[1].attach_scale(f["g/row"])
    long = f.create_dataset("long", data=np.zeros(99)); long.make_scale("long")
)");
    auto const info = openHdf5DataSet({path, "g/v"}).info;
    EXPECT_EQ(info.axes[0], (Adt::BulkView::DataAxis{"depth", "m", {10, 14}}));
    EXPECT_EQ(info.axes[1], (Adt::BulkView::DataAxis{}));
    EXPECT_EQ(info.axes[2], (Adt::BulkView::DataAxis{"x", "", {1.5, 2.5, 3.5, 4.5}}));
    EXPECT_THAT(info.attributes, testing::IsEmpty());
    EXPECT_EQ(openHdf5DataSet({path, "g/depth"}).info.axes[0], info.axes[0]);
    EXPECT_TRUE(Adt::BulkView::Openers::standard().sourceAt(path)->equals(Hdf5FileDef(path, "g/v")));
}

TEST_F(Hdf5File, MakesFilesThatForeignToolsRead) {
    Hdf5Layout layout;
    layout.dataSet = "group/depth";
    layout.shape = {3, 4};
    layout.sampleType = "int32";
    layout.chunks = {2, 4};
    layout.deflateLevel = 5;
    layout.unit = "m";
    layout.missingValue = -1;
    createHdf5(path, layout);
    EXPECT_THROW(createHdf5(path, layout), std::system_error);
    auto store = openHdf5DataSet({path, "group/depth", {true, true}}).store;
    EXPECT_EQ(store->traits().naturalBlock, (Adt::FixedVector<4, int>{2, 4, 1, 1}));
    int const written[] = {1, 2, 3, 4, 5, 6, 7, 8};
    store->write(Box::OfSize({2, 4, 1, 1}), written);
    store->flush();
    store.reset();
    auto const dump = folder / "dump.txt";
    ASSERT_EQ(std::system(("h5dump -p " + path.string() + " > " + dump.string()).c_str()), 0);
    std::ifstream file(dump);
    std::string const text(std::istreambuf_iterator<char>(file), {});
    for (char const* const part :
         {"CHUNKED ( 2, 4 )", "DEFLATE { LEVEL 5 }", "(1,0): 5, 6, 7, 8,", "(2,0): -1, -1, -1, -1", "\"m\""}) {
        EXPECT_THAT(text, HasSubstr(part));
    }
    layout.chunks = {2};
    EXPECT_THROW(createHdf5(folder / "none.h5", layout), std::invalid_argument);
}

TEST_F(Hdf5File, RecognisesItsFilesAndNamesOthers) {
    python("    f['small'] = np.zeros(3); f['a/main'] = np.zeros((2, 3)); f['label'] = 'text'; f['u8'] = np.zeros(9, "
           "'u8')\n");
    auto const& openers = Adt::BulkView::Openers::standard();
    auto const source = openers.sourceAt(path);
    EXPECT_TRUE(source->equals(Hdf5FileDef(path, "a/main")));
    EXPECT_TRUE(source->equals(*Text::sourceFromText(Text::toText(*source))));
    auto const data = openers.open(Adt::BulkDef::Entity::SourceEntityDef(*source));
    EXPECT_EQ(data.chain->getSize(), (Adt::FixedVector<4, int>{2, 3, 1, 1}));
    struct Row {
        char const *dataSet, *text;
    };
    for (Row const& row :
         {Row{"mian", "no data set \"mian\"; there are a/main, small"},
          Row{"u8", "has samples of type uint64; int8 to int64"}}) {
        EXPECT_THAT(
            [&] { openers.sourceAt(path, row.dataSet); }, ThrowsMessage<std::runtime_error>(HasSubstr(row.text)));
    }
    std::ofstream(folder / "none.txt") << "no HDF5";
    EXPECT_THAT([&] { hdf5DataSets(folder / "none.txt"); }, ThrowsMessage<std::runtime_error>(HasSubstr("signature")));
    EXPECT_THROW(hdf5DataSets(folder / "none"), std::system_error);
}

// Cut off and spoilt at every place: one line of text, or the samples.
TEST_F(Hdf5File, SurvivesSpoiltFiles) {
    python("    f.create_dataset('v', data=np.arange(40, dtype='f4'), chunks=(16,), compression='gzip')\n"
           "    f['x'] = np.arange(40); f['x'].make_scale(); f['v'].dims[0].attach_scale(f['x'])\n");
    std::ifstream file(path, std::ios::binary);
    std::string const whole(std::istreambuf_iterator<char>(file), {});
    Adt::Testing::Random random;
    for (int round = 0; round < 300; ++round) {
        auto bytes = whole.substr(0, random.chance(30) ? random.between<std::size_t>(0, whole.size()) : whole.size());
        for (int spoilt = random.between(0, 3); spoilt > 0 && !bytes.empty(); --spoilt) {
            bytes[random.between<std::size_t>(0, bytes.size() - 1)] = static_cast<char>(random.between(-128, 127));
        }
        std::ofstream(folder / "spoilt.h5", std::ios::binary) << bytes;
        try {
            auto const store = openHdf5DataSet({folder / "spoilt.h5", "v"}).store;
            if (Box::OfSize(store->size()).pointCount() < 1000) {
                std::vector<double> samples(1000);
                store->read(Box::OfSize(store->size()), samples.data());
            }
        } catch (std::exception const& error) {
            EXPECT_THAT(error.what(), testing::Not(HasSubstr("\n")));
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Files
