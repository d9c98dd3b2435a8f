// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/filter_factory.h"

#include "dravik/adt/bulkdef/view/array_view_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkview/filters/permute_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/exceptions/plain_exception.h"

#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

using BulkDef::View::ArrayViewDef;
using BulkDef::View::CompleteViewDef;
using Extent4 = ExtentK<4, int>;

/// Keeps an image under its axis number; a number that none of the four axes has is dropped with its image.
void keep(AxisExtent const& image, Extent4& extent) {
    if (0 <= image.first && image.first < 4) {
        extent[image.first] = image.second;
    }
}

/// The target's indices as the view numbers them, ascending, on the axes of the view.
/// @throws Exceptions::PlainException unless they run from 0 without gaps on each axis once
Extent4 ordinalViewExtent(ArrayViewDef const& view, FixedVector<4, int> const& targetSize, FixedVector<4, int>& order) {
    Extent4 extent;
    order = FixedVector<4, int>::Filled(-1);
    for (int axis = 0; axis < 4; ++axis) {
        auto image = view.targetToViewAxisExtent({axis, {0, 1, targetSize[axis]}});
        if (image.first < 0 || image.first >= 4 || order[image.first] != -1) {
            throw Exceptions::PlainException("[FilterFactory::MakeView] The view does not show each axis once.");
        }
        if (image.second.step < 0) {
            image.second = image.second.reversed();
        }
        if (image.second.origin != 0 || image.second.step != 1) {
            throw Exceptions::PlainException(
                "[FilterFactory::MakeView] Bulk views must (currently) have ordinal coordinates.");
        }
        order[image.first] = axis;
        extent[image.first] = image.second;
    }
    return extent;
}

}  // namespace

std::unique_ptr<IBufferAccessor> FilterFactory::MakeView(
    std::unique_ptr<IBufferAccessor> target, BulkDef::ViewDef const& view) {
    if (target == nullptr) {
        throw std::invalid_argument("[FilterFactory::MakeView] Invalid argument: target is null.");
    }
    if (CompleteViewDef::Cast(&view) != nullptr) {
        return target;
    }
    auto const* const arrayView = ArrayViewDef::Cast(&view);
    if (arrayView == nullptr) {
        throw Exceptions::PlainException("[FilterFactory::MakeView] Unsupported view definition");
    }
    FixedVector<4, int> order;
    auto const viewExtent = ordinalViewExtent(*arrayView, target->getSize(), order);
    Extent4 subset;
    for (int axis = 0; axis < 4; ++axis) {
        keep(arrayView->viewToTargetAxisExtent({axis, viewExtent[axis]}), subset);
    }
    return PermuteFilter::Apply(SubsetFilter::MakeSubset(std::move(target), subset), order);
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
