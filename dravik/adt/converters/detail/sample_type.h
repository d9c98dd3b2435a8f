// SPDX-License-Identifier: Apache-2.0
#pragma once

// SampleType: the six sample types that converters know, and which of them become which. Threads: as `int`.

#include <concepts>

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// The sample types, in the order of every table over them: the integers by width, then float.
enum class SampleType : int { UnsignedChar, Char, UnsignedShort, Short, Int, Float };

inline constexpr int kSampleTypeCount = 6;

template <class... T>
struct TypeList {};

/// The same types as such.
using SampleTypes = TypeList<unsigned char, char, unsigned short, short, int, float>;

template <class T>
concept Sample = std::same_as<T, unsigned char> || std::same_as<T, char> || std::same_as<T, unsigned short> ||
    std::same_as<T, short> || std::same_as<T, int> || std::same_as<T, float>;

template <Sample T>
constexpr SampleType sampleTypeOf() noexcept {
    if constexpr (std::same_as<T, unsigned char>) {
        return SampleType::UnsignedChar;
    } else if constexpr (std::same_as<T, char>) {
        return SampleType::Char;
    } else if constexpr (std::same_as<T, unsigned short>) {
        return SampleType::UnsignedShort;
    } else if constexpr (std::same_as<T, short>) {
        return SampleType::Short;
    } else if constexpr (std::same_as<T, int>) {
        return SampleType::Int;
    } else {
        return SampleType::Float;
    }
}

/// Whether there is a conversion that only widens: bytes to short, and whatever is before int or float to these.
constexpr bool widens(SampleType in, SampleType out) noexcept {
    return (out == SampleType::Short && in < SampleType::UnsignedShort) || (out >= SampleType::Int && in < out);
}

/// Whether there is a conversion that rounds and saturates without scaling: to every other type of at most 16 bits that
/// does not widen. Float to int is missing.
constexpr bool narrows(SampleType in, SampleType out) noexcept {
    bool const byteToUnsignedShort = out == SampleType::UnsignedShort && in < SampleType::UnsignedShort;
    return in != out && out < SampleType::Int && !widens(in, out) && !byteToUnsignedShort;
}

/// Whether there is a scaled conversion to an integer: all but int and float to int.
constexpr bool scalesToInteger(SampleType in, SampleType out) noexcept {
    return out < SampleType::Int || (out == SampleType::Int && in < SampleType::Int);
}

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
