// SPDX-License-Identifier: Apache-2.0
#pragma once

// Whole regions through a typed view. Threads: as the view.

#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/views/typed_view_base.h"
#include "dravik/adt/core/shared_array.h"

#include <concepts>

namespace Quorvel::Dravik::Adt::BulkView {

namespace Detail {

/// The extents on four axes.
template <int N>
ExtentK<4, int> widened(ExtentK<N, int> const& region) {
    ExtentK<4, int> wide;
    for (int axis = 0; axis < 4; ++axis) {
        wide.data()[axis] = axis < N ? region.data()[axis] : ExtentImpl<int>{0, 1, 1};
    }
    return wide;
}

}  // namespace Detail

/// As readRegion of the view's chain. What the view has written and still holds back is carried down first; the view
/// holds no block afterwards.
/// @throws as readRegion, ViewException without an accessor
template <int N, class T, class Traits>
void readRegion(
    TypedViewBase<N, T, Traits> const& view, ExtentK<N, int> const& region, ArrayRef<N> const& destination,
    TransferOptions const& options = {}) {
    view.useAccessor(
        [&](IBufferAccessor& chain) { readRegion(chain, Detail::widened(region), ArrayRef<4>(destination), options); });
}

/// The samples of `region` in new memory, dense with the last axis fastest.
/// @throws as readRegion and SharedArray::Make
template <int N, class T, class Traits>
SharedArray<N> readRegion(
    TypedViewBase<N, T, Traits> const& view, ExtentK<N, int> const& region, TransferOptions const& options = {}) {
    FixedVector<N, int> size;
    for (int axis = 0; axis < N; ++axis) {
        size.data()[axis] = region.data()[axis].count;
    }
    auto const array = SharedArray<N>::template Make<T>(OpenEndedRange<N, int>::OfSize(size));
    readRegion(view, region, static_cast<ArrayRef<N> const&>(array), options);
    return array;
}

/// As writeRegion of the view's chain, for views that write.
/// @throws as writeRegion, ViewException without an accessor
template <int N, class T, class Traits, template <class, class> class View>
requires std::derived_from<View<T, Traits>, TypedViewBase<N, T, Traits>> &&
    requires(View<T, Traits>& view, FixedVector<N, int> index, T sample) {
    view.set(index, sample);
}
void writeRegion(
    View<T, Traits>& view, ExtentK<N, int> const& region, ArrayConstRef<N> const& source,
    TransferOptions const& options = {}) {
    view.useAccessor([&](IBufferAccessor& chain) {
        writeRegion(chain, Detail::widened(region), ArrayConstRef<4>(source), options);
    });
}

}  // namespace Quorvel::Dravik::Adt::BulkView
