// SPDX-License-Identifier: Apache-2.0
#pragma once

// Chain: one chain of accessors for many threads. Threads: any, on every member; the GIL is never needed.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/bulkview/stores/data_info.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace Quorvel::Dravik::Python {

using Extent4 = Adt::ExtentK<4, int>;
using Index4 = Adt::FixedVector<4, int>;
using Adt::BulkView::IBufferAccessor;

/// One clone of a chain and the block that it holds on loan. Threads: one at a time.
class Borrower final : public IBufferAccessor::IClient {
  public:
    explicit Borrower(std::unique_ptr<IBufferAccessor> chain);
    Borrower(Borrower const&) = delete;
    Borrower& operator=(Borrower const&) = delete;
    ~Borrower() override;

    /// Copies the samples of `region`, which is not empty, to `samples`, dense with the last axis fastest; false where
    /// the block held does not have them all.
    bool tryCopy(Extent4 const& region, std::size_t sampleSize, char* samples);

    /// Holds the block around `index` for reading.
    void fetch(Index4 const& index);

    /// The chain without a block and without a client, for `act`.
    void use(std::function<void(IBufferAccessor&)> const& act);

    Adt::BulkView::BufferHandle const& handle() const noexcept { return handle_; }

  private:
    void accessorUpdated() override;
    void bufferInvalidated(Adt::BulkView::BufferHandle::Owner const* owner) override;
    bool prepareBufferRelease(void const* buffer, int& value) override;
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<Adt::BulkView::BufferHandle::Owner> owner) override;
    std::unique_ptr<IBufferAccessor> releaseAccessor() override;

    std::unique_ptr<IBufferAccessor> chain_;
    Adt::BulkView::BufferHandle handle_;
};

/// A chain that is cloned for as many threads as use it at once; idle clones are kept.
class Chain {
  public:
    /// Of `info.axisCount` axes.
    /// @throws std::invalid_argument where the samples' type is unknown
    Chain(std::unique_ptr<IBufferAccessor> prototype, Adt::BulkView::DataInfo info);

    /// Another chain: what `wrap` makes of a clone of this one.
    using Wrap = std::function<std::unique_ptr<IBufferAccessor>(std::unique_ptr<IBufferAccessor>)>;
    std::shared_ptr<Chain> derived(Wrap const& wrap, Adt::BulkView::DataInfo info) const;

    Index4 const& size() const noexcept { return size_; }
    Adt::BulkView::AccessTraits const& traits() const noexcept { return traits_; }
    Adt::BulkView::DataInfo const& info() const noexcept { return info_; }
    int axisCount() const noexcept { return info_.axisCount; }
    bool isSerial() const noexcept { return traits_.concurrency == Adt::BulkView::AccessTraits::Concurrency::Serial; }

    /// Copies a few samples that an idle clone holds on loan; false where none does.
    bool tryCopy(Extent4 const& region, std::size_t sampleSize, char* samples);

    /// Copies the samples of `region`, dense with the last axis fastest, by way of the block around its first one,
    /// which stays on loan; else as `act` of with would.
    void copyByBlock(Extent4 const& region, std::size_t sampleSize, char* samples, std::function<void()> const& other);

    /// Calls act with a clone that nobody else uses meanwhile.
    void with(std::function<void(IBufferAccessor&)> const& act);
    /// As with; what other clones keep of the samples is forgotten afterwards.
    void change(std::function<void(IBufferAccessor&)> const& act);

    /// A clone of its own for a loan that may last.
    std::unique_ptr<Borrower> borrower();
    /// Ends a loan.
    void giveBack(std::unique_ptr<Borrower> borrower);

  private:
    class Lease;
    using Borrowers = std::vector<std::unique_ptr<Borrower>>;

    // What all chains over the same samples share.
    struct Storage {
        std::recursive_mutex one;  // held while a serial chain works
        std::atomic<std::uint64_t> changes = 0;
    };

    std::unique_lock<std::recursive_mutex> lockIfSerial() const;
    Borrowers takeStale();

    Adt::BulkView::DataInfo info_;
    Index4 size_;
    Adt::BulkView::AccessTraits traits_;
    std::unique_ptr<IBufferAccessor> prototype_;
    std::shared_ptr<Storage> storage_;

    mutable std::mutex mutex_;  // of all below, and of cloning
    Borrowers idle_;
    std::uint64_t idleSince_ = 0;  // changes of the storage
};

}  // namespace Quorvel::Dravik::Python
