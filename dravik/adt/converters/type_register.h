// SPDX-License-Identifier: Apache-2.0
#pragma once

// TypeRegister: the process-wide table from a value type to its size in bits. Threads: see the class.

#include "dravik/adt/export.h"

#include <typeinfo>

namespace Quorvel::Dravik::Adt {

/// How many bits one value of a type takes in a buffer; the only state is one table for the whole process.
///
/// Sizes are whole numbers of bits, and packed types such as Int1 take less than a byte. Known from the start: bool,
/// the character, 16-, 32- and 64-bit integers (`long long` and std::int64_t, no other `long`, whose width differs
/// between platforms), float, double, the value ranges, vectors and index boxes of core/, and Int1. Types are told
/// apart by their raw names, so the same type in two modules is one entry. Entries are never removed and never change.
/// @threads queries may run at any time, but not during a registration: register before threads share the table
class TypeRegister {
  public:
    /// Gives `type` the size `bits`; giving it the same size again changes nothing. A failure changes nothing either.
    /// @throws std::invalid_argument for fewer than 1 bit, for `void`, and for a type that has another size already
    DRAVIK_ADT_EXPORT static void registerPrimitiveType(std::type_info const& type, int bits);

    /// Whether `type` has a size.
    DRAVIK_ADT_EXPORT static bool isTypeRegisted(std::type_info const& type);

    /// The size of `type` in bits, at least 1.
    /// @throws std::runtime_error "[Adt::TypeRegister] Unknown type: …" where there is none
    DRAVIK_ADT_EXPORT static int sizeofTypeInBits(std::type_info const& type);
};

}  // namespace Quorvel::Dravik::Adt
