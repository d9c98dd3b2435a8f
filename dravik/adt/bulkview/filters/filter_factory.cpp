// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/filter_factory.h"

#include "dravik/adt/bulkdef/view/array_view_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
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

/// The target's indices as the view numbers them, ascending.
/// @throws Exceptions::PlainException unless they run from 0 without gaps on the same axes
Extent4 ordinalViewExtent(ArrayViewDef const& view, FixedVector<4, int> const& targetSize) {
    Extent4 extent;
    FixedVector<4, int> images;
    for (int axis = 0; axis < 4; ++axis) {
        auto const image = view.targetToViewAxisExtent({axis, {0, 1, targetSize[axis]}});
        images[axis] = image.first;
        keep(image, extent);
    }
    for (int axis = 0; axis < 4; ++axis) {
        if (images[axis] != axis) {
            throw Exceptions::PlainException("[FilterFactory::MakeView] Axis permutation is not yet supported.");
        }
        if (extent[axis].step < 0) {
            extent[axis] = extent[axis].reversed();
        }
        if (extent[axis].origin != 0 || extent[axis].step != 1) {
            throw Exceptions::PlainException(
                "[FilterFactory::MakeView] Bulk views must (currently) have ordinal coordinates.");
        }
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
    auto const viewExtent = ordinalViewExtent(*arrayView, target->getSize());
    Extent4 subset;
    for (int axis = 0; axis < 4; ++axis) {
        keep(arrayView->viewToTargetAxisExtent({axis, viewExtent[axis]}), subset);
    }
    return SubsetFilter::MakeSubset(std::move(target), subset);
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
