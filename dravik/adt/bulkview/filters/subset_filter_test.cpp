#include "dravik/adt/bulkview/filters/subset_extent_filter.h"
#include "dravik/adt/bulkview/filters/subset_range_filter.h"

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/random.h"
#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Testing::BrickAccessor;
using Testing::BrickOptions;
using testing::ElementsAre;
using Testing::expectConforms;
using Testing::forEachIndex;
using Testing::Journal;
using Testing::PlainArray;
using Testing::Random;
using Testing::RecordingAccessor;
using Testing::RecordingClient;
using Testing::Subject;
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
    EXPECT_THAT(
        [] { SubsetFilter::MakeSubset(nullptr, Extent4()); },
        testing::ThrowsMessage<std::invalid_argument>("[SubsetFilter::MakeSubset] Invalid argument: target is null."));
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

template <class PerAxis>
Extent4 perAxis(PerAxis perAxis) {
    return extentOf(perAxis(0), perAxis(1), perAxis(2), perAxis(3));
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

/// Bricks of a larger array in which `shown` stands along `steps`, a few samples away from its ends.
struct Embedded {
    Extent4 extent;
    std::unique_ptr<IBufferAccessor> target;

    Embedded(PlainArray<float> const& shown, FixedVector<4, int> const& steps, BrickOptions const& options) {
        FixedVector<4, int> size;
        for (int axis = 0; axis < 4; ++axis) {
            int const count = shown.size()[axis];
            int const length = (count - 1) * std::abs(steps[axis]);
            extent[axis] = {2 + (steps[axis] < 0 ? length : 0), steps[axis], count};
            size[axis] = 2 + length + 1 + axis;
        }
        PlainArray<float> whole(size);
        std::fill(whole.samples().begin(), whole.samples().end(), -1.0f);
        forEachIndex(shown.box(), [&](FixedVector<4, int> const& p) {
            FixedVector<4, int> place;
            for (int axis = 0; axis < 4; ++axis) {
                place[axis] = extent[axis].origin + p[axis] * extent[axis].step;
            }
            whole.at(place) = shown.at(p);
            return true;
        });
        target = std::make_unique<BrickAccessor<float>>(whole, options);
    }

    /// The whole target the other way round, and the subset in indices of that.
    Extent4 reversedWhole() const {
        auto const size = target->getSize();
        return perAxis([&](int axis) { return Extent1{size[axis] - 1, -1, size[axis]}; });
    }
    Extent4 extentInReversed() const {
        auto const size = target->getSize();
        return perAxis([&](int axis) {
            return Extent1{size[axis] - 1 - extent[axis].origin, -extent[axis].step, extent[axis].count};
        });
    }
};

// The bricks divide neither the target nor the subset, and stand across the subset's ends.
TEST(SubsetFilters, ConformOverBricksWithEveryStep) {
    using Target = std::unique_ptr<IBufferAccessor>;
    struct Form {
        char const* name;
        Target (*make)(Embedded&&);
        BrickOptions options;
    };
    Form const forms[] = {
        {"made from a definition",
         [](Embedded&& e) {
             return FilterFactory::MakeView(std::move(e.target), BulkDef::View::ArraySubsetDef<4>(e.extent));
         },
         {}},
        {"folded with a reversal",
         [](Embedded&& e) {
             Extent4 const outer = e.extentInReversed();
             Extent4 const inner = e.reversedWhole();
             return SubsetFilter::MakeSubset(SubsetFilter::MakeSubset(std::move(e.target), inner), outer);
         },
         {.fastestAxis = 0, .padding = 3, .backwards = true}},
        {"stacked on a reversal",
         [](Embedded&& e) -> Target {
             Extent4 const outer = e.extentInReversed();
             Extent4 const inner = e.reversedWhole();
             return std::make_unique<SubsetExtentFilter>(
                 std::make_unique<SubsetExtentFilter>(std::move(e.target), inner), outer);
         },
         {.invalidatesEvery = 3}},
    };
    Random random;
    int const steps[] = {-3, -2, -1, 1, 2, 3};
    for (int const i : steps) {
        for (int const j : steps) {
            for (int const k : steps) {
                Form const& form = forms[random.between(0, 2)];
                FixedVector<4, int> const step(i, j, k, random.oneOf({-2, -1, 1, 2}));
                Subject<float> const subject{
                    (std::ostringstream() << form.name << ", steps " << step).str(),
                    [&](PlainArray<float> const& shown) { return form.make(Embedded(shown, step, form.options)); }};
                expectConforms(subject);
            }
        }
    }
}

TEST(SubsetFilters, ConformAsABoxOfABox) {
    Subject<float> const subject{"range of range", [](PlainArray<float> const& shown) {
                                     Embedded e(shown, {1, 1, 1, 1}, {.brickSize = {3, 4, 2, 1}});
                                     Range4 const outer{{1, 1, 1, 1}, shown.size() + FixedVector<4, int>(1, 1, 1, 1)};
                                     Range4 const inner{{1, 1, 1, 1}, e.target->getSize()};
                                     return std::make_unique<SubsetRangeFilter>(
                                         std::make_unique<SubsetRangeFilter>(std::move(e.target), inner), outer);
                                 }};
    expectConforms(subject);
}

TEST(SubsetFilters, LetAViewHearWhatBecomesOfItsBlocks) {
    PlainArray<float> data({9, 8, 7, 1});
    Embedded e(data, {2, -1, 1, 1}, {});
    auto& bricks = static_cast<BrickAccessor<float>&>(*e.target);
    Typed3dRoView<float> view(SubsetFilter::MakeSubset(std::move(e.target), e.extent));
    Typed3dRoView<float> const clone(view);
    FixedVector<4, int> const place(e.extent[0].origin + 3 * 2, e.extent[1].origin - 4, e.extent[2].origin + 5, 2);
    EXPECT_EQ(view.get(3, 4, 5), 0.0f);
    EXPECT_EQ(clone.get(3, 4, 5), 0.0f);
    bricks.change(place, 7.0f);
    EXPECT_EQ(view.get(3, 4, 5), 7.0f);
    EXPECT_EQ(clone.get(3, 4, 5), Testing::Brick<float>::kPoison) << "its own accessor has told it nothing";
    EXPECT_EQ(bricks.prepareRelease(place), 10000);
    bricks.release(place);
    EXPECT_EQ(view.get(3, 4, 5), 7.0f) << "read anew, not from the poisoned block";
}

TEST(SubsetFilters, LeakNothingWhenTheyCannotBeMade) {
    PlainArray<float> const data({9, 8, 7, 1});
    auto const make = [&](std::unique_ptr<IBufferAccessor>& made) {
        Embedded e(data, {2, -1, 1, 1}, {});
        made = SubsetFilter::MakeSubset(std::move(e.target), e.extent);
        made = SubsetFilter::MakeSubset(std::move(made), {{1, 1, 1, 0}, {5, 5, 5, 1}})->createClone();
    };
    auto const nothing = [] { return std::unique_ptr<IBufferAccessor>(); };
    auto const isUsable = [](std::unique_ptr<IBufferAccessor>& made, bool completed) {
        EXPECT_TRUE(!completed || made->getSize() == (FixedVector<4, int>(5, 5, 5, 1)));
    };
    Testing::failEverywhere<Testing::AllocationFailure>("a subset of a subset", nothing, make, isUsable);
    Testing::failEverywhere<Testing::CallFailure>("a subset of a subset", nothing, make, isUsable);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
