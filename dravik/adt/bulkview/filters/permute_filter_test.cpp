// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/permute_filter.h"

#include "dravik/adt/bulkdef/view/axes_view_def.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/modelled_views.h"
#include "dravik/adt/testing/recording_chain.h"
#include "dravik/adt/testing/region_law.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <set>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Accessor = std::unique_ptr<IBufferAccessor>;
using Index = FixedVector<4, int>;

Accessor bottom(Index const& size) {
    return std::make_unique<Testing::RecordingAccessor>("a", Testing::Journal(), size);
}

TEST(PermuteFilter, IsOneFilterOrNone) {
    auto target = bottom({2, 3, 4, 5});
    auto const* const self = target.get();
    auto const once = PermuteFilter::Apply(PermuteFilter::Apply(std::move(target), {1, 2, 0, 3}), {3, 0, 1, 2});
    EXPECT_EQ(once->getSize(), Index(5, 3, 4, 2));
    auto const& filter = dynamic_cast<PermuteFilter const&>(*once);
    EXPECT_EQ(filter.order(), Index(3, 1, 2, 0));
    EXPECT_EQ(once->createClone()->getSize(), once->getSize());
    target = PermuteFilter::Apply(PermuteFilter::Apply(bottom({2, 3, 4, 5}), {3, 1, 2, 0}), {3, 1, 2, 0});
    EXPECT_EQ(dynamic_cast<PermuteFilter*>(target.get()), nullptr) << "turned back, though over " << self;
    EXPECT_THROW(PermuteFilter::Apply(nullptr, {0, 1, 2, 3}), std::invalid_argument);
    EXPECT_THAT(
        [] {
            PermuteFilter::Apply(bottom({2, 3, 4, 5}), {0, 1, 2, 2});
        },
        testing::ThrowsMessage<std::invalid_argument>(
            "[PermuteFilter::Apply] Invalid argument: (0,1,2,2) is no order of the axes 0 to 3."));
}

TEST(PermuteFilter, HintsAndTraitsFollowTheAxes) {
    Testing::Journal journal;
    auto const filter = PermuteFilter::Apply(
        std::make_unique<Testing::RecordingAccessor>("a", journal, Index(9, 9, 9, 9)), {1, 2, 0, 3});
    filter->setHint(IBufferAccessor::Prefetch, {{1, 2, 3, 4}, {5, 6, 7, 8}}, 1);
    EXPECT_EQ(journal.take().back(), "a.setHint(0 [3,7)x[1,5)x[2,6)x[4,8) 1)");
}

// Chains of subsets and exchanges against what their definitions' models show, sample by sample.
TEST(PermuteFilter, ShowsWhatAnyViewShows) {
    Testing::Random random;
    int shownCount = 0;
    for (int round = 0; round < 1500 && !HasFailure(); ++round) {
        auto const view = Testing::randomView(random, 2, /*exchanges=*/true);
        Testing::PlainArray<int> data(
            {random.between(1, 6), random.between(1, 6), random.between(1, 6), random.between(1, 6)});
        std::iota(data.samples().begin(), data.samples().end(), 0);
        Accessor accessor;
        try {
            accessor = FilterFactory::MakeView(std::make_unique<Testing::BrickAccessor<int>>(data), *view.def);
        } catch (std::exception const&) {
            continue;  // nothing to see, or not from 0 on
        }
        shownCount += view.order != std::array<std::size_t, 4>{0, 1, 2, 3};
        Testing::forEachIndex(OpenEndedRange<4, int>::OfSize(accessor->getSize()), [&](Index const& place) {
            Index target;
            for (int axis = 0; axis < 4; ++axis) {
                auto const on = view.order[static_cast<std::size_t>(axis)];
                auto const& map = view.axes[on];
                target[static_cast<int>(on)] = map ? map->at(place[axis]) : place[axis];
            }
            EXPECT_EQ(Testing::lentSample<int>(*accessor, place), data.at(target)) << *view.def << " at " << place;
            return !HasFailure();
        });
        Testing::expectRegionsAreItsSamples<int>(*accessor, /*writes=*/true);
    }
    EXPECT_GT(shownCount, 100) << "too few exchanges to mean anything";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
