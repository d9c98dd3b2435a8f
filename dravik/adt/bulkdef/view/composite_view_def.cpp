// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/composite_view_def.h"

#include "dravik/adt/bulkdef/view/array_map_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/axes_view_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <tuple>

namespace Quorvel::Dravik::Adt::BulkDef::View {

namespace {

// More than any view shows of an axis: what comes back whole has passed by the view's own axes.
constexpr ExtentImpl<int> kEveryIndex = ArrayMapDef<1>::kWhole;

bool isComplete(ViewDef const& view) {
    return CompleteViewDef::Cast(&view) != nullptr;
}

// Two array views, one looked at through the other.
struct Composed {
    Composed(ArrayViewDef const& inner, ArrayViewDef const& outer) {
        int images[4];
        ExtentImpl<int> seen[4];
        for (int axis = 0; axis < 4; ++axis) {
            std::tie(images[axis], seen[axis]) =
                outer.targetToViewAxisExtent(inner.targetToViewAxisExtent({axis, kEveryIndex}));
        }
        bool const isOneToOne = std::is_permutation(images, images + 4, kAxes);
        for (int axis = 0; axis < 4; ++axis) {
            int const shown = isOneToOne ? images[axis] : axis;
            auto& along = seen[axis];
            order[shown] = axis;
            isRestricted[axis] = along != kEveryIndex;
            axisCount = isRestricted[axis] || shown != axis ? axis + 1 : axisCount;
            // Mapped back in the order of the outer view, whatever the directions on the way here.
            along = along.step < 0 ? along.reversed() : along;
            subset[axis] = isRestricted[axis]
                               ? inner.viewToTargetAxisExtent(outer.viewToTargetAxisExtent({shown, along})).second
                               : kEveryIndex;
        }
    }

    bool isPlainSubset() const {
        return std::equal(kAxes, kAxes + 4, order.begin()) &&
               std::count(isRestricted, isRestricted + axisCount, true) == axisCount;
    }

    static constexpr int kAxes[] = {0, 1, 2, 3};
    FixedVector<4, int> order;  // the target's axis per axis of the view
    ExtentK<4, int> subset;     // per axis of the target
    bool isRestricted[4];       // per axis of the target
    int axisCount = 0;          // that one of the views restricts or exchanges, and those before
};

template <int N>
boost::shared_ptr<ViewDef const> viewOfAxes(Composed const& composed) {
    FixedVector<N, int> order;
    ExtentK<N, int> subset;
    std::copy_n(composed.order.begin(), N, order.begin());
    std::copy_n(composed.subset.data(), N, subset.data());
    if (composed.isPlainSubset()) {
        return boost::make_shared<ArraySubsetDef<N> const>(subset);
    }
    if (std::count(composed.isRestricted, composed.isRestricted + N, true) == 0) {
        return boost::make_shared<AxesViewDef<N> const>(order);
    }
    return boost::make_shared<ArrayMapDef<N> const>(order, subset);
}

boost::shared_ptr<ViewDef const> viewOf(Composed const& composed) {
    switch (composed.axisCount) {
    case 0:
        return boost::make_shared<CompleteViewDef const>();
    case 1:
        return viewOfAxes<1>(composed);
    case 2:
        return viewOfAxes<2>(composed);
    case 3:
        return viewOfAxes<3>(composed);
    default:
        return viewOfAxes<4>(composed);
    }
}

}  // namespace

boost::shared_ptr<ViewDef const> CompositeViewDef::compose(ViewDef const& inner, ViewDef const& outer) {
    if (isComplete(inner)) {
        return outer.clone();
    }
    if (isComplete(outer)) {
        return inner.clone();
    }
    return viewOf(Composed(dynamic_cast<ArrayViewDef const&>(inner), dynamic_cast<ArrayViewDef const&>(outer)));
}

boost::shared_ptr<ViewDef const> CompositeViewDef::inverse(ViewDef const& view) {
    if (isComplete(view)) {
        return view.clone();
    }
    return dynamic_cast<ArrayViewDef const&>(view).inverse();
}

boost::shared_ptr<ViewDef const> CompositeViewDef::inverse(boost::shared_ptr<ViewDef const> const& view) {
    return view && !isComplete(*view) ? inverse(*view) : view;
}

boost::shared_ptr<ViewDef const> CompositeViewDef::difference(ViewDef const& a, ViewDef const& b) {
    if (isComplete(b)) {
        return a.clone();
    }
    if (isComplete(a)) {
        return inverse(b);
    }
    throw Exceptions::NotImplementedException("CompositeViewDef::difference is not fully implemented");
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
