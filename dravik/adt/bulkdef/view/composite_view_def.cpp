// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/composite_view_def.h"

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>

namespace Quorvel::Dravik::Adt::BulkDef::View {

namespace {

// More than any view shows of an axis: what comes back whole has passed by the view's own axes.
constexpr ExtentImpl<int> kEveryIndex{-1073741824, 1, 2147483647};

bool isComplete(ViewDef const& view) {
    return CompleteViewDef::Cast(&view) != nullptr;
}

template <int N>
boost::shared_ptr<ViewDef const> subsetOf(ExtentK<4, int> const& axes) {
    ExtentK<N, int> subset;
    std::copy_n(axes.data(), N, subset.data());
    return boost::make_shared<ArraySubsetDef<N> const>(subset);
}

boost::shared_ptr<ViewDef const> viewOf(int axisCount, ExtentK<4, int> const& axes) {
    switch (axisCount) {
    case 0:
        return boost::make_shared<CompleteViewDef const>();
    case 1:
        return subsetOf<1>(axes);
    case 2:
        return subsetOf<2>(axes);
    case 3:
        return subsetOf<3>(axes);
    default:
        return subsetOf<4>(axes);
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
    auto const& innerArray = dynamic_cast<ArrayViewDef const&>(inner);
    auto const& outerArray = dynamic_cast<ArrayViewDef const&>(outer);
    ExtentK<4, int> axes;
    int axis = 0;
    for (; axis < 4; ++axis) {
        ExtentImpl<int> seen =
            outerArray.targetToViewAxisExtent(innerArray.targetToViewAxisExtent({axis, kEveryIndex})).second;
        if (seen == kEveryIndex) {
            break;
        }
        // Mapped back in the order of the outer view, whatever the directions on the way here.
        seen = seen.step < 0 ? seen.reversed() : seen;
        axes[axis] = innerArray.viewToTargetAxisExtent(outerArray.viewToTargetAxisExtent({axis, seen})).second;
    }
    return viewOf(axis, axes);
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
