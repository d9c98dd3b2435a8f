// SPDX-License-Identifier: Apache-2.0
#pragma once

// RegionTransfer: moves the samples of one region; what implementers of IRegionAccess work with. Threads: the one of
// the chain; notifications from any.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/detail/loan_client.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <cstdint>
#include <functional>

namespace Quorvel::Dravik::Adt::BulkView {

/// Lives for one call. Is the client of the chain meanwhile, so that a block taken back on another thread clears the
/// handle in use. Refers to the options.
class DRAVIK_ADT_EXPORT RegionTransfer {
  public:
    /// A transfer of `total` samples, the total that progress receives.
    RegionTransfer(TransferOptions const& options, std::int64_t total) noexcept;
    RegionTransfer(RegionTransfer const&) = delete;
    RegionTransfer& operator=(RegionTransfer const&) = delete;
    ~RegionTransfer();

    /// Serves `request` by `accessor`, which gets this transfer as its client and has none afterwards.
    void start(IBufferAccessor& accessor, RegionRequest const& request);

    /// Serves `request` by `accessor`, a target of an accessor that was asked itself: at once where it can, else block
    /// by block.
    /// @throws what the accessor throws; Exceptions::CancelledException at the next block once a stop is requested;
    /// std::logic_error, with both, for a block that does not contain the position asked for
    void run(IBufferAccessor& accessor, RegionRequest const& request);

    /// Moves the samples at `places` of the request's region from or to the block in `handle`, which covers them. A
    /// block without memory reads as the null value of the array's type and absorbs writes.
    void copy(RegionRequest const& request, BufferHandle const& handle, OpenEndedRange<4, int> const& places);
    /// Moves all of them.
    void copy(RegionRequest const& request, BufferHandle const& handle);

    /// Sets the samples of the request's array to the null value of their type; nothing where the access is not Read.
    void fill(RegionRequest const& request);

    /// @throws Exceptions::CancelledException once a stop is requested
    void stop() const;

    /// Calls visit(handle) with the block around `index` on loan for reading, once more for each time that the block is
    /// taken back meanwhile.
    using Visit = std::function<void(BufferHandle const& handle)>;
    using Lend = std::function<void(FixedVector<4, int> const& index, Visit const& visit)>;
    /// Calls act with what lends blocks of `accessor`, whose client this transfer is meanwhile.
    void visitBlocks(IBufferAccessor& accessor, std::function<void(Lend const& lend)> const& act);

    /// Tells progress of further samples.
    void moved(std::int64_t samples);

  private:
    void runByBlocks(IBufferAccessor& accessor, RegionRequest const& request);
    TransferOptions const& options_;
    std::int64_t total_;  // samples
    std::int64_t done_ = 0;
    Detail::LoanClient client_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
