// SPDX-License-Identifier: Apache-2.0
#pragma once

// Hasher: gathers numbers, pointers and texts into one 32-bit hash code. A plain value; threads: as `int`.

#include "dravik/adt/export.h"

#include <string>
#include <typeinfo>

namespace Quorvel::Dravik::Adt {

/// A running hash code that every call mixes one more value into.
///
/// The code depends on the values and their order alone, for numbers and texts also across processes. Write numbers as
/// `0u` and texts as `std::string`: a literal 0 fits three overloads, and a text literal is taken for its address.
///
///     int const code = Hasher(17)(path)(static_cast<unsigned>(format));
class Hasher {
  public:
    constexpr explicit Hasher(unsigned int seed) noexcept : hash_(seed) {}

    /// Mixes in a number.
    constexpr Hasher& operator()(unsigned int value) noexcept {
        hash_ = (hash_ + value) * magic_1_ + magic_2_;
        return *this;
    }

    /// Mixes in the low 32 bits of an address, as a number.
    DRAVIK_ADT_EXPORT Hasher& operator()(void const* pointer) noexcept;

    /// Mixes in the characters before the first zero byte, by a rule of their own; an empty text changes nothing.
    DRAVIK_ADT_EXPORT Hasher& operator()(std::string const& text) noexcept;

    /// Mixes in the characters of the type's raw name, as a text.
    DRAVIK_ADT_EXPORT Hasher& operator()(std::type_info const& type) noexcept;

    /// The code of everything mixed in so far.
    constexpr operator int() const noexcept { return static_cast<int>(hash_); }

  private:
    void hashCStr(char const* text) noexcept;

    static constexpr unsigned int magic_1_ = 0x9E3779B9;
    static constexpr unsigned int magic_2_ = 5;

    unsigned int hash_;
};

}  // namespace Quorvel::Dravik::Adt
