// SPDX-License-Identifier: Apache-2.0
#pragma once

// SampleType: the sample types that converters know, and which of them become which. Threads: as `int`.

#include <concepts>
#include <cstdint>

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// The sample types, in the order of every table over them: the integers by width and float, then those that files
/// store beside them.
enum class SampleType : int { UnsignedChar, Char, UnsignedShort, Short, Int, Float, UnsignedInt, Int64, Double };

inline constexpr int kSampleTypeCount = 9;

template <class... T>
struct TypeList {};

/// The same types as such.
using SampleTypes =
    TypeList<unsigned char, char, unsigned short, short, int, float, unsigned int, std::int64_t, double>;

template <class T>
concept Sample = std::same_as<T, unsigned char> || std::same_as<T, char> || std::same_as<T, unsigned short> ||
    std::same_as<T, short> || std::same_as<T, int> || std::same_as<T, float> || std::same_as<T, unsigned int> ||
    std::same_as<T, std::int64_t> || std::same_as<T, double>;

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
    } else if constexpr (std::same_as<T, float>) {
        return SampleType::Float;
    } else if constexpr (std::same_as<T, unsigned int>) {
        return SampleType::UnsignedInt;
    } else if constexpr (std::same_as<T, std::int64_t>) {
        return SampleType::Int64;
    } else {
        return SampleType::Double;
    }
}

/// Whether a type is there for what files store: without scaling, and beside float and double alone.
constexpr bool isStorageType(SampleType type) noexcept {
    return type > SampleType::Float;
}

/// Whether there is a conversion that only widens: bytes to short, and whatever is before int or float to these.
constexpr bool widens(SampleType in, SampleType out) noexcept {
    return !isStorageType(out) &&
           ((out == SampleType::Short && in < SampleType::UnsignedShort) || (out >= SampleType::Int && in < out));
}

/// Whether there is a conversion that rounds and saturates without scaling: to every other type of at most 16 bits that
/// does not widen. Float to int is missing.
constexpr bool narrows(SampleType in, SampleType out) noexcept {
    bool const byteToUnsignedShort = out == SampleType::UnsignedShort && in < SampleType::UnsignedShort;
    return !isStorageType(in) && in != out && out < SampleType::Int && !widens(in, out) && !byteToUnsignedShort;
}

/// Whether there is a conversion from or to a type that is there for storage: if the other one is float or double.
constexpr bool convertsStorage(SampleType in, SampleType out) noexcept {
    auto const isFloating = [](SampleType type) { return type == SampleType::Float || type == SampleType::Double; };
    return in != out && (isStorageType(in) || isStorageType(out)) && (isFloating(in) || isFloating(out));
}

/// Whether there is a conversion without scaling.
constexpr bool converts(SampleType in, SampleType out) noexcept {
    return widens(in, out) || narrows(in, out) || convertsStorage(in, out);
}

/// Whether there is a scaled conversion to an integer: all but int and float to int.
constexpr bool scalesToInteger(SampleType in, SampleType out) noexcept {
    return !isStorageType(in) && (out < SampleType::Int || (out == SampleType::Int && in < SampleType::Int));
}

/// Whether there is a scaled conversion.
constexpr bool scales(SampleType in, SampleType out) noexcept {
    return (!isStorageType(in) && out == SampleType::Float) || scalesToInteger(in, out);
}

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
