// SPDX-License-Identifier: Apache-2.0
#pragma once

// What goes through dense memory box by box. Threads: those of the executor.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/blocks.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/export.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <typeinfo>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// What the workers of a call have of their own: one chain each, the first the caller's.
class ChainPerWorker {
  public:
    /// Clones `accessor` for all workers but the first, once what it holds back has been carried down.
    ChainPerWorker(IBufferAccessor& accessor, int workers);

    IBufferAccessor& operator[](int worker) const noexcept;

  private:
    IBufferAccessor& first_;
    std::vector<std::unique_ptr<IBufferAccessor>> others_;
};

/// As many workers as `options` allow for pieces of this memory each; 1 unless all the chains may work at once.
int workersFor(
    TransferOptions const& options, std::initializer_list<AccessTraits const*> chains, std::int64_t pieceCount,
    std::int64_t bytesEach);

/// Samples of a natural block, as far as it can lie in `range`.
/// @pre the range is not empty
std::int64_t samplesOfBlock(AccessTraits const& traits, OpenEndedRange<4, int> const& range);

/// Memory as an array of the box's samples, dense with the last axis fastest.
ArrayRef<4> denseArray(char* memory, OpenEndedRange<4, int> const& box, std::type_info const& type, int bitSize);

/// Reads the boxes one by one into dense memory of `type` and calls work(box, array) with it.
/// @throws as readRegion, and what `work` throws
DRAVIK_ADT_EXPORT void forEachDenseBlock(
    IBufferAccessor& accessor, Blocks const& blocks, std::type_info const& type, int bitSize,
    std::function<void(OpenEndedRange<4, int> const& box, ArrayRef<4> const& array)> const& work,
    TransferOptions const& options);

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
