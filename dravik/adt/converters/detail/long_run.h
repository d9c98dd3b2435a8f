// SPDX-License-Identifier: Apache-2.0
#pragma once

// LongRun: one side of a run of values at any distance from its base. Borrows the buffer. Threads: as `int`.

#include "dravik/adt/converters/type_register.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <type_traits>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// Splits one side of a run into parts that converters, which count from their base in 32 bits, can address.
///
/// A run whose positions all lie in [0, 2^31) is one part and keeps its base. Any other is cut into parts that span at
/// most 2^30 values. The base of a part lies at most 7 values below its lowest sample, so that it begins a whole byte
/// of any type. Unit: values.
template <class Void>
class LongRun {
  public:
    struct Place {
        Void* base;
        int index;
    };

    /// @throws std::runtime_error where there are several parts and TypeRegister does not know `type`
    LongRun(Void* base, std::int64_t first, int stride, int count, std::type_info const& type)
        : base_(base), first_(first), stride_(stride) {
        std::int64_t const last = first + std::int64_t{stride} * std::max(count - 1, 0);
        if (std::min(first, last) < 0 || std::max(first, last) > std::numeric_limits<int>::max()) {
            bits_ = TypeRegister::sizeofTypeInBits(type);
        }
    }

    /// The most values that one part may have, at least 1.
    int longestPart() const noexcept {
        std::int64_t const distance = std::max<std::int64_t>(1, std::abs(std::int64_t{stride_}));
        return bits_ == 0 ? std::numeric_limits<int>::max()
                          : static_cast<int>(std::max<std::int64_t>(1, (std::int64_t{1} << 30) / distance));
    }

    /// Where the part of `count` values that begins with value `start` of the run is.
    Place part(int start, int count) const noexcept {
        std::int64_t const position = first_ + std::int64_t{stride_} * start;
        if (bits_ == 0) {
            return {base_, static_cast<int>(position)};
        }
        std::int64_t const lowest = std::min(position, position + std::int64_t{stride_} * (count - 1));
        std::int64_t const octets = lowest >> 3;
        using Byte = std::conditional_t<std::is_const_v<Void>, char const, char>;
        return {static_cast<Byte*>(base_) + octets * bits_, static_cast<int>(position - octets * 8)};
    }

  private:
    Void* base_;
    std::int64_t first_;
    int stride_;
    int bits_ = 0;  // of a value, where there are several parts
};

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
