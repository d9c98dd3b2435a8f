// SPDX-License-Identifier: Apache-2.0
#pragma once

// TransferOptions: what a caller may say about the transfer of a region. A plain record. Threads: as its members.

#include "dravik/adt/converters/value_converter.h"

#include <cstdint>
#include <functional>
#include <stop_token>

namespace Quorvel::Dravik::Adt::BulkView {

struct TransferOptions {
    /// Ends the transfer with CancelledException before the next block.
    std::stop_token stop;
    /// Told after each block how many samples of how many have been moved. What it throws ends the transfer.
    /// @threads the calling one only
    std::function<void(std::int64_t done, std::int64_t total)> progress;
    /// In place of the converter that the two sample types call for: for reading from the accessor's type to the
    /// array's, for writing the other way. Where the accessor does not tell its type, this one is believed.
    IValueConverter::ConstPtr converter;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
