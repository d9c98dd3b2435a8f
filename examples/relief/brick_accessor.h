// SPDX-License-Identifier: Apache-2.0
#pragma once

// BrickAccessor: a host's own buffer accessor, over storage that is read brick by brick. Start from this one when you
// write yours: what it does for BrickSource is what the protocol asks of any accessor.

#include "brick_source.h"

#include <dravik/adt/bulkview/buffer_accessor.h>
#include <dravik/adt/bulkview/buffer_handle.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace Relief {

namespace BulkView = Quorvel::Dravik::Adt::BulkView;

/// What accessors that share it have been asked for. Counts may be read from any thread at any time.
struct Traffic {
    std::atomic<std::int64_t> requests{0};  ///< blocks that were lent
    std::atomic<std::int64_t> samples{0};   ///< samples read from the source for them
};

/// Lends a grid of floats for reading, in bricks of one size laid out from index 0; bricks at the far ends are cut off
/// there.
///
/// Reads a brick from its source when it is asked for one, and keeps none itself: each loan has an owner that holds its
/// samples, so a brick lives exactly as long as a handle refers to it. Put a cache filter above it to keep more. The
/// source and the traffic counts are shared with every clone. Sends no notifications, since its data never changes.
/// @threads one chain, one thread; clones may be used on other threads at the same time
class BrickAccessor final : public BulkView::IBufferAccessor {
  public:
    /// @param brickSize samples per axis, at least 1 each, at most 2^31 - 1 together
    /// @param traffic   where requests are counted, null for nowhere
    /// @throws std::invalid_argument for a null source or an empty brick
    BrickAccessor(
        std::shared_ptr<BrickSource const> source, Position const& brickSize,
        std::shared_ptr<Traffic> traffic = nullptr);

    /// @throws ObjectDisposedException after dispose
    Position getSize() override;
    /// Nothing: there is never anything to tell a client.
    void setClient(IClient* client) override;
    /// Nothing: each brick is read when it is asked for.
    void setHint(HintType type, Box const& range, float weight) override;

    /// Lends the brick around `position` for reading. On failure the handle stays as it was.
    /// @throws NotSupportedException for an access that writes
    /// @throws std::out_of_range     for a position outside the grid
    /// @throws ObjectDisposedException after dispose
    /// @throws std::runtime_error    when the source fails
    void getBuffer(Position position, BulkView::AdtEnums::Access access, BulkView::BufferHandle& handle) override;

    /// An accessor of its own over the same source.
    std::unique_ptr<IBufferAccessor> createClone() const override;

    /// Lets go of the source. Bricks that are lent stay with their handles.
    void dispose(bool flag) override;

  private:
    BrickAccessor(BrickAccessor const&) = default;

    BrickSource const& source() const;
    Box brickAround(Position const& position, Position const& size) const;

    std::shared_ptr<BrickSource const> source_;
    Position brickSize_;
    std::shared_ptr<Traffic> traffic_;
};

}  // namespace Relief
