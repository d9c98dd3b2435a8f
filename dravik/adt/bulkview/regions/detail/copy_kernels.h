// SPDX-License-Identifier: Apache-2.0
#pragma once

// Inner loops of copies between strided memory. Unit: strides and counts in samples of `bytes` bytes. Memory needs no
// alignment. Threads: a call touches its arguments alone.

#include <cstdint>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// out[k * outStride] = in[k * inStride] for k from 0 to count - 1, in this order.
void copyRow(
    char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t count, int bytes) noexcept;

/// out[j * outStride + i] = in[i * inStride + j] for i below `inner`, j below `across`: both sides are dense, along
/// different axes. In tiles, so that every cache line is fetched once.
void transpose(
    char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t inner, std::int64_t across,
    int bytes) noexcept;

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
