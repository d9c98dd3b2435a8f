// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/array_view_converter.h"

#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/modelled_views.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <unordered_set>

namespace Quorvel::Dravik::Adt::BulkDef::View {
namespace {

using Extent = ExtentImpl<int>;
using ViewPtr = boost::shared_ptr<ViewDef const>;
using testing::ElementsAre;
using Testing::ModelledView;
using testing::ThrowsMessage;

static_assert(!std::is_convertible_v<CompleteViewDef const&, ArrayViewConverter<2>>);

ArrayViewConverter<1> through(Extent const& subset) {
    return ArrayViewConverter<1>(ArraySubsetDef<1>(ExtentK<1, int>(subset)));
}

TEST(ArrayViewConverter, TakesCompleteAndArrayViews) {
    using Converter = ArrayViewConverter<2>;
    ViewPtr const foreign = boost::make_shared<Testing::ForeignView const>();
    ViewPtr const view =
        boost::make_shared<ArraySubsetDef<2> const>(ExtentK<2, int>(Extent{10, 2, 5}, Extent{0, 1, 8}));
    for (bool const inverse : {false, true}) {
        EXPECT_THAT(
            [&] { Converter(*foreign, inverse); },
            ThrowsMessage<std::invalid_argument>("[ArrayViewConverter] Unknown view type"));
        EXPECT_THAT(
            [&] { Converter(ViewPtr(), inverse); },
            ThrowsMessage<std::invalid_argument>("[ArrayViewConverter] null view"));
        EXPECT_TRUE(Converter(CompleteViewDef(), inverse).isIdentity());
        EXPECT_EQ(Converter(CompleteViewDef::Instance(), inverse).inverse().getViewPtr(), nullptr);
    }
    EXPECT_THAT(
        [&] { Converter{foreign}; },
        ThrowsMessage<std::invalid_argument>("[ArrayViewConverter] wiew is of unknown type"));
    EXPECT_THROW(Converter(foreign, /*inverse=*/true), std::bad_cast);
    EXPECT_EQ(Converter(view).getViewPtr(), view) << "shared";
    EXPECT_NE(Converter(*view).getViewPtr(), view) << "cloned";
    auto const inverted = CompositeViewDef::inverse(view);
    EXPECT_EQ(Converter(inverted).inverse().getViewPtr(), Converter(*inverted, /*inverse=*/true).getViewPtr());
    EXPECT_EQ(
        (std::ostringstream() << Converter(*view) << Converter(CompleteViewDef())).str(),
        "ArrayViewConverter(ArraySubsetDef(10:2:5 x 0:1:8))ArrayViewConverter(identity)");
    std::unordered_set<Converter> const keys{
        Converter(view), Converter(*view), Converter(inverted), Converter(CompleteViewDef())};
    EXPECT_EQ(keys.size(), 3u);
}

// Sends axis 0 to axis 1, axis 1 out of sight, and axis 2 to axis 0.
struct RotatedView : ArrayViewDef {
    AxisExtent viewToTargetAxisExtent(AxisExtent const& axis) const override {
        return {axis.first == 0 ? 1 : axis.first == 1 ? 3 : 0, axis.second};
    }
    AxisExtent targetToViewAxisExtent(AxisExtent const& axis) const override { return axis; }
    int getHashCode() const override { return 1; }
    bool compare(ViewDef const&) const override { return true; }
    std::unique_ptr<ViewDef> makeClone() const override { return std::make_unique<RotatedView>(); }
};

TEST(ArrayViewConverter, FollowsAxesWhereTheyGo) {
    ArrayViewConverter<3> const rotate{RotatedView()};
    FixedVector<3, int> axes;
    auto const converted = rotate.convertExtents({Extent{1, 1, 1}, Extent{2, 1, 2}, Extent{3, 1, 3}}, &axes);
    EXPECT_THAT(axes, ElementsAre(1, 3, 0));
    EXPECT_EQ((std::ostringstream() << converted).str(), "3:1:3 x 1:1:1 x 0:1:0");
    EXPECT_THAT(
        [&] { rotate.convert(ArrayConstRef<3>()); },
        ThrowsMessage<Exceptions::NotImplementedException>(
            "Not implemented: [ArrayViewConverter] Axis permutation is not yet supported."));
    ArrayViewConverter<3> const identity{CompleteViewDef()};
    EXPECT_EQ(identity.convertExtents(converted, &axes), converted);
    EXPECT_THAT(axes, ElementsAre(0, 1, 2));
}

TEST(ArrayViewConverter, PutsEmptyBoxesWhereTheViewBegins) {
    using Box = OpenEndedRange<1, int>;
    auto const box = [](int min, int max) { return Box{Box::Point(min), Box::Point(max)}; };
    struct Row {
        char const* name;
        Extent subset;
        Box given, converted;
    };
    Row const rows[] = {
        {"InsideAscending", {10, 2, 5}, box(1, 1), box(12, 12)},
        {"InsideDescending", {9, -2, 5}, box(1, 1), box(9, 9)},
        {"OutsideDescending", {9, -2, 5}, box(7, 9), box(11, 11)},
        {"Inverted", {10, 2, 5}, box(3, 1), box(16, 16)},
        {"EndsOfInt", {INT_MAX - 4, 1, 5}, box(0, 5), box(INT_MAX - 4, INT_MAX)},
    };
    for (Row const& row : rows) {
        Box out;
        through(row.subset).convertRegion(row.given, &out);
        EXPECT_EQ(out, row.converted) << row.name;
    }
    EXPECT_EQ(ArrayViewConverter<1>(CompleteViewDef()).convert(box(3, 1)), box(3, 1));
}

using Array = ArrayConstRef<1>;

Array lineOf(int min, int max, int stride) {
    using Point = FixedVector<1, int>;
    return Array({Point(min), Point(max)}, Point(stride), nullptr, 5, typeid(char), 8);
}

TEST(ArrayViewConverter, RefusesArraysThatNoStrideFits) {
    auto const decimated = through({10, -2, 5});
    auto const reversed = through({9, -1, 10});
    Array out = lineOf(1, 2, 3);
    EXPECT_THAT(
        [&] { decimated.convertArray(lineOf(3, 9, 1), &out); },
        ThrowsMessage<std::invalid_argument>("[ArrayViewConverter] Target view is decimated, cannot convert array."))
        << "comes before the test for the outside";
    EXPECT_THAT(
        [&] {
            through({10, 1, 5}).convertArray(lineOf(3, 7, 1), &out);
        },
        ThrowsMessage<Exceptions::NotSupportedException>(
            "Unsupported: [ArrayViewConverter::convertArray] Given array is (partially) outside the view."));
    for (int const stride : {INT_MAX - 4, INT_MIN}) {
        EXPECT_THAT(
            [&] { reversed.convertArray(lineOf(0, 2, stride), &out); },
            ThrowsMessage<std::length_error>(
                "[ArrayViewConverter::convertArray] The array is too large to be read backwards."))
            << stride;
    }
    EXPECT_EQ(out, lineOf(1, 2, 3)) << "untouched";
    EXPECT_THROW(through({INT_MAX, -2, 5}).convert(lineOf(0, 2, 1)), std::invalid_argument) << "the box ends with int";
    EXPECT_EQ(reversed.convert(lineOf(0, 2, INT_MAX - 5)).bufferOffset(), INT_MAX);
    EXPECT_EQ(decimated.convert(lineOf(2, 3, 7)), lineOf(6, 7, -3)) << "one index fits any stride";
    EXPECT_EQ(decimated.convert(lineOf(2, 3, INT_MIN)), lineOf(6, 7, 1 << 30));
    EXPECT_EQ(through({4, 0, 1}).convert(lineOf(0, 1, 7)), lineOf(4, 5, 7));
}

TEST(ArrayViewConverter, RefusesArraysBeyondSixtyFourBits) {
    using Point = FixedVector<3, int>;
    auto const through3 = [](Extent const& first, Extent const& others) {
        return ArrayViewConverter<3>(ArraySubsetDef<3>({first, others, others}));
    };
    Extent const wholeAxis{INT_MAX - 1, -1, INT_MAX};
    ArrayConstRef<3> const vast({Point(), Point::Filled(INT_MAX)}, Point::Filled(INT_MAX), nullptr, 0, typeid(char), 8);
    EXPECT_THROW(through3(wholeAxis, wholeAxis).convert(vast), std::length_error);
    EXPECT_THROW(through3({0, 2, INT_MAX}, wholeAxis).convert(vast), std::invalid_argument);
}

TEST(ArrayViewConverter, AddsConvertedSetsToWhatIsThere) {
    using Set = IndexSet<2, int>;
    ArrayViewConverter<2> const converter{ArraySubsetDef<2>({Extent{10, 2, 5}, Extent{7, -1, 8}})};
    Set view({{0, 0}, {2, 3}}), target({{10, 5}, {13, 8}});
    view.add({{4, 5}, {9, 20}});  // beyond the view on both axes
    view.add({{7, 0}, {8, 1}});   // outside
    target.add({{18, 0}, {19, 3}});
    EXPECT_EQ(converter.convert(view), target);
    Set out({{100, 0}, {101, 1}});
    converter.convertRegion(view, &out);
    EXPECT_EQ(out.size(), target.size() + 1);
    ArrayViewConverter<2>(CompleteViewDef()).convertRegion(view, &out);
    EXPECT_EQ(out, view);
    converter.convertRegion(view, &view);
    out.add(target);
    EXPECT_EQ(view, out) << "a set that converts into itself";
}

// What the model says of the indices [min, max) on one axis.
struct Image {
    Image(ModelledView::Axis const& map, int min, int max) {
        for (int index = min; index < max; ++index) {
            if (map && !map->contains(index)) {
                clipped = true;
                continue;
            }
            targets.push_back(map ? map->at(index) : index);
            auto const last = targets.rbegin();
            decimated = decimated || (targets.size() > 1 && std::abs(last[0] - last[1]) > 1);
        }
    }

    std::vector<int> targets;  // of the indices that are seen, in their order
    bool decimated = false, clipped = false;
};

template <int N>
void expectConvertsLikeItsModel(ModelledView const& view, Testing::Random& random) {
    ArrayViewConverter<N> const converter(view.def);
    OpenEndedRange<N, int> box, expected;
    FixedVector<N, int> strides, index, target;
    bool decimated = false, clipped = false, empty = false;
    for (int axis = 0; axis < N; ++axis) {
        box.min[axis] = random.between(-5, 8);
        box.max[axis] = box.min[axis] + random.oneOf({0, 1, 1, 2, 3, 6});
        strides[axis] = random.between(-9, 9);
        Image const image(view.axes[static_cast<std::size_t>(axis)], box.min[axis], box.max[axis]);
        decimated = decimated || image.decimated;
        clipped = clipped || image.clipped;
        empty = empty || image.targets.empty();
        if (!empty) {
            auto const [low, high] = std::minmax_element(image.targets.begin(), image.targets.end());
            expected.min[axis] = *low;
            expected.max[axis] = *high + 1;
            auto const place = random.between<std::size_t>(0, image.targets.size() - 1);
            index[axis] = box.min[axis] + static_cast<int>(place);
            target[axis] = image.targets[place];
        }
    }
    auto const converted = converter.convert(box);
    ASSERT_EQ(converted.isEmpty(), empty) << converter << " of " << box;
    ASSERT_TRUE(empty || converted == expected) << converter << " of " << box << " gives " << converted;
    ASSERT_EQ(converter.inverse().inverse().convert(box), converted);
    ASSERT_EQ(converter.inverse().convertExtents(converter.convert(ExtentK<N, int>(box))).isEmpty(), empty);

    char const memory = 0;
    ArrayConstRef<N> const array(box, strides, &memory, random.between(-99, 99), typeid(float), 32);
    if (decimated) {
        ASSERT_THROW(converter.convert(array), std::invalid_argument) << converter << " of " << array;
    } else if (clipped) {
        ASSERT_THROW(converter.convert(array), Exceptions::NotSupportedException) << converter << " of " << array;
    } else {
        auto const moved = converter.convert(array);
        ASSERT_EQ(moved.range(), converted);
        ASSERT_TRUE(moved.data() == &memory && moved.valueType() == typeid(float) && moved.bitSize() == 32);
        ASSERT_TRUE(empty || moved.position(target) == array.position(index)) << converter << " of " << array;
    }
}

TEST(ArrayViewConverter, CarriesBoxesAndArrays) {
    Testing::Random random;
    for (int round = 0; round < 5000; ++round) {
        auto const view = Testing::randomView(random, 2);
        ASSERT_NO_FATAL_FAILURE(expectConvertsLikeItsModel<1>(view, random));
        ASSERT_NO_FATAL_FAILURE(expectConvertsLikeItsModel<2>(view, random));
        ASSERT_NO_FATAL_FAILURE(expectConvertsLikeItsModel<3>(view, random));
        ASSERT_NO_FATAL_FAILURE(expectConvertsLikeItsModel<4>(view, random));
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef::View
