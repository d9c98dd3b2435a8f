#include "dravik/adt/bulkview/filters/subset_extent_filter.h"
#include "dravik/adt/bulkview/filters/subset_range_filter.h"

#include "dravik/adt/testing/random.h"
#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using testing::ElementsAre;
using Testing::Journal;
using Testing::Random;
using Testing::RecordingAccessor;
using Testing::RecordingClient;
using Extent1 = ExtentImpl<int>;
using Extent4 = ExtentK<4, int>;
using Range4 = OpenEndedRange<4, int>;

Extent4 extentOf(Extent1 a, Extent1 b = {0, 1, 1}, Extent1 c = {0, 1, 1}, Extent1 d = {0, 1, 1}) {
    return {a, b, c, d};
}

std::unique_ptr<IBufferAccessor> bottom(FixedVector<4, int> size, Journal const& journal = {}) {
    return std::make_unique<RecordingAccessor>("a", journal, size);
}

Extent4 subsetOf(IBufferAccessor const& accessor) {
    auto const* const filter = dynamic_cast<SubsetFilter const*>(&accessor);
    return filter == nullptr ? Extent4() : filter->getSubset();
}

TEST(MakeSubset, RefusesWhatDoesNotFit) {
    struct Row {
        char const* name;
        Extent4 extent;
        char const* reason;
    };
    auto const whole = Extent1{0, 1, 10};
    Row const rows[] = {
        {"Empty", extentOf(whole, whole, {0, 1, 0}), "subset is empty."},
        {"NegativeCount", extentOf(whole, whole, {0, 1, -3}), "subset is empty."},
        {"EmptyComesBeforeOutside", extentOf({-1, 1, 99}, whole, {0, 1, 0}), "subset is empty."},
        {"BelowZero", extentOf({-1, 1, 2}), "subset exceeds size of target accessor."},
        {"BackwardsBelowZero", extentOf({4, -3, 3}), "subset exceeds size of target accessor."},
        {"OnePastTheEnd", extentOf(whole, {1, 1, 10}), "subset exceeds size of target accessor."},
        {"DecimatedPastTheEnd", extentOf({0, 3, 5}), "subset exceeds size of target accessor."},
        {"OriginPastTheEnd", extentOf({10, -1, 2}), "subset exceeds size of target accessor."},
        {"FourthAxis", extentOf(whole, whole, whole, {0, 1, 2}), "subset exceeds size of target accessor."},
        {"LastIndexWraps", extentOf({0, 1 << 30, 5}), "subset exceeds size of target accessor."},
        {"RepeatsAnIndex", extentOf({3, 0, 2}), "subset has a step of zero."},
    };
    for (Row const& row : rows) {
        try {
            SubsetFilter::MakeSubset(bottom({10, 10, 10, 1}), row.extent);
            ADD_FAILURE() << row.name << ": accepted";
        } catch (std::invalid_argument const& error) {
            EXPECT_EQ(error.what(), std::string("[SubsetFilter::MakeSubset] Invalid argument: ") + row.reason)
                << row.name;
        }
    }
    EXPECT_THROW(SubsetFilter::MakeSubset(nullptr, extentOf({0, 1, 0})), std::invalid_argument);
}

TEST(MakeSubset, MakesTheCheapestFilterThatDoes) {
    enum class Kind { kTarget, kRange, kExtent };
    struct Row {
        char const* name;
        Extent4 extent;
        Kind kind;
    };
    Row const rows[] = {
        {"Whole", extentOf({0, 1, 10}, {0, 1, 7}), Kind::kTarget},
        {"Shorter", extentOf({0, 1, 9}, {0, 1, 7}), Kind::kRange},
        {"Shifted", extentOf({0, 1, 10}, {1, 1, 6}), Kind::kRange},
        {"Decimated", extentOf({0, 2, 5}, {0, 1, 7}), Kind::kExtent},
        {"Reversed", extentOf({9, -1, 10}, {0, 1, 7}), Kind::kExtent},
        {"StepOfOneIndexCounts", extentOf({0, 1, 10}, {0, 1, 7}, {0, 5, 1}), Kind::kExtent},
        {"StepZeroOfOneIndex", extentOf({5, 0, 1}, {0, 1, 7}), Kind::kExtent},
    };
    for (Row const& row : rows) {
        auto target = bottom({10, 7, 1, 1});
        auto const* const self = target.get();
        auto const subset = SubsetFilter::MakeSubset(std::move(target), row.extent);
        EXPECT_EQ(subset.get() == self, row.kind == Kind::kTarget) << row.name;
        EXPECT_EQ(dynamic_cast<SubsetRangeFilter*>(subset.get()) != nullptr, row.kind == Kind::kRange) << row.name;
        EXPECT_EQ(dynamic_cast<SubsetExtentFilter*>(subset.get()) != nullptr, row.kind == Kind::kExtent) << row.name;
        if (row.kind != Kind::kTarget) {
            EXPECT_EQ(subsetOf(*subset), row.extent) << row.name;
            EXPECT_EQ(subset->getSize()[0], row.extent[0].count) << row.name;
        }
    }
}

TEST(MakeSubset, FoldsNestedSubsetsIntoOneOverTheInnermost) {
    Journal const journal;
    auto subset = SubsetFilter::MakeSubset(bottom({100, 1, 1, 1}, journal), extentOf({10, 2, 40}));
    subset = SubsetFilter::MakeSubset(std::move(subset), extentOf({39, -3, 13}));
    EXPECT_EQ(subsetOf(*subset), extentOf({88, -6, 13}));
    EXPECT_THAT(journal.take(), ElementsAre("a.getSize", "a.getSize")) << "nothing is destroyed, nothing cloned";
    subset->setClient(nullptr);
    EXPECT_THAT(journal.take(), ElementsAre("a.setClient(null)"));
}

TEST(MakeSubset, FindsTheWholeTargetOnlyAfterFolding) {
    auto target = bottom({10, 1, 1, 1});
    auto const* const self = target.get();
    auto reversed = SubsetFilter::MakeSubset(std::move(target), extentOf({9, -1, 10}));
    auto const forwards = SubsetFilter::MakeSubset(std::move(reversed), extentOf({9, -1, 10}));
    EXPECT_EQ(forwards.get(), self);

    auto part = SubsetFilter::MakeSubset(bottom({10, 1, 1, 1}), extentOf({2, 1, 5}));
    auto const wholePart = SubsetFilter::MakeSubset(std::move(part), extentOf({0, 1, 5}));
    EXPECT_EQ(subsetOf(*wholePart), extentOf({2, 1, 5})) << "all of the part is still a part";
}

Extent1 randomExtent(Random& random, int size) {
    int const step = random.between(-3, 3);
    int const count = step == 0 ? 1 : random.between(1, (size - 1) / std::abs(step) + 1);
    int const length = (count - 1) * std::abs(step) + 1;
    int const low = random.between(0, size - length);
    return {step < 0 ? low + length - 1 : low, step, count};
}

template <class PerAxis>
Extent4 perAxis(PerAxis perAxis) {
    return extentOf(perAxis(0), perAxis(1), perAxis(2), perAxis(3));
}

TEST(MakeSubset, OfASubsetPicksWhatTheOuterPicksOfTheInner) {
    Random random;
    for (int round = 0; round < 500; ++round) {
        auto const inner = perAxis([&](int) { return randomExtent(random, 12); });
        auto const outer = perAxis([&](int axis) { return randomExtent(random, inner[axis].count); });
        auto subset = SubsetFilter::MakeSubset(bottom({12, 12, 12, 12}), inner);
        subset = SubsetFilter::MakeSubset(std::move(subset), outer);
        auto const* const filter = dynamic_cast<SubsetFilter*>(subset.get());
        auto const folded = filter == nullptr ? Extent4({0, 0, 0, 0}, {12, 12, 12, 12}) : filter->getSubset();
        for (int axis = 0; axis < 4; ++axis) {
            ASSERT_EQ(folded[axis].count, outer[axis].count);
            for (int k = 0; k < outer[axis].count; ++k) {
                int const place = outer[axis].origin + k * outer[axis].step;
                ASSERT_EQ(folded[axis].origin + k * folded[axis].step, inner[axis].origin + place * inner[axis].step);
            }
        }
    }
}

/// What the filter makes of `block` lent by its target.
template <class Filter, class Subset>
BufferHandle lentThrough(Subset const& subset, BufferHandle::ArrayInfo const& block) {
    auto target = std::make_unique<RecordingAccessor>("a", Journal());
    target->setBlock(block);
    BufferHandle handle;
    Filter(std::move(target), subset).getBuffer({0, 0, 0, 0}, AdtEnums::Read, handle);
    return handle;
}

/// The view labels every index of `extent` that `block` covers by its place, and finds it where it lay.
void checkLabels(Extent4 const& extent, BufferHandle::ArrayInfo const& block, BufferHandle const& handle) {
    SCOPED_TRACE(testing::Message() << extent << " of " << block << " gave " << handle.info());
    auto const range = handle.range4();
    std::int64_t expected = block.offset;
    FixedVector<4, int> last;
    for (int axis = 0; axis < 4; ++axis) {
        std::vector<int> places;
        for (int k = 0; k < extent[axis].count; ++k) {
            int const index = extent[axis].origin + k * extent[axis].step;
            if (block.range.min[axis] <= index && index < block.range.max[axis]) {
                places.push_back(k);
            }
        }
        if (places.empty()) {
            ASSERT_LE(range.max[axis], range.min[axis]);
            return;
        }
        ASSERT_EQ(range.min[axis], places.front());
        ASSERT_EQ(range.max[axis], places.back() + 1);
        last[axis] = places.back();
        int const index = extent[axis].origin + last[axis] * extent[axis].step;
        expected += std::int64_t{index - block.range.min[axis]} * block.strides[axis];
    }
    ASSERT_EQ(handle.offset(last), expected);
}

TEST(SubsetFilters, LabelTheBlocksOfTheirTargetByPlace) {
    Random random;
    for (int round = 0; round < 20000; ++round) {
        BufferHandle::ArrayInfo block;
        for (int axis = 0; axis < 4; ++axis) {
            block.range.min[axis] = random.between(-2, 8);
            block.range.max[axis] = block.range.min[axis] + random.between(0, 6);
            block.strides[axis] = random.between(-50, 50);
        }
        block.offset = random.between(-100, 100);
        auto const extent = perAxis([&](int) { return randomExtent(random, 10); });
        checkLabels(extent, block, lentThrough<SubsetExtentFilter>(extent, block));

        FixedVector<4, int> min, count;
        for (int axis = 0; axis < 4; ++axis) {
            min[axis] = random.between(0, 8);
            count[axis] = random.between(1, 10 - min[axis]);
        }
        checkLabels(Extent4(min, count), block, lentThrough<SubsetRangeFilter>(Range4{min, min + count}, block));
    }
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
}

TEST(SubsetFilters, RefuseBlocksWhoseNumbersLeave32Bits) {
    BufferHandle::ArrayInfo const volume{Range4{{0, 0, 0, 0}, {1000, 1, 1, 1}}, {6'000'000, 0, 0, 0}, 0};
    auto const row = Range4{{400, 0, 0, 0}, {500, 1, 1, 1}};
    EXPECT_THROW(lentThrough<SubsetRangeFilter>(row, volume), std::length_error);
    EXPECT_THROW(lentThrough<SubsetExtentFilter>(extentOf({0, 400, 2}), volume), std::length_error);
    EXPECT_EQ(lentThrough<SubsetExtentFilter>(extentOf({1, 400, 1}), volume).info().offset, 6'000'000)
        << "the step of a single index reaches nowhere";
}

TEST(SubsetFilters, AskAndHintInTheTargetsIndices) {
    Journal const journal;
    RecordingClient client("c", journal);
    SubsetRangeFilter range(bottom({99, 99, 99, 99}, journal), Range4{{10, 20, 30, 40}, {15, 25, 35, 45}});
    SubsetExtentFilter extent(
        bottom({99, 99, 99, 99}, journal), extentOf({10, 3, 5}, {20, -2, 5}, {30, 1, 5}, {40, 0, 1}));
    BufferHandle handle;
    auto const hint = Range4{{0, 1, 2, 0}, {4, 3, 3, 1}};
    for (auto* const filter : {static_cast<SubsetFilter*>(&range), static_cast<SubsetFilter*>(&extent)}) {
        filter->getBuffer({1, 2, 3, 4}, AdtEnums::Populate, handle);
        EXPECT_EQ(handle.access(), AdtEnums::Populate);
        filter->setHint(IBufferAccessor::Prefetch, hint, 0.5f);
        filter->setHint(IBufferAccessor::CancelPrefetch, Range4(), 1.0f);
        filter->setClient(&client);
        filter->dispose(/*flag=*/true);
    }
    EXPECT_THAT(
        journal.take(), ElementsAre(
                            "a.getBuffer((11,22,33,44) 4)", "a.setHint(0 [10,14)x[21,23)x[32,33)x[40,41) 0.5)",
                            "a.setHint(1 [10,10)x[20,20)x[30,30)x[40,40) 1)", "a.setClient(client)", "a.dispose(1)",
                            "a.getBuffer((13,16,33,40) 4)", "a.setHint(0 [10,20)x[16,19)x[32,33)x[40,41) 0.5)",
                            "a.setHint(1 [10,8)x[22,21)x[30,30)x[40,41) 1)", "a.setClient(client)", "a.dispose(1)"));
}

template <class Filter>
void checkCopies(Filter& filter, Filter& other, Extent4 const& subset) {
    auto const clone = filter.createClone();
    EXPECT_EQ(typeid(*clone), typeid(Filter));
    EXPECT_EQ(subsetOf(*clone), subset);
    other = filter;
    EXPECT_EQ(other.getSubset(), subset);
}

TEST(SubsetFilters, CopyTheirGeometryAndCloneTheirChain) {
    Journal const journal;
    SubsetRangeFilter range(bottom({9, 1, 1, 1}, journal), Range4{{1, 0, 0, 0}, {4, 1, 1, 1}});
    SubsetRangeFilter otherRange(bottom({9, 1, 1, 1}), Range4());
    checkCopies(range, otherRange, extentOf({1, 1, 3}));
    EXPECT_THAT(journal.take(), ElementsAre("a.createClone", "a.createClone", "~a'"));
    SubsetExtentFilter extent(bottom({9, 1, 1, 1}, journal), extentOf({1, 2, 3}));
    SubsetExtentFilter otherExtent(bottom({9, 1, 1, 1}), Extent4());
    checkCopies(extent, otherExtent, extentOf({1, 2, 3}));
    EXPECT_THAT(journal.take(), ElementsAre("a.createClone", "a.createClone", "~a'"));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
