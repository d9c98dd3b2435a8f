// SPDX-License-Identifier: Apache-2.0
#pragma once

// TransferOptions: what a caller may say about the transfer of a region. A plain record. Threads: as its members.

#include "dravik/adt/converters/value_converter.h"

#include <cstdint>
#include <functional>
#include <stop_token>

namespace Quorvel::Dravik::Adt::BulkView {

struct TransferOptions {
    /// Starts a task now, later or never, on any thread; it may run it at once.
    using Executor = std::function<void(std::function<void()> task)>;

    /// Ends the transfer with CancelledException before the next block.
    std::stop_token stop = {};
    /// Called after each block with the samples moved so far and their total. What it throws ends the transfer.
    /// @threads the calling one only
    std::function<void(std::int64_t done, std::int64_t total)> progress = {};
    /// Runs the helpers of the call. The caller works as well, and waits only for helpers that have begun: a task that
    /// begins later does nothing. Used where clones of the chain may work at the same time, and not for
    /// single bits. The chain must not change meanwhile, as by a new target of a proxy, and no
    /// block of it may be on loan while samples are written.
    Executor executor = {};
    int workers = 1;  ///< threads at most, the calling one included
    /// Bytes of memory that calls which take samples through memory of their own may use for it, all workers together;
    /// one natural block each in any case.
    std::int64_t byteBudget = std::int64_t{64} << 20;
    /// In place of the converter that the two sample types call for: for reading from the accessor's type to the
    /// array's, for writing the other way. Where the accessor does not tell its type, this one is believed.
    IValueConverter::ConstPtr converter = {};
};

}  // namespace Quorvel::Dravik::Adt::BulkView
