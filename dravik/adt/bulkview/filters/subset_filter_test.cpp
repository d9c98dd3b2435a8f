// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/subset_extent_filter.h"
#include "dravik/adt/bulkview/filters/subset_range_filter.h"

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Testing::Journal;
using Testing::PlainArray;
using Testing::RecordingAccessor;
using testing::ThrowsMessage;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Extent1 = ExtentImpl<int>;
using Extent4 = ExtentK<4, int>;
using Range4 = OpenEndedRange<4, int>;

Extent4 extentOf(Extent1 a, Extent1 b = {0, 1, 1}, Extent1 c = {0, 1, 1}, Extent1 d = {0, 1, 1}) {
    return {a, b, c, d};
}

Accessor bottom(FixedVector<4, int> size, Journal const& journal = {}) {
    return std::make_unique<RecordingAccessor>("a", journal, size);
}

TEST(MakeSubset, RefusesWhatDoesNotFit) {
    constexpr Extent1 kWhole{0, 1, 10};
    constexpr char const* kEmpty = "subset is empty.";
    constexpr char const* kOutside = "subset exceeds size of target accessor.";
    struct Row {
        char const* name;
        Extent4 extent;
        std::string reason, numbers;
    };
    Row const rows[] = {
        {"NegativeCount", extentOf(kWhole, kWhole, {0, 1, -3}), kEmpty, "0:1:-3 on axis 2 of size 10."},
        {"EmptyComesFirst", extentOf({-1, 1, 99}, kWhole, {0, 1, 0}), kEmpty, "0:1:0 on axis 2 of size 10."},
        {"BelowZero", extentOf({-1, 1, 2}), kOutside, "-1:1:2 on axis 0 of size 10."},
        {"BackwardsBelowZero", extentOf({4, -3, 3}), kOutside, "4:-3:3 on axis 0 of size 10."},
        {"OnePastTheEnd", extentOf(kWhole, {1, 1, 10}), kOutside, "1:1:10 on axis 1 of size 10."},
        {"OriginPastTheEnd", extentOf({10, -1, 2}), kOutside, "10:-1:2 on axis 0 of size 10."},
        {"FourthAxis", extentOf(kWhole, kWhole, kWhole, {0, 1, 2}), kOutside, "0:1:2 on axis 3 of size 1."},
        {"LastIndexWraps", extentOf({0, 1 << 30, 5}), kOutside, "0:1073741824:5 on axis 0 of size 10."},
        {"RepeatsAnIndex", extentOf({3, 0, 2}), "subset has a step of zero.", "3:0:2 on axis 0 of size 10."},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(
            [&] {
                SubsetFilter::MakeSubset(bottom({10, 10, 10, 1}), row.extent);
            },
            ThrowsMessage<std::invalid_argument>(
                "[SubsetFilter::MakeSubset] Invalid argument: " + row.reason + " Extent " + row.numbers))
            << row.name;
    }
    EXPECT_THAT(
        [] { SubsetFilter::MakeSubset(nullptr, Extent4()); },
        ThrowsMessage<std::invalid_argument>("[SubsetFilter::MakeSubset] Invalid argument: target is null."));
}

// Of a target of 10 x 7 samples, or of `inner` of it.
TEST(MakeSubset, MakesTheCheapestFilterThatDoes) {
    struct Row {
        char const* name;
        Extent4 inner, outer, made;
        bool isTarget, isRange;
    };
    Extent1 const ten{0, 1, 10}, seven{0, 1, 7};
    Extent4 const whole = extentOf(ten, seven);
    Extent4 const reversed = extentOf({9, -1, 10}, seven);
    Row const rows[] = {
        {"Whole", whole, whole, {}, true, false},
        {"Shorter", whole, extentOf({0, 1, 9}, seven), extentOf({0, 1, 9}, seven), false, true},
        {"Shifted", whole, extentOf(ten, {1, 1, 6}), extentOf(ten, {1, 1, 6}), false, true},
        {"Reversed", whole, reversed, reversed, false, false},
        {"StepOfOneIndexCounts", whole, extentOf(ten, seven, {0, 5, 1}), extentOf(ten, seven, {0, 5, 1}), false, false},
        {"StepZeroOfOneIndex", whole, extentOf({5, 0, 1}, seven), extentOf({5, 0, 1}, seven), false, false},
        {"StepsMultiply", extentOf({1, 2, 5}), extentOf({4, -3, 2}), extentOf({9, -6, 2}), false, false},
        {"ReversedTwice", reversed, reversed, {}, true, false},
        {"AllOfAPart", extentOf({2, 1, 5}), extentOf({0, 1, 5}), extentOf({2, 1, 5}), false, true},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        Journal const journal;
        auto target = bottom({10, 7, 1, 1}, journal);
        auto const* const self = target.get();
        auto subset = SubsetFilter::MakeSubset(std::move(target), row.inner);
        subset = SubsetFilter::MakeSubset(std::move(subset), row.outer);
        EXPECT_THAT(journal.take(), testing::Each("a.getSize")) << "nothing is destroyed, nothing cloned";
        EXPECT_EQ(subset.get() == self, row.isTarget);
        EXPECT_EQ(dynamic_cast<SubsetRangeFilter*>(subset.get()) != nullptr, row.isRange);
        if (!row.isTarget) {
            EXPECT_EQ(dynamic_cast<SubsetFilter&>(*subset).getSubset(), row.made);
            EXPECT_EQ(subset->getSize()[0], row.made[0].count);
        }
    }
}

/// What the filter makes of `block` lent by its target.
template <class Filter, class Subset>
BufferHandle lentThrough(Subset const& subset, BufferHandle::ArrayInfo const& block) {
    auto target = std::make_unique<RecordingAccessor>("a", Journal());
    target->setBlock(block);
    BufferHandle handle;
    Filter(std::move(target), subset).getBuffer({}, AdtEnums::Read, handle);
    return handle;
}

TEST(SubsetFilters, RelabelABlockLiterally) {
    struct Row {
        char const* name;
        Extent1 extent;
        int low, high;
        int min, max, offset, stride;
    };
    // A block along axis 0 with stride 100 whose first sample lies at 7.
    Row const rows[] = {
        {"Decimated", {3, 2, 50}, 10, 20, 4, 9, 107, 200},
        {"Reversed", {30, -2, 50}, 10, 20, 6, 11, 807, -200},
        {"ClippedAtBothEnds", {12, 1, 3}, 10, 20, 0, 3, 207, 100},
        {"ApartStillMovesItsOffset", {12, 3, 3}, 0, 4, 0, 0, 1207, 300},
        {"BetweenItsIndices", {12, 3, 3}, 13, 15, 0, 0, -93, 300},
        {"StepZero", {12, 0, 1}, 10, 20, 0, 1, 207, 0},
        {"EmptiedByAnInvalidation", {12, 3, 3}, INT_MAX, 0, 0, 0, INT_MIN, 300},
    };
    for (Row const& row : rows) {
        auto const handle = lentThrough<SubsetExtentFilter>(
            extentOf(row.extent), {Range4{{row.low, 0, 0, 0}, {row.high, 1, 1, 1}}, {100, 0, 0, 0}, 7});
        BufferHandle::ArrayInfo const expected{
            Range4{{row.min, 0, 0, 0}, {row.max, 1, 1, 1}}, {row.stride, 0, 0, 0}, row.offset};
        EXPECT_EQ(handle.info(), expected) << row.name;
    }
    BufferHandle::ArrayInfo volume{Range4{{0, 0, 0, 0}, {1000, 1, 1, 1}}, {6'000'000, 0, 0, 0}, 0};
    auto const farAway = Range4{{400, 0, 0, 0}, {500, 1, 1, 1}};
    auto const isTooFar = [](std::string const& samples) {
        return ThrowsMessage<std::length_error>(
            "[SubsetFilter::getBuffer] The subset lies too far into the lent block: " + samples +
            " samples, at most 2147483647. Let the target lend smaller blocks.");
    };
    auto const extent = [&](Extent1 const& axis) { lentThrough<SubsetExtentFilter>(extentOf(axis), volume); };
    EXPECT_THAT([&] { lentThrough<SubsetRangeFilter>(farAway, volume); }, isTooFar("an offset of 2400000000"));
    EXPECT_THAT([&] { extent({0, 400, 2}); }, isTooFar("a stride of 2400000000"));
    EXPECT_THAT([&] { extent({999, -400, 2}); }, isTooFar("a stride of -2400000000"));
    volume.range = {{300, 0, 0, 0}, {500, 1, 1, 1}};
    EXPECT_EQ(lentThrough<SubsetExtentFilter>(extentOf({0, 400, 3}), volume).info().offset, 600'000'000)
        << "the step of a single index reaches nowhere";
}

TEST(SubsetFilters, CutHintsAtTheLargestIndex) {
    Range4 const box{{5, 0, 0, 0}, {9, 1, 1, 1}};
    Journal const journal;
    Accessor const subsets[] = {
        std::make_unique<SubsetRangeFilter>(bottom({10, 1, 1, 1}, journal), box),
        std::make_unique<SubsetExtentFilter>(bottom({10, 1, 1, 1}, journal), Extent4(box))};
    for (Accessor const& subset : subsets) {
        subset->setHint(IBufferAccessor::Prefetch, {{2, 0, 0, 0}, {INT_MAX, 1, 1, 1}}, 1);
        EXPECT_THAT(journal.take(), testing::ElementsAre("a.setHint(0 [7,2147483647)x[0,1)x[0,1)x[0,1) 1)"));
    }
}

// Over bricks that divide neither the target nor the subset and stand across the subset's ends: what is shown stands
// along `steps`, a few samples away from the ends of a larger array; either right there, or in the array reversed.
Accessor embedded(PlainArray<float> const& shown, FixedVector<4, int> const& steps, bool inReversed) {
    Extent4 extent, reversal;
    FixedVector<4, int> size;
    for (int axis = 0; axis < 4; ++axis) {
        int const count = shown.size()[axis];
        int const length = (count - 1) * std::abs(steps[axis]);
        extent[axis] = {2 + (steps[axis] < 0 ? length : 0), steps[axis], count};
        size[axis] = 2 + length + 1 + axis;
        reversal[axis] = {size[axis] - 1, -1, size[axis]};
    }
    PlainArray<float> whole(size);
    std::fill(whole.samples().begin(), whole.samples().end(), -1.0f);
    Testing::forEachIndex(shown.box(), [&](FixedVector<4, int> const& p) {
        FixedVector<4, int> place;
        for (int axis = 0; axis < 4; ++axis) {
            place[axis] = extent[axis].origin + p[axis] * extent[axis].step;
        }
        whole.at(place) = shown.at(p);
        return true;
    });
    if (!inReversed) {
        auto bricks = std::make_unique<Testing::BrickAccessor<float>>(
            whole, Testing::BrickOptions{.fastestAxis = 0, .padding = 3, .backwards = true});
        return FilterFactory::MakeView(std::move(bricks), BulkDef::View::ArraySubsetDef<4>(extent));
    }
    for (int axis = 0; axis < 4; ++axis) {
        extent[axis] = {size[axis] - 1 - extent[axis].origin, -extent[axis].step, extent[axis].count};
    }
    auto bricks = std::make_unique<Testing::BrickAccessor<float>>(whole, Testing::BrickOptions{.invalidatesEvery = 3});
    return std::make_unique<SubsetExtentFilter>(
        std::make_unique<SubsetExtentFilter>(std::move(bricks), reversal), extent);
}

TEST(SubsetFilters, ConformOverBricksWithEveryStep) {
    Testing::Random random;
    int const steps[] = {-3, -2, -1, 1, 2, 3};
    for (int const i : steps) {
        for (int const j : steps) {
            for (int const k : steps) {
                bool const isEven = i == j && j == k;
                bool const inReversed = !isEven && random.chance(50);
                FixedVector<4, int> const step(i, j, k, isEven ? i : random.oneOf({-2, -1, 1, 2}));
                Testing::Subject<float> const subject{
                    (std::ostringstream() << "steps " << step << (inReversed ? " in the array reversed" : "")).str(),
                    [&](PlainArray<float> const& shown) { return embedded(shown, step, inReversed); }};
                Testing::expectConforms(subject);
            }
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
