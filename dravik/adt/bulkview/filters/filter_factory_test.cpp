#include "dravik/adt/bulkview/filters/filter_factory.h"

#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/modelled_views.h"
#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using BulkDef::View::ArraySubsetDef;
using BulkDef::View::ArrayViewDef;
using BulkDef::View::CompleteViewDef;
using Extent1 = ExtentImpl<int>;

std::unique_ptr<IBufferAccessor> bottom(FixedVector<4, int> const& size) {
    return std::make_unique<Testing::RecordingAccessor>("a", Testing::Journal(), size);
}

/// What every index of an axis of the accessor is in the accessor at the bottom.
std::map<int, int> targetIndices(IBufferAccessor& accessor, int axis) {
    auto const* const filter = dynamic_cast<SubsetFilter const*>(&accessor);
    auto const extent = filter == nullptr ? Extent1{0, 1, accessor.getSize()[axis]} : filter->getSubset()[axis];
    std::map<int, int> indices;
    for (int k = 0; k < extent.count; ++k) {
        indices[k] = extent.origin + k * extent.step;
    }
    return indices;
}

/// The part of a modelled axis that lies inside a target of `size`.
std::map<int, int> seenOf(Testing::ModelledView::Axis const& axis, int size) {
    std::map<int, int> seen;
    if (axis) {
        std::copy_if(axis->begin(), axis->end(), std::inserter(seen, seen.end()), [size](auto const& entry) {
            return 0 <= entry.second && entry.second < size;
        });
    } else {
        for (int index = 0; index < size; ++index) {
            seen[index] = index;
        }
    }
    return seen;
}

TEST(FilterFactory, ShowsWhatAnyViewShows) {
    Testing::Random random;
    int shown = 0;
    for (int round = 0; round < 5000; ++round) {
        auto const view = Testing::randomView(random, 2);
        FixedVector<4, int> size;
        std::generate(size.begin(), size.end(), [&] { return random.between(1, 12); });
        SCOPED_TRACE(testing::Message() << *view.def << " of " << size);
        bool ordinal = true;
        std::array<std::map<int, int>, 4> seen;
        for (std::size_t axis = 0; axis < 4; ++axis) {
            seen[axis] = seenOf(view.axes[axis], size[static_cast<int>(axis)]);
            int const count = static_cast<int>(seen[axis].size());
            // A single index may be refused for the step that stands beside it.
            ordinal = ordinal && count > 1 && seen[axis].begin()->first == 0 && seen[axis].rbegin()->first == count - 1;
        }
        try {
            auto const accessor = FilterFactory::MakeView(bottom(size), *view.def);
            ++shown;
            for (std::size_t axis = 0; axis < 4; ++axis) {
                ASSERT_EQ(targetIndices(*accessor, static_cast<int>(axis)), seen[axis]) << "axis " << axis;
            }
        } catch (std::exception const& error) {
            ASSERT_FALSE(ordinal) << error.what();
        }
    }
    EXPECT_GT(shown, 500) << "too few views to mean anything";
}

/// Sends axis a to axis images[a], where it sees `image`.
class OddView : public ArrayViewDef {
  public:
    OddView(FixedVector<4, int> images, Extent1 image) : images_(images), image_(image) {}
    AxisExtent viewToTargetAxisExtent(AxisExtent const& axis) const override { return axis; }
    AxisExtent targetToViewAxisExtent(AxisExtent const& axis) const override { return {images_[axis.first], image_}; }
    int getHashCode() const override { return 0; }

  protected:
    bool compare(ViewDef const&) const override { return false; }
    std::unique_ptr<ViewDef> makeClone() const override { return std::make_unique<OddView>(*this); }

  private:
    FixedVector<4, int> images_;
    Extent1 image_;
};

class ForeignView : public BulkDef::ViewDef {
  public:
    int getHashCode() const override { return 0; }

  protected:
    bool compare(ViewDef const&) const override { return false; }
    std::unique_ptr<ViewDef> makeClone() const override { return std::make_unique<ForeignView>(); }
};

TEST(FilterFactory, SaysWhatItCannotShow) {
    std::string const permuted = "[FilterFactory::MakeView] Axis permutation is not yet supported.";
    std::string const notOrdinal = "[FilterFactory::MakeView] Bulk views must (currently) have ordinal coordinates.";
    OddView const swapped({0, 2, 1, 3}, {0, 1, 2});
    OddView const swappedAndOdd({0, 2, 1, 3}, {0, 2, 2});
    OddView const dropped({-1, 1, 2, 3}, {0, 1, 2});
    OddView const outside({0, 1, 2, 4}, {0, 1, 2});
    ArraySubsetDef<2> const below({Extent1{-1, 1, 5}, Extent1{0, 1, 10}});
    ForeignView const foreign;
    struct Row {
        char const* name;
        BulkDef::ViewDef const& view;
        std::string message;
    };
    Row const rows[] = {
        {"Foreign", foreign, "[FilterFactory::MakeView] Unsupported view definition"},
        {"Swapped", swapped, permuted},
        {"FirstAxisIsTestedFirst", swappedAndOdd, notOrdinal},
        {"NegativeAxis", dropped, permuted},
        {"FifthAxis", outside, permuted},
        {"StartsBelowZero", below, notOrdinal},
    };
    for (Row const& row : rows) {
        try {
            FilterFactory::MakeView(bottom({10, 10, 1, 1}), row.view);
            ADD_FAILURE() << row.name << ": accepted";
        } catch (Exceptions::PlainException const& error) {
            EXPECT_EQ(error.what(), row.message) << row.name;
        }
    }
    try {
        FilterFactory::MakeView(nullptr, foreign);
        ADD_FAILURE() << "no target, no failure";
    } catch (std::invalid_argument const& error) {
        EXPECT_STREQ(error.what(), "[FilterFactory::MakeView] Invalid argument: target is null.");
    }
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
