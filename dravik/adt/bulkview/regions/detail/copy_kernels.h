// SPDX-License-Identifier: Apache-2.0
#pragma once

// Inner loops of copies between strided memory. Unit: strides and counts in samples of `bytes` bytes. Memory needs no
// alignment. Threads: a call touches its arguments alone.

#include "dravik/adt/converters/detail/row_copies.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// One side of a copy of rows; `data` is its first sample.
template <class Data>
struct RowsOf {
    Data data;
    std::int64_t stride;     ///< from one sample to the next
    std::int64_t rowStride;  ///< from one row to the next
};

/// to[row][k] = from[row][k] for k from 0 to count - 1, row after row.
void copyRows(
    RowsOf<char const*> const& from, RowsOf<char*> const& to, std::int64_t count, std::int64_t rows,
    int bytes) noexcept;

/// Transposes planes of samples of `bytes` bytes. In tiles, so that every cache line is fetched once.
void transpose(Converters::Detail::Transposition const& all, int bytes) noexcept;

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
