// SPDX-License-Identifier: Apache-2.0
#pragma once

// Workers: pieces of one call, done by the caller and by helpers that an executor runs. Threads: see the members.

#include "dravik/adt/bulkview/regions/transfer_options.h"

#include <atomic>
#include <cstdint>
#include <functional>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// What the helpers of a call have done, for the caller to tell.
class Progress {
  public:
    /// Of `total` samples.
    Progress(TransferOptions const& options, std::int64_t total) noexcept : options_(options), total_(total) {}

    /// For one worker's options: the first tells the caller's progress, the others only count.
    std::function<void(std::int64_t, std::int64_t)> ofPiece(int worker);
    /// Counts samples moved.
    void add(int worker, std::int64_t samples);
    /// Tells what helpers did last; for the caller alone.
    void finish();

  private:
    TransferOptions const& options_;
    std::int64_t total_;
    std::atomic<std::int64_t> done_ = 0;
    std::int64_t told_ = 0;
};

/// Calls work(worker, piece) for each piece from 0 on, each once; worker 0 is the caller, and one worker does one piece
/// at a time. Returns once all are done. After a failure no piece is begun any more.
/// @throws the first failure; what the executor throws counts as no helper
void forEachPiece(
    TransferOptions const& options, int workers, std::int64_t pieceCount,
    std::function<void(int worker, std::int64_t piece)> const& work);

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
