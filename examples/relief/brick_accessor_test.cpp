// SPDX-License-Identifier: Apache-2.0
#include "brick_accessor.h"

#include "counting_filter.h"
#include "made_files.h"
#include "netcdf_source.h"

#include <dravik/adt/exceptions/simple_exception.h>
#include <dravik/adt/testing/conformance.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace Relief {
namespace {

using BulkView::AdtEnums;
using BulkView::BufferHandle;
using Testing::Folder;
using Testing::MadeFile;

// 3 x 5 x 4 samples: 0, 1, 2 ... in the order of memory.
std::shared_ptr<NetcdfSource> smallVolume(Folder const& folder) {
    std::vector<float> values(60);
    std::iota(values.begin(), values.end(), 0.0f);
    {
        MadeFile file(folder.file("volume.nc"));
        file.write(file.addVariable("v", NC_FLOAT, {3, 5, 4}), values);
    }
    return std::make_shared<NetcdfSource>(folder.file("volume.nc"), "v");
}

TEST(BrickAccessor, ConformsOverAFileWhateverTheBrickAndUnderAFilter) {
    Folder const folder;
    for (Position const& brick :
         {Position(1, 1, 1, 1), Position(2, 3, 4, 1), Position(9, 8, 11, 3), Position(INT_MAX, 2, 3, INT_MAX)}) {
        Adt::Testing::Subject<float> bricks;
        bricks.name = "counted bricks of a file";
        bricks.writes = Adt::Testing::Writes::kRefused;
        bricks.make = [&](Adt::Testing::PlainArray<float> const& shown) {
            auto const& size = shown.size();
            {
                MadeFile file(folder.file("array.nc"));
                int const variable = file.addVariable("v", NC_SHORT, {size.begin(), size.end()});
                file.write(variable, shown.samples());
            }
            auto source = std::make_shared<NetcdfSource>(folder.file("array.nc"), "v");
            return std::make_unique<CountingFilter>(
                std::make_unique<BrickAccessor>(std::move(source), brick), std::make_shared<CountingFilter::Count>(0));
        };
        Adt::Testing::expectConforms(bricks);
    }
}

TEST(BrickAccessor, LendsTheCutOffBrickAroundAPositionAndCountsIt) {
    Folder const folder;
    auto const traffic = std::make_shared<Traffic>();
    BrickAccessor accessor(smallVolume(folder), Position(2, 2, 3, 1), traffic);
    BufferHandle handle;
    accessor.getBuffer(Position(2, 4, 3, 0), AdtEnums::Read, handle);
    EXPECT_EQ(handle.range4(), (Box{Position(2, 4, 3, 0), Position(3, 5, 4, 1)}));
    accessor.getBuffer(Position(1, 2, 2, 0), AdtEnums::Read, handle);
    EXPECT_EQ(handle.range4(), (Box{Position(0, 2, 0, 0), Position(2, 4, 3, 1)}));
    EXPECT_EQ(handle.access(), AdtEnums::Read);
    EXPECT_EQ(traffic->requests, 2);
    EXPECT_EQ(traffic->samples, 1 + 12);
}

TEST(BrickAccessor, RefusalsLeaveTheHandleAsItWas) {
    Folder const folder;
    BrickAccessor accessor(smallVolume(folder), Position::Filled(4));
    BufferHandle handle;
    accessor.getBuffer(Position(), AdtEnums::Read, handle);
    auto* const buffer = handle.buffer();
    for (auto const access : {AdtEnums::Write, AdtEnums::ReadWrite, AdtEnums::Populate}) {
        EXPECT_THROW(accessor.getBuffer(Position(), access, handle), Adt::Exceptions::NotSupportedException) << access;
    }
    for (Position const& outside : {Position(3, 0, 0, 0), Position(0, -1, 0, 0), Position(0, 0, 0, 1)}) {
        EXPECT_THROW(accessor.getBuffer(outside, AdtEnums::Read, handle), std::out_of_range) << outside;
    }
    auto const clone = accessor.createClone();
    accessor.dispose(true);
    EXPECT_THROW(accessor.getSize(), Adt::Exceptions::ObjectDisposedException);
    EXPECT_THROW(accessor.getBuffer(Position(), AdtEnums::Read, handle), Adt::Exceptions::ObjectDisposedException);
    EXPECT_EQ(handle.buffer(), buffer);
    EXPECT_EQ(clone->getSize(), Position(3, 5, 4, 1)) << "a clone has a hold of its own on the source";
    EXPECT_THROW(BrickAccessor(nullptr, Position::Filled(1)), std::invalid_argument);
    EXPECT_THROW(BrickAccessor(smallVolume(folder), Position(4, 0, 4, 1)), std::invalid_argument);
}

TEST(NetcdfSource, UnpacksAndMarksWhatIsMissing) {
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
    NetcdfSource const source(folder.file("packed.nc"));
    EXPECT_EQ(source.variable(), "packed") << "the largest one of two axes that holds numbers";
    EXPECT_EQ(source.unit(), "m");
    EXPECT_TRUE(source.risesAlong(0) && !source.risesAlong(1));
    float samples[6];
    source.read(Box::OfSize(source.size()), samples);
    EXPECT_EQ(samples[0], 100.0f);
    EXPECT_EQ(samples[1], 100.5f);
    EXPECT_TRUE(std::isnan(samples[2]) && std::isnan(samples[3])) << "the file's own mark and the format's";
    EXPECT_EQ(samples[5], 97.5f);
}

}  // namespace
}  // namespace Relief
