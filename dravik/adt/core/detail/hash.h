// SPDX-License-Identifier: Apache-2.0
#pragma once

// Hash codes of values made of several parts. Includes next to nothing, since every header that names a position pays
// for it.

#include <cstddef>
#include <cstdint>
#include <typeindex>  // the lightest standard header that declares std::hash

namespace Quorvel::Dravik::Adt::Detail {

/// A hash code that depends on `seed`, on `code`, and on which is which.
constexpr std::size_t mixedHash(std::size_t seed, std::size_t code) noexcept {
    // Every bit of the sum reaches every bit of the result, so that neighbouring positions spread over all buckets.
    std::uint64_t mixed = 3 * std::uint64_t{seed} + code + 0x9E3779B97F4A7C15u;
    mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9u;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBu;
    return static_cast<std::size_t>(mixed ^ mixed >> 31);
}

/// The hash code of the parts in their order. Equal parts, as std::hash sees them, give equal codes.
template <class... Parts>
std::size_t hashOf(Parts const&... parts) {
    std::size_t seed = sizeof...(parts);
    ((seed = mixedHash(seed, std::hash<Parts>()(parts))), ...);
    return seed;
}

}  // namespace Quorvel::Dravik::Adt::Detail
