// SPDX-License-Identifier: Apache-2.0
#pragma once

// FixedVector: N components side by side, the way every position, size and stride vector is written. A plain value that
// owns nothing beyond its components. Threads: as `int`.

#include "dravik/adt/core/detail/hash.h"
#include "dravik/adt/export.h"

#include <concepts>
#include <cstddef>
#include <iosfwd>
#include <limits>
#include <type_traits>

namespace Quorvel::Dravik::Adt {

namespace Detail {

/// Throws std::invalid_argument "[Adt::FixedVector] Index out of bounds." and the two numbers.
[[noreturn]] DRAVIK_ADT_EXPORT void throwFixedVectorIndexOutOfBounds(int axis, int componentCount);

/// Converts to T without loss, whatever the value.
template <class From, class T>
concept FitsInto = std::convertible_to<From, T> &&
    (requires(From const& value) { T{value}; } ||
     (std::integral<From> && std::floating_point<T> &&
      std::numeric_limits<From>::digits <= std::numeric_limits<T>::digits));

}  // namespace Detail

/// N components of type T, zero-filled unless given; nothing else.
///
/// Carries no unit of its own: positions are absolute indices, sizes and strides are samples. Threads: as `int`.
///
///     FixedVector<3, int> size(4, 5, 6);
///     FixedVector<4, int> position(FixedVector<2, int>(7, 8), 0);  // (7,8,0,0)
template <int N, class T>
class FixedVector {
    static_assert(N > 0, "A FixedVector has at least one component.");

  public:
    using value_type = T;

    constexpr FixedVector() noexcept = default;

    /// The N components in order. What T may not hold does not compile: a `long` or a `double` where T is `int`.
    template <Detail::FitsInto<T>... Components>
    requires(sizeof...(Components) == N) constexpr explicit(N == 1)
        FixedVector(Components const&... components) noexcept
        : components_{static_cast<T>(components)...} {}

    /// The components of `shorter`, then `fill` in every added one.
    template <int M, Detail::FitsInto<T> Fill>
    requires(M < N) constexpr FixedVector(FixedVector<M, T> const& shorter, Fill const& fill) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            components_[axis] = axis < M ? shorter.data()[axis] : static_cast<T>(fill);
        }
    }

    /// The vector with `value` in every component.
    template <Detail::FitsInto<T> Value>
    static constexpr FixedVector Filled(Value const& value) noexcept {
        FixedVector filled;
        for (T& component : filled.components_) {
            component = static_cast<T>(value);
        }
        return filled;
    }

    /// Component `axis`, compared as unsigned.
    /// @throws std::invalid_argument "[Adt::FixedVector] Index out of bounds.", the axis and N after it, for an axis of
    /// N or more, or below 0
    constexpr T& operator[](int axis) { return components_[checked(axis)]; }
    constexpr T const& operator[](int axis) const { return components_[checked(axis)]; }

    /// The components as a plain array of N, for loops that cannot leave it: no check.
    constexpr T* data() noexcept { return components_; }
    constexpr T const* data() const noexcept { return components_; }
    constexpr T* begin() noexcept { return components_; }
    constexpr T const* begin() const noexcept { return components_; }
    constexpr T* end() noexcept { return components_ + N; }
    constexpr T const* end() const noexcept { return components_ + N; }
    static constexpr int size() noexcept { return N; }

    /// Whether every component is below that of `bound`. Not the negation of allGreaterEqual.
    constexpr bool allLess(FixedVector const& bound) const noexcept {
        bool all = true;
        for (int axis = 0; axis < N; ++axis) {
            all = all && components_[axis] < bound.components_[axis];
        }
        return all;
    }

    /// Whether every component is at least that of `bound`.
    constexpr bool allGreaterEqual(FixedVector const& bound) const noexcept {
        bool all = true;
        for (int axis = 0; axis < N; ++axis) {
            all = all && components_[axis] >= bound.components_[axis];
        }
        return all;
    }

    /// Whether every component equals `value`.
    constexpr bool allEqual(T const& value) const noexcept {
        bool all = true;
        for (int axis = 0; axis < N; ++axis) {
            all = all && components_[axis] == value;
        }
        return all;
    }

    /// Component-wise sum and difference. 32-bit coordinates wrap instead of overflowing.
    constexpr FixedVector& operator+=(FixedVector const& other) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            components_[axis] = wrapped(widened(components_[axis]) + widened(other.components_[axis]));
        }
        return *this;
    }
    constexpr FixedVector& operator-=(FixedVector const& other) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            components_[axis] = wrapped(widened(components_[axis]) - widened(other.components_[axis]));
        }
        return *this;
    }
    friend constexpr FixedVector operator+(FixedVector left, FixedVector const& right) noexcept {
        return left += right;
    }
    friend constexpr FixedVector operator-(FixedVector left, FixedVector const& right) noexcept {
        return left -= right;
    }

    friend constexpr bool operator==(FixedVector const&, FixedVector const&) = default;

    /// Writes "(1,2,3)".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, FixedVector const& vector) {
        char const* separator = "(";
        for (T const& component : vector.components_) {
            out << separator << component;
            separator = ",";
        }
        return out << ")";
    }

  private:
    static constexpr int checked(int axis) {
        if (static_cast<unsigned>(axis) >= static_cast<unsigned>(N)) {
            Detail::throwFixedVectorIndexOutOfBounds(axis, N);
        }
        return axis;
    }

    // Signed sums go through the unsigned type of the same width: the same bits, and defined at the ends of the range.
    static constexpr auto widened(T const& value) noexcept {
        if constexpr (std::signed_integral<T>) {
            return static_cast<std::make_unsigned_t<T>>(value);
        } else {
            return value;
        }
    }
    template <class Wide>
    static constexpr T wrapped(Wide value) noexcept {
        return static_cast<T>(value);
    }

    T components_[N]{};
};

}  // namespace Quorvel::Dravik::Adt

template <int N, class T>
struct std::hash<Quorvel::Dravik::Adt::FixedVector<N, T>> {
    std::size_t operator()(Quorvel::Dravik::Adt::FixedVector<N, T> const& vector) const {
        std::size_t seed = N;
        for (T const& component : vector) {
            seed = Quorvel::Dravik::Adt::Detail::mixedHash(seed, std::hash<T>()(component));
        }
        return seed;
    }
};
