// SPDX-License-Identifier: Apache-2.0
#pragma once

// forEachBlock: work on all samples of a box, one dense block after the other. Threads: those of the options' executor.

#include "dravik/adt/bulkview/regions/blocks.h"
#include "dravik/adt/bulkview/regions/detail/dense_blocks.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"

namespace Quorvel::Dravik::Adt::BulkView {

/// Calls work(box, array) for every box of `blocks`: `array` holds its samples as T, dense with the last axis fastest,
/// under the indices of the accessor; a reference to memory that is used again after the call.
///
///     forEachBlock<float>(accessor, blocks, [&](auto const& box, ArrayRef<4> const& array) {
///         auto const* first = reinterpret_cast<float const*>(array.data());
///         sum += std::accumulate(first, first + box.pointCount(), 0.0);
///     });
/// @throws as readRegion, and what `work` throws, after which no box is begun any more
/// @threads with an executor and several workers `work` is called on several threads at once
template <class T, class Work>
void forEachBlock(
    IBufferAccessor& accessor, Blocks const& blocks, Work const& work, TransferOptions const& options = {}) {
    Detail::forEachDenseBlock(
        accessor, blocks, typeid(T), static_cast<int>(8 * sizeof(T)),
        [&](OpenEndedRange<4, int> const& box, ArrayRef<4> const& array) { work(box, array); }, options);
}

}  // namespace Quorvel::Dravik::Adt::BulkView
