// SPDX-License-Identifier: Apache-2.0
#pragma once

// Conversions of contiguous runs and copies of rows, as tables of plain functions over pairs of sample types. Threads:
// functions without state; the tables never change.

#include "dravik/adt/converters/detail/pair_table.h"
#include "dravik/adt/converters/detail/row_copies.h"
#include "dravik/adt/converters/detail/sample_arithmetic.h"
#include "dravik/adt/converters/detail/sample_type.h"

#include <array>
#include <cstddef>
#include <span>

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// Converts `count` > 0 values from `in` to `out`, which need no alignment. They may overlap where `out` does not lie
/// behind `in` and its values are not the larger ones.
using RunFunction = void (*)(void const* in, void* out, std::ptrdiff_t count, Linear const& linear);

/// One function per pair, by input and output type; null where there is no such conversion.
using RunTable = PairTable<RunFunction>;

/// The conversions in the code of one instruction set.
struct InstructionSet {
    char const* name;
    RunTable basic;   ///< without scaling; null as well where the reference is as fast
    RunTable scaled;  ///< any finite scale and offset
    /// In single precision with one rounding, where that gives the same bits; null where it never does or where the set
    /// has no such instruction. See scaledRun.
    RunTable fused;
    /// The bytes of each value in the opposite order, for values of 2, 4 and 8 bytes.
    std::array<RunFunction, 3> swap;
    RowCopies rows;
};

/// The code that every other set agrees with, bit for bit: one value after the other.
InstructionSet const& referenceSet() noexcept;

/// The sets that this processor can run, the reference among them, the fastest first.
std::span<InstructionSet const* const> instructionSets() noexcept;

/// The fastest function of `set` for a scaled conversion with this scale and offset.
RunFunction scaledRun(InstructionSet const& set, SampleType in, SampleType out, Linear const& linear) noexcept;

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
