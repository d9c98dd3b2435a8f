// SPDX-License-Identifier: Apache-2.0
#pragma once

// BlockWalk: the blocks of an accessor that hold a wanted index, one after the other. Threads: the one of the chain.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/range.h"

#include <cstdint>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// Asks for blocks until every index of an extent has been in one. On a regular bricking each brick that holds a wanted
/// index is asked for once, and no other.
///
/// Unit of boxes: places of the extent, from 0 to its counts. Refers to the accessor and the handle.
class BlockWalk {
  public:
    using Box = OpenEndedRange<4, int>;

    /// @pre steps are positive, the extent is not empty
    BlockWalk(IBufferAccessor& accessor, ExtentK<4, int> const& extent, AdtEnums::Access access, BufferHandle& handle);

    bool isAtEnd() const noexcept { return rest_.empty(); }

    /// Makes the handle hold the next block.
    /// @throws what the accessor throws; std::logic_error for a block without the position asked for
    void fetch();
    /// The places that the block serves.
    Box const& places() const noexcept { return places_; }
    /// Whether the block is still on loan as it was fetched; if not, fetch again.
    bool stands() noexcept { return handle_.standsSince(notices_); }
    /// Goes on to what the block does not serve.
    void advance();

  private:
    FixedVector<4, int> nextIndex() const;
    Box servedBy(OpenEndedRange<4, int> const& block) const;

    IBufferAccessor& accessor_;
    ExtentK<4, int> extent_;
    AdtEnums::Access access_;
    BufferHandle& handle_;
    std::uint64_t notices_ = 0;  // to the handle, before the block was asked for
    Box places_;
    std::vector<Box> rest_;  // boxes still to serve, the next one last
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
