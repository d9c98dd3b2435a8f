// SPDX-License-Identifier: Apache-2.0
// Calls on regions while the accessor, helpers or memory fail: nothing leaks, and the same call works
// again.

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/regions/for_each_block.h"
#include "dravik/adt/bulkview/regions/gather.h"
#include "dravik/adt/bulkview/regions/lent_blocks.h"
#include "dravik/adt/bulkview/regions/padding.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/regions/region_histogram.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::Fails;
using Box = OpenEndedRange<4, int>;
using Region = ExtentK<4, int>;

// Bricks of a host that may fail at every turn, and the same samples in memory that helpers may share.
struct Scene {
    Scene() {
        std::iota(data.samples().begin(), data.samples().end(), 0.0f);
        bricks = std::make_unique<Testing::BrickAccessor<float>>(data, Testing::BrickOptions{.readsLate = true});
        std::copy(data.samples().begin(), data.samples().end(), reinterpret_cast<float*>(shared.data()));
        options.workers = 3;
        options.executor = [](std::function<void()> const& task) { std::thread(task).join(); };
    }
    void expectRead() {
        for (int at = 0; at < array.range().pointCount(); ++at) {
            EXPECT_EQ(reinterpret_cast<float const*>(array.data())[at], data.samples()[static_cast<std::size_t>(at)]);
        }
    }

    Testing::PlainArray<float> data{{5, 4, 6, 1}};
    std::unique_ptr<Testing::BrickAccessor<float>> bricks;
    SharedArray<4> shared = SharedArray<4>::Make<float>(data.box()), array = SharedArray<4>::Make<float>(data.box());
    Accessors::MemoryAccessor memory{shared}, target{array};
    TransferOptions options;
    Region whole{data.box()};
};

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"reading", Fails::kBoth, [](Scene& s) { readRegion(*s.bricks, s.whole, s.array), s.expectRead(); }},
    {"writing", Fails::kBoth,
     [](Scene& s) {
         writeRegion(*s.bricks, s.whole, s.shared);
         readRegion(*s.bricks, s.whole, s.array);
         s.expectRead();
     }},
    {"copying", Fails::kBoth, [](Scene& s) { copyRegion(*s.bricks, s.target), s.expectRead(); }},
    {"padding", Fails::kBoth,
     [](Scene& s) { readPadded(*s.bricks, s.whole, s.array, Boundary::Wrap), s.expectRead(); }},
    {"gathering", Fails::kBoth,
     [](Scene& s) {
         FixedVector<4, int> const last = s.data.box().max - FixedVector<4, int>::Filled(1);
         std::array const indices{last};
         ArrayRef<1> const one({{}, FixedVector<1, int>(1)}, {}, s.array.data(), 0, typeid(float), 32);
         gatherSamples(*s.bricks, indices, one);
         EXPECT_EQ(*reinterpret_cast<float const*>(s.array.data()), s.data.at(last));
     }},
    {"lending", Fails::kBoth,
     [](Scene& s) {
         std::int64_t count = 0;
         for (auto const& block : LentBlocks(*s.bricks, s.data.box(), typeid(float), 32)) {
             count += block.box.pointCount();
         }
         EXPECT_EQ(count, s.data.box().pointCount());
     }},
    {"reading by helpers", Fails::kAllocations,
     [](Scene& s) { readRegion(s.memory, s.whole, s.array, s.options), s.expectRead(); }},
    {"copying by helpers", Fails::kAllocations,
     [](Scene& s) { copyRegion(s.memory, s.target, s.options), s.expectRead(); }},
    {"counting by helpers", Fails::kAllocations,
     [](Scene& s) {
         Histogram histogram(Histogram::fixed, 0, 200, 4);
         addRegion(histogram, s.memory, s.whole, s.options);
         EXPECT_EQ(histogram.nofSamples(), s.data.box().pointCount());
     }},
};

TEST(Regions, SurviveEveryFailure) {
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
