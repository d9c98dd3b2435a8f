// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/composite_view_def.h"

#include "dravik/adt/bulkdef/view/array_map_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkdef/view/inverse_array_view_def.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/modelled_views.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <sstream>

namespace Quorvel::Dravik::Adt::BulkDef::View {
namespace {

using Extent = ExtentImpl<int>;
using ViewPtr = boost::shared_ptr<ViewDef const>;

static_assert(!std::is_convertible_v<ExtentK<1, int>, ArraySubsetDef<1>>);
static_assert(std::is_abstract_v<ArrayViewDef> && std::is_empty_v<CompositeViewDef>);

// The fields as they are: equality is tolerant and would hide them.
std::string text(Extent const& extent) {
    return (std::ostringstream() << extent).str();
}

ArraySubsetDef<1> subset(Extent const& axis) {
    return ArraySubsetDef<1>(ExtentK<1, int>(axis));
}

TEST(ArraySubsetDef, MapsAxisExtentsBothWays) {
    struct Row {
        char const* name;
        Extent subset, given;
        char const *toTarget, *toView;
    };
    constexpr Row kRows[] = {
        {"Whole", {10, 2, 5}, {0, 1, 5}, "10:2:5", "0:1:0"},
        {"ClippedAbove", {10, 2, 5}, {3, 1, 10}, "16:2:2", "0:1:2"},
        {"ClippedBothSides", {10, 2, 5}, {-1, 1, 100}, "10:2:5", "0:1:5"},
        {"OddAndEven", {10, 2, 5}, {11, 1, 5}, "10:2:0", "1:1:2"},
        {"Reversed", {9, -1, 10}, {0, 1, 10}, "9:-1:10", "9:-1:10"},
        {"InsideKeepsItsOrder", {10, 2, 5}, {4, -1, 3}, "18:-2:3", "0:1:0"},
        {"ClippedAscends", {10, 2, 5}, {6, -1, 4}, "16:2:2", "0:1:0"},
        {"TargetKeepsItsOrder", {10, 2, 5}, {18, -1, 100}, "10:2:5", "4:-1:5"},
        {"EmptyKeepsItsPlace", {10, 2, 5}, {3, 4, 0}, "16:8:0", "0:1:0"},
        {"StepZero", {5, 0, 1}, {0, 1, 9}, "5:0:1", "0:1:1"},
        {"NothingSeen", {5, 0, 0}, {0, 1, 9}, "5:0:0", "0:1:0"},
        {"EndsOfInt", {INT_MIN, 1, INT_MAX}, {INT_MIN, INT_MAX, 3}, "-2:2147483647:1", "0:2147483647:1"},
    };
    for (Row const& row : kRows) {
        auto const view = subset(row.subset);
        EXPECT_EQ(text(view.viewToTargetAxisExtent({0, row.given}).second), row.toTarget) << row.name;
        EXPECT_EQ(text(view.targetToViewAxisExtent({0, row.given}).second), row.toView) << row.name;
        for (int const axis : {1, 3, -1, INT_MAX}) {
            EXPECT_EQ(view.inverse()->viewToTargetAxisExtent({axis, row.given}), AxisExtent(axis, row.given));
            EXPECT_EQ(text(view.viewToTargetAxisExtent({axis, row.given}).second), text(row.given)) << axis;
        }
    }
}

// An array view of a host that leaves every axis alone.
struct Untouched : ArrayViewDef {
    AxisExtent viewToTargetAxisExtent(AxisExtent const& axis) const override { return axis; }
    AxisExtent targetToViewAxisExtent(AxisExtent const& axis) const override { return axis; }
    int getHashCode() const override { return 1; }
    bool compare(ViewDef const&) const override { return true; }
    std::unique_ptr<ViewDef> makeClone() const override { return std::make_unique<Untouched>(); }
};

TEST(CompositeViewDef, ComposesIntoOneSubset) {
    struct Row {
        char const* name;
        Extent inner, outer;
        char const* composed;
    };
    constexpr Row kRows[] = {
        {"StepsMultiply", {10, 2, 5}, {1, 2, 2}, "12:4:2"},
        {"ReversedOuter", {10, 2, 5}, {4, -1, 5}, "18:-2:5"},
        {"BothReversed", {9, -1, 10}, {9, -2, 5}, "0:2:5"},
        {"StartsBelowTheInner", {10, 2, 5}, {-2, 1, 5}, "10:2:3"},
        {"EndsAboveTheInner", {10, 2, 5}, {6, -1, 4}, "18:-2:2"},
        {"NothingInCommon", {10, 2, 5}, {5, 1, 4}, "20:2:0"},
        {"StepZero", {5, 0, 1}, {0, 0, 1}, "5:0:1"},
    };
    for (Row const& row : kRows) {
        auto const composed = CompositeViewDef::compose(subset(row.inner), subset(row.outer));
        auto const* const one = ArraySubsetDef<1>::Cast(composed.get());
        ASSERT_NE(one, nullptr) << row.name;
        EXPECT_EQ(text(one->subset()[0]), row.composed) << row.name;
    }
    EXPECT_TRUE(CompositeViewDef::compose(Untouched(), Untouched())->equals(CompleteViewDef())) << "no axis at all";
}

TEST(CompositeViewDef, KeepsAPlainClassWhereItCan) {
    AxesViewDef<3> const order({2, 0, 1});
    ArraySubsetDef<2> const part({Extent{1, 1, 4}, Extent{9, -1, 10}});
    auto const print = [](ViewDef const& inner, ViewDef const& outer) {
        auto const composed = CompositeViewDef::compose(inner, outer);
        EXPECT_TRUE(composed->clone()->equals(*composed));
        return (std::ostringstream() << *composed).str();
    };
    EXPECT_EQ(print(order, order), "AxesViewDef(1,2,0)");
    EXPECT_EQ(print(order, *order.inverse()), "CompleteViewDef");
    EXPECT_EQ(print(part, order), "ArrayMapDef((2,0,1) of 1:1:4 x 9:-1:10 x -1073741824:1:2147483647)");
    EXPECT_EQ(print(*CompositeViewDef::compose(part, order), *order.inverse()), "ArraySubsetDef(1:1:4 x 9:-1:10)");
    EXPECT_EQ(print(order, part), "ArrayMapDef((2,0,1) of 9:-1:10 x -1073741824:1:2147483647 x 1:1:4)");
    EXPECT_EQ(CompositeViewDef::compose(part, order)->getHashCode(), order.getHashCode());
    EXPECT_THAT(
        [] {
            AxesViewDef<3>({0, 1, 1});
        },
        testing::ThrowsMessage<std::invalid_argument>(
            "[AxesViewDef] Invalid argument: (0,1,1) is no order of the axes 0 to 2."));
}

TEST(CompositeViewDef, KnowsCompleteAndForeignViews) {
    CompleteViewDef const complete;
    Testing::ForeignView const foreign;
    auto const view = subset({10, 2, 5});
    auto const compose = [](ViewDef const& a, ViewDef const& b) { return CompositeViewDef::compose(a, b); };
    EXPECT_FALSE(foreign.equals(complete)) << "the other side says no";
    EXPECT_TRUE(compose(complete, foreign)->equals(foreign));
    EXPECT_TRUE(compose(foreign, complete)->equals(foreign));
    EXPECT_THROW(compose(foreign, view), std::bad_cast);
    EXPECT_THROW(compose(view, foreign), std::bad_cast);
    EXPECT_THROW(CompositeViewDef::inverse(foreign), std::bad_cast);
    EXPECT_TRUE(CompositeViewDef::difference(foreign, complete)->equals(foreign));
    EXPECT_TRUE(CompositeViewDef::difference(complete, view)->equals(*view.inverse()));
    EXPECT_THAT(
        [&] { CompositeViewDef::difference(view, view); },
        testing::ThrowsMessage<Exceptions::NotImplementedException>(
            "Not implemented: CompositeViewDef::difference is not fully implemented"));
}

TEST(CompositeViewDef, InvertsPointersWithoutCopyingWhereItCan) {
    ViewPtr const complete = CompleteViewDef::Instance();
    EXPECT_EQ(CompositeViewDef::inverse(complete), complete);
    EXPECT_NE(CompositeViewDef::inverse(*complete), complete);
    EXPECT_EQ(CompositeViewDef::inverse(ViewPtr()), nullptr);
    EXPECT_EQ(ArrayViewDef::Cast(complete), nullptr);
    ViewPtr const view = subset({10, 2, 5}).clone();
    EXPECT_EQ(ArrayViewDef::Cast(view), view);
    EXPECT_EQ(ArrayViewDef::InverseArrayViewDef::Cast(view.get()), nullptr) << "a subset is no inverse";
    auto const inverse = CompositeViewDef::inverse(view);
    auto const inner = CompositeViewDef::inverse(inverse);
    EXPECT_NE(inner, view) << "an inverse holds a clone";
    EXPECT_EQ(CompositeViewDef::inverse(*inverse->clone()), inner) << "and hands it out, which its clones share";
}

// The mapping of any view, one index after the other.
void expectMapsLikeItsModel(Testing::ModelledView const& view, Testing::Random& random) {
    auto const array = ArrayViewDef::Cast(view.def);
    for (int axis = 0; array && axis < 4; ++axis) {
        auto const target = view.order[static_cast<std::size_t>(axis)];
        auto const& map = view.axes[target];
        Extent const given{random.between(-12, 12), random.oneOf({-3, -2, -1, 1, 2, 3}), random.between(0, 9)};
        auto const mapped = array->viewToTargetAxisExtent({axis, given});
        ASSERT_EQ(mapped.first, static_cast<int>(target)) << *array;
        std::vector<int> seen, targets;
        for (int const index : Testing::indicesOf(given)) {
            if (!map || map->contains(index)) {
                seen.push_back(index);
                targets.push_back(map ? map->at(index) : index);
            }
        }
        // A subset turns what it had to clip; everything else keeps the order it was asked in.
        if (given.step < 0 && static_cast<int>(seen.size()) < given.count &&
            !dynamic_cast<ArrayViewDef::InverseArrayViewDef const*>(array.get())) {
            std::reverse(targets.begin(), targets.end());
        }
        ASSERT_EQ(Testing::indicesOf(mapped.second), targets) << *array << " axis " << axis << " of " << given;
        auto const [seenOn, back] = array->targetToViewAxisExtent(mapped);
        ASSERT_EQ(seenOn, axis) << *array;
        ASSERT_THAT(Testing::indicesOf(back), testing::UnorderedElementsAreArray(seen)) << *array << " of " << given;
    }
}

TEST(Views, ComposedAndInvertedMapEveryIndex) {
    Testing::Random random;
    for (int round = 0; round < 20000; ++round) {
        auto const view = Testing::randomView(random, 3, /*exchanges=*/round % 2 != 0);
        ASSERT_NO_FATAL_FAILURE(expectMapsLikeItsModel(view, random));
        ASSERT_NO_FATAL_FAILURE(expectMapsLikeItsModel(view.inverted(), random));
        ASSERT_TRUE(view.inverted().inverted().def->equals(*view.def)) << *view.def;
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef::View
