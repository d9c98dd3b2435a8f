// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a harness reads its decisions from, and how it complains. Bytes that have run out read as 0, so every input is
// a valid one.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>

namespace Quorvel::Dravik::Adt::Fuzz {

/// The bytes of one input, taken from the front. Borrows them.
class Input {
  public:
    Input(std::uint8_t const* data, std::size_t size) : data_(data), size_(size) {}

    bool isEmpty() const { return size_ == 0; }

    template <std::integral T>
    T take() {
        T value{};
        std::size_t const count = size_ < sizeof(T) ? size_ : sizeof(T);
        std::memcpy(&value, data_, count);
        data_ += count;
        size_ -= count;
        return value;
    }

    /// A whole number in [lowest, highest], from one byte where that is enough.
    int between(int lowest, int highest) {
        auto const span = static_cast<std::uint64_t>(std::int64_t{highest} - lowest) + 1;
        std::uint64_t const raw = span <= 256 ? take<std::uint8_t>() : take<std::uint32_t>();
        return static_cast<int>(lowest + static_cast<std::int64_t>(raw % span));
    }

    bool flag() { return (take<std::uint8_t>() & 1) != 0; }

    /// Any int, with the ends of its range and small numbers as likely as all others together.
    int anyInt() {
        switch (take<std::uint8_t>() % 4) {
        case 0:
            return between(-8, 8);
        case 1:
            return std::numeric_limits<int>::max() - between(0, 3);
        case 2:
            return std::numeric_limits<int>::min() + between(0, 3);
        default:
            return take<int>();
        }
    }

  private:
    std::uint8_t const* data_;
    std::size_t size_;
};

/// Ends the program with what did not hold and the values that show it.
template <class... Values>
void require(bool holds, char const* what, Values const&... values) {
    if (!holds) {
        std::cerr << what;
        ((std::cerr << " | " << values), ...);
        std::cerr << std::endl;
        std::abort();
    }
}

}  // namespace Quorvel::Dravik::Adt::Fuzz
