// SPDX-License-Identifier: Apache-2.0
#pragma once

// Random view definitions, each with a plain model that lists its indices one by one.

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/axes_view_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkdef/view/composite_view_def.h"
#include "dravik/adt/testing/random.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// A view of a host, neither complete nor an array view. By itself it accepts every other view.
class ForeignView : public BulkDef::ViewDef {
  public:
    int getHashCode() const override { return 1; }

  protected:
    bool compare(ViewDef const&) const override { return true; }
    std::unique_ptr<ViewDef> makeClone() const override { return std::make_unique<ForeignView>(); }
};

/// The indices of an extent in its order.
inline std::vector<int> indicesOf(ExtentImpl<int> const& extent) {
    std::vector<int> indices(static_cast<std::size_t>(std::max(extent.count, 0)));
    for (int index = extent.origin; int& slot : indices) {
        slot = index;
        index += extent.step;
    }
    return indices;
}

/// A view and, per axis of the target, the target index of every view index; an axis without a map is left alone by the
/// view.
struct ModelledView {
    using Axis = std::optional<std::map<int, int>>;

    boost::shared_ptr<BulkDef::ViewDef const> def;
    std::array<Axis, 4> axes;
    std::array<std::size_t, 4> order{0, 1, 2, 3};  ///< per axis of the view: that of the target

    bool isComplete() const { return BulkDef::View::CompleteViewDef::Cast(def.get()) != nullptr; }

    ModelledView inverted() const {
        ModelledView inverse{BulkDef::View::CompositeViewDef::inverse(def), {}};
        for (std::size_t axis = 0; axis < axes.size(); ++axis) {
            inverse.order[order[axis]] = axis;
            if (auto const& map = axes[order[axis]]) {
                auto& back = inverse.axes[axis].emplace();
                for (auto const& [viewIndex, targetIndex] : *map) {
                    back.emplace(targetIndex, viewIndex);
                }
            }
        }
        return inverse;
    }

    /// This view looked at through `outer`. Unless one is complete: one index after the other, numbered from 0 in the
    /// outer view's order.
    ModelledView seenThrough(ModelledView const& outer) const {
        ModelledView composed{BulkDef::View::CompositeViewDef::compose(*def, *outer.def), axes, order};
        if (outer.isComplete()) {
            return composed;
        }
        for (std::size_t axis = 0; axis < axes.size(); ++axis) {
            composed.order[axis] = order[outer.order[axis]];
            auto const& inner = axes[order[axis]];
            composed.axes[order[axis]] = isComplete() ? outer.axes[axis] : chained(inner, outer.axes[axis]);
        }
        return composed;
    }

  private:
    static Axis chained(Axis const& inner, Axis const& outer) {
        if (!inner && !outer) {
            return std::nullopt;
        }
        Axis chain(std::in_place);
        int next = 0;
        for (auto const& [viewIndex, middle] : outer ? *outer : *inner) {
            if (!outer || !inner) {
                chain->emplace(next++, middle);
            } else if (auto const found = inner->find(middle); found != inner->end()) {
                chain->emplace(next++, found->second);
            }
        }
        return chain;
    }
};

/// One axis of a small view: steps of either sign, 0 for a single index, now and then nothing at all.
inline ExtentImpl<int> randomExtent(Random& random) {
    int const count = random.between(0, 7);
    int const step = count == 1 ? random.between(-3, 3) : random.oneOf({-3, -2, -1, 1, 2, 3});
    return {random.between(-9, 9), step, count};
}

template <int N>
ModelledView randomSubset(Random& random) {
    ExtentK<N, int> subset;
    ModelledView view;
    for (int axis = 0; axis < N; ++axis) {
        subset[axis] = randomExtent(random);
        auto& map = view.axes[static_cast<std::size_t>(axis)].emplace();
        for (int const index : indicesOf(subset[axis])) {
            map.emplace(static_cast<int>(map.size()), index);
        }
    }
    view.def = boost::make_shared<BulkDef::View::ArraySubsetDef<N> const>(subset);
    return view;
}

template <int N>
ModelledView randomOrder(Random& random) {
    ModelledView view;
    std::shuffle(view.order.begin(), view.order.begin() + N, random.engine());
    FixedVector<N, int> order;
    std::copy_n(view.order.begin(), N, order.begin());
    view.def = boost::make_shared<BulkDef::View::AxesViewDef<N> const>(order);
    return view;
}

/// A view of up to `depth` inversions and compositions of subsets with any number of axes and of complete views, and
/// where it `exchanges`, of exchanged axes.
inline ModelledView randomView(Random& random, int depth, bool exchanges = false) {
    if (depth > 0 && random.chance(70)) {
        ModelledView const view = randomView(random, depth - 1, exchanges);
        return random.chance(40) ? view.inverted() : view.seenThrough(randomView(random, depth - 1, exchanges));
    }
    if (exchanges && random.chance(30)) {
        return random.chance(50) ? randomOrder<3>(random) : randomOrder<4>(random);
    }
    switch (random.between(0, 4)) {
    case 1:
        return randomSubset<1>(random);
    case 2:
        return randomSubset<2>(random);
    case 3:
        return randomSubset<3>(random);
    case 4:
        return randomSubset<4>(random);
    default:
        return {BulkDef::View::CompleteViewDef::Instance(), {}};
    }
}

}  // namespace Quorvel::Dravik::Adt::Testing
