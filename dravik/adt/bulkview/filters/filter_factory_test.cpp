// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/filter_factory.h"

#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/modelled_views.h"
#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using BulkDef::View::ArraySubsetDef;
using BulkDef::View::CompleteViewDef;
using testing::ThrowsMessage;
using Extent1 = ExtentImpl<int>;
using Size = FixedVector<4, int>;

std::unique_ptr<IBufferAccessor> bottom(Size const& size) {
    return std::make_unique<Testing::RecordingAccessor>("a", Testing::Journal(), size);
}

/// What every index of an axis of the accessor is in the accessor at the bottom.
std::vector<int> targetIndices(IBufferAccessor& accessor, int axis) {
    auto const* const filter = dynamic_cast<SubsetFilter const*>(&accessor);
    return Testing::indicesOf(filter == nullptr ? Extent1{0, 1, accessor.getSize()[axis]} : filter->getSubset()[axis]);
}

/// What a modelled axis shows of a target of `size`, and whether that can be shown.
struct Shown {
    std::vector<int> indices;
    bool ordinal = true;  ///< numbered from 0 without gaps

    Shown(Testing::ModelledView::Axis const& axis, int size) {
        int next = 0;
        for (int index = 0; !axis && index < size; ++index) {
            indices.push_back(index);
        }
        for (auto const& [viewIndex, targetIndex] : axis.value_or(std::map<int, int>())) {
            if (0 <= targetIndex && targetIndex < size) {
                ordinal = ordinal && viewIndex == next++;
                indices.push_back(targetIndex);
            }
        }
    }
};

TEST(FilterFactory, ShowsWhatAnyViewShows) {
    Testing::Random random;
    int shownCount = 0;
    for (int round = 0; round < 5000; ++round) {
        auto const view = Testing::randomView(random, 2);
        Size const size(random.between(1, 12), random.between(1, 12), random.between(1, 12), random.between(1, 12));
        SCOPED_TRACE(testing::Message() << *view.def << " of " << size);
        bool must = true;
        std::vector<Shown> shown;
        for (std::size_t axis = 0; axis < 4; ++axis) {
            shown.emplace_back(view.axes[axis], size[static_cast<int>(axis)]);
            // A single index may be refused for the step that stands beside it.
            must = must && shown.back().ordinal && shown.back().indices.size() > 1;
        }
        try {
            auto const accessor = FilterFactory::MakeView(bottom(size), *view.def);
            ++shownCount;
            for (std::size_t axis = 0; axis < 4; ++axis) {
                ASSERT_EQ(targetIndices(*accessor, static_cast<int>(axis)), shown[axis].indices) << "axis " << axis;
            }
        } catch (std::exception const& error) {
            ASSERT_FALSE(must) << error.what();
        }
    }
    EXPECT_GT(shownCount, 500) << "too few views to mean anything";
}

/// Sends axis a to axis images[a], where it sees `image`.
class OddView : public BulkDef::View::ArrayViewDef {
  public:
    OddView(Size images, Extent1 image) : images_(images), image_(image) {}
    AxisExtent viewToTargetAxisExtent(AxisExtent const& axis) const override { return axis; }
    AxisExtent targetToViewAxisExtent(AxisExtent const& axis) const override { return {images_[axis.first], image_}; }
    int getHashCode() const override { return 0; }

  protected:
    bool compare(ViewDef const&) const override { return false; }
    std::unique_ptr<ViewDef> makeClone() const override { return std::make_unique<OddView>(*this); }

  private:
    Size images_;
    Extent1 image_;
};

TEST(FilterFactory, SaysWhatItCannotShow) {
    constexpr char const* kNotOneToOne = "The view does not show each axis once.";
    constexpr char const* kNotOrdinal = "Bulk views must (currently) have ordinal coordinates.";
    Testing::ForeignView const foreign;
    OddView const twice({0, 2, 2, 3}, {0, 1, 2});
    OddView const swappedAndOdd({0, 2, 1, 3}, {0, 2, 2});
    OddView const dropped({-1, 1, 2, 3}, {0, 1, 2});
    OddView const outside({0, 1, 2, 4}, {0, 1, 2});
    ArraySubsetDef<2> const below({Extent1{-1, 1, 5}, Extent1{0, 1, 10}});
    struct Row {
        char const* name;
        BulkDef::ViewDef const& view;
        std::string reason;
    };
    Row const rows[] = {
        {"Foreign", foreign, "Unsupported view definition"},
        {"Twice", twice, kNotOneToOne},
        {"FirstAxisIsTestedFirst", swappedAndOdd, kNotOrdinal},
        {"NegativeAxis", dropped, kNotOneToOne},
        {"FifthAxis", outside, kNotOneToOne},
        {"StartsBelowZero", below, kNotOrdinal},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(
            [&] {
                FilterFactory::MakeView(bottom({10, 10, 1, 1}), row.view);
            },
            ThrowsMessage<Exceptions::PlainException>("[FilterFactory::MakeView] " + row.reason))
            << row.name;
    }
    EXPECT_THAT(
        [&] { FilterFactory::MakeView(nullptr, foreign); },
        ThrowsMessage<std::invalid_argument>("[FilterFactory::MakeView] Invalid argument: target is null."));
    ArraySubsetDef<1> const apart(ExtentK<1, int>(Extent1{20, 1, 5}));
    EXPECT_THROW(FilterFactory::MakeView(bottom({10, 1, 1, 1}), apart), std::invalid_argument) << "empty";
}

TEST(FilterFactory, MakesNoFilterForTheWholeTarget) {
    ArraySubsetDef<2> const whole({Extent1{0, 1, 10}, Extent1{0, 1, 7}});
    for (BulkDef::ViewDef const* view :
         {static_cast<BulkDef::ViewDef const*>(&whole),
          static_cast<BulkDef::ViewDef const*>(CompleteViewDef::Instance().get())}) {
        auto target = bottom({10, 7, 3, 1});
        auto const* const self = target.get();
        EXPECT_EQ(FilterFactory::MakeView(std::move(target), *view).get(), self) << *view;
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
