// SPDX-License-Identifier: Apache-2.0
#include "netcdf_store.h"

#include "made_files.h"

#include <dravik/adt/testing/store_conformance.h>

#include <gtest/gtest.h>

#include <cmath>

namespace Relief {
namespace {

using Testing::Folder;
using Testing::MadeFile;

TEST(NetcdfStore, TakesTheScriptOfStores) {
    Folder const folder;
    Adt::Testing::Random random;
    for (Position const& size : {Position(9, 8, 1, 1), Position(5, 4, 6, 3)}) {
        Adt::Testing::PlainArray<float> samples(size);
        samples.fill(random, 98);
        {
            MadeFile file(folder.file("array.nc"));
            file.write(file.addVariable("v", NC_SHORT, {size.begin(), size.end()}), samples.samples());
        }
        auto const open = [&] { return std::make_shared<NetcdfStore>(folder.file("array.nc"), "v"); };
        Adt::Testing::expectStoreConforms<float>({"a file", open, samples});
    }
}

TEST(NetcdfStore, UnpacksAndMarksWhatIsMissing) {
    Folder const folder;
    {
        MadeFile file(folder.file("packed.nc"));
        file.addVariable("small", NC_FLOAT, {1, 2});
        int const packed = file.addVariable("packed", NC_SHORT, {2, 3});
        file.addNumber(packed, "scale_factor", NC_FLOAT, 0.5f);
        file.addNumber(packed, "add_offset", NC_FLOAT, 100);
        file.addNumber(packed, "missing_value", NC_SHORT, -9);
        file.addText(packed, "units", "m");
        file.addCoordinates("packed_0", {10, 20});
        file.addCoordinates("packed_1", {3, 2, 1});
        file.addVariable("text", NC_CHAR, {90, 90});
        file.write(packed, {0, 1, -9, NC_FILL_SHORT, 4, -5});
    }
    NetcdfStore const store(folder.file("packed.nc"));
    EXPECT_EQ(store.variable(), "packed") << "the largest one of two axes that holds numbers";
    EXPECT_EQ(store.unit(), "m");
    EXPECT_TRUE(store.risesAlong(0));
    EXPECT_FALSE(store.risesAlong(1));
    float samples[6];
    store.read(Box::OfSize(store.size()), samples);
    EXPECT_EQ(samples[0], 100.0f);
    EXPECT_EQ(samples[1], 100.5f);
    EXPECT_TRUE(std::isnan(samples[2])) << "the file's own mark and the format's";
    EXPECT_TRUE(std::isnan(samples[3])) << "the file's own mark and the format's";
    EXPECT_EQ(samples[5], 97.5f);
}

}  // namespace
}  // namespace Relief
