// SPDX-License-Identifier: Apache-2.0
#pragma once

// Brick: the samples of one box of a store, in memory. Threads: references from any thread; what the table notes about
// it is guarded by the mutex of its shard.

#include "dravik/adt/bulkview/buffer_handle.h"
#include "dravik/adt/bulkview/stores/detail/pooled_store.h"
#include "dravik/adt/core/range.h"

#include <boost/intrusive/list.hpp>
#include <boost/intrusive/unordered_set.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

class BrickTable;

/// Strides of the samples of a box that lie side by side, the last axis fastest.
FixedVector<4, int> denseStrides(OpenEndedRange<4, int> const& box) noexcept;

/// Which brick of which store.
struct BrickKey {
    PooledStore const* store;
    FixedVector<4, int> corner;  ///< the first index of the brick's box

    friend bool operator==(BrickKey const&, BrickKey const&) = default;
};

std::size_t hashOf(BrickKey const& key) noexcept;

using InTable = boost::intrusive::unordered_set_base_hook<>;
using InOrder = boost::intrusive::list_base_hook<>;

/// Owns the memory of the samples; handles hold it as the owner of their loan.
class Brick final : public BufferHandle::Owner, public InTable, public InOrder {
  public:
    enum class State { kLoading, kReady, kFailed };

    enum class Memory { kOwn, kNone };

    /// With memory for the samples, which hold anything, or without it: then it takes the place of the brick alone.
    Brick(
        std::shared_ptr<BrickTable> table, std::shared_ptr<PooledStore> store, OpenEndedRange<4, int> const& box,
        Memory memory);

    BrickKey key() const noexcept { return {store_.get(), box().min}; }
    PooledStore& store() const noexcept { return *store_; }
    OpenEndedRange<4, int> const& box() const noexcept { return info_.range; }
    std::byte* samples() const noexcept { return samples_.get(); }
    std::int64_t byteSize() const noexcept { return byteSize_; }
    BufferHandle::ArrayInfo const& info() const noexcept { return info_; }

    void read() { store_->read(box(), samples_.get()); }
    void write() { store_->write(box(), samples_.get()); }
    /// Writes what is written where no other chance is left, and tells of a loss.
    void writeAtLast() noexcept;

    std::int32_t references() const noexcept { return getReferenceCount(); }
    /// A further reference, null once the last one has gone.
    static boost::intrusive_ptr<Brick> share(Brick& brick);

    // What the table notes, under the mutex of the shard.

    boost::intrusive_ptr<Brick> kept;  ///< the table's own reference; null for a brick that passes through
    State state = State::kLoading;
    bool isWritten = false;     ///< lent for writing since it was last carried down
    bool isCarried = false;     ///< a thread is carrying it down
    bool wasAskedFor = true;    ///< since the last look for room; a new one counts as asked for, as those before it do
    std::uint64_t turn = 0;     ///< its place in the line of those that are looked at for room
    std::int64_t writers = 0;   ///< how often it was lent for writing
    std::uint64_t flushed = 0;  ///< the last flush that met it

  private:
    ~Brick() override;
    void dispose() override;

    std::shared_ptr<BrickTable> table_;
    std::shared_ptr<PooledStore> store_;
    BufferHandle::ArrayInfo info_;
    std::int64_t byteSize_;
    std::unique_ptr<std::byte[]> samples_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
