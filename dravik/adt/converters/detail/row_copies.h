// SPDX-License-Identifier: Apache-2.0
#pragma once

// Copies of several rows, without a conversion. Threads: functions without state.

#include <array>
#include <cstddef>
#include <cstdint>

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// Copies `rows` rows of `count` samples each, one after the other; inRow and outRow are bytes from one row to the
/// next. Nothing beside the samples is touched. Memory needs no alignment, and what is read must not be written.
using RowsFunction = void (*)(
    char const* in, std::ptrdiff_t inRow, char* out, std::ptrdiff_t outRow, std::int64_t count, std::int64_t rows);

/// Rectangles of samples whose rows become columns: row r, column c of plane p goes from in + p * inPlane + r * inRow
/// to out + p * outPlane + c * outRow, c and r samples on. Unit of strides: bytes.
struct Transposition {
    char const* in;
    std::ptrdiff_t inRow;
    std::ptrdiff_t inPlane;
    char* out;
    std::ptrdiff_t outRow;
    std::ptrdiff_t outPlane;
    std::int64_t rows;
    std::int64_t columns;
    std::int64_t planes;
};
/// What is written must not overlap itself. Memory needs no alignment, and what is read must not be written.
using TransposeFunction = void (*)(Transposition const&);

/// By the logarithm of a sample's bytes (1, 2, 4, 8); null where plain loops are as fast.
struct RowCopies {
    std::array<RowsFunction, 4> plain;        ///< out[k] = in[k]
    std::array<RowsFunction, 4> reversed;     ///< out[k] = in[-k]
    std::array<RowsFunction, 4> everySecond;  ///< out[k] = in[2 k]
    std::array<RowsFunction, 4> everyThird;   ///< out[k] = in[3 k]
    std::array<TransposeFunction, 4> transposed;
};

/// In the fastest code that this processor can run.
RowCopies const& rowCopies() noexcept;

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
