// SPDX-License-Identifier: Apache-2.0
#pragma once

// Axis-aligned boxes: OpenEndedRange for indices (upper corner exclusive), ClosedRange for values (upper corner
// inclusive). Plain records that own nothing. Threads: as `int`.

#include "dravik/adt/core/detail/saturated.h"
#include "dravik/adt/core/fixed_vector.h"

#include <cstdint>
#include <limits>

namespace Quorvel::Dravik::Adt {

/// Half-open box of indices: every p with min[a] <= p[a] < max[a] on each axis a.
///
/// Two plain vectors, no heap. Unit: absolute indices of the data set, never samples or bytes. Empty as soon as
/// max[a] <= min[a] on one axis; equality compares the corners, so two empty boxes may differ. Threads: as `int`.
template <int N, class T>
struct OpenEndedRange {
    using Point = FixedVector<N, T>;

    Point min;  ///< inclusive lower corner
    Point max;  ///< exclusive upper corner

    /// The box [0, 0) on every axis.
    constexpr OpenEndedRange() noexcept = default;
    constexpr OpenEndedRange(Point const& lower, Point const& upper) noexcept : min(lower), max(upper) {}

    /// The box [0, size) on every axis.
    static constexpr OpenEndedRange OfSize(Point const& size) noexcept { return {Point(), size}; }

    /// The box [first, first + size) on every axis, cut where it leaves T.
    static constexpr OpenEndedRange OfSize(Point const& first, Point const& size) noexcept {
        OpenEndedRange box(first, first);
        for (int axis = 0; axis < N; ++axis) {
            box.max.data()[axis] = Detail::saturatedSum(first.data()[axis], size.data()[axis]);
        }
        return box;
    }

    constexpr bool isEmpty() const noexcept {
        bool empty = false;
        for (int axis = 0; axis < N; ++axis) {
            empty = empty || max.data()[axis] <= min.data()[axis];
        }
        return empty;
    }

    constexpr bool contains(Point const& point) const noexcept {
        return point.allGreaterEqual(min) && point.allLess(max);
    }

    /// Whether the two share a point. Touching boxes share none, and an empty box shares none with any.
    constexpr bool intersects(OpenEndedRange const& other) const noexcept {
        return !isEmpty() && !other.isEmpty() && min.allLess(other.max) && other.min.allLess(max);
    }

    /// Indices along `axis`: max - min, negative where the corners are the wrong way round.
    /// @throws std::invalid_argument as FixedVector's index does
    constexpr std::int64_t size(int axis) const { return std::int64_t{max[axis]} - std::int64_t{min[axis]}; }

    /// Indices in the box: the product of the sizes, 0 for an empty box, 2^63 - 1 for anything larger.
    constexpr std::int64_t pointCount() const noexcept {
        if (isEmpty()) {
            return 0;
        }
        std::int64_t count = 1;
        for (int axis = 0; axis < N; ++axis) {
            std::int64_t const length = std::int64_t{max.data()[axis]} - std::int64_t{min.data()[axis]};
            if (__builtin_mul_overflow(count, length, &count)) {
                return std::numeric_limits<std::int64_t>::max();
            }
        }
        return count;
    }

    /// Shrinks this box to the part it shares with `other`. Per axis: [0, 0) where they lie apart, [m, m) where they
    /// touch at m.
    constexpr void intersect(OpenEndedRange const& other) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            T& low = min.data()[axis];
            T& high = max.data()[axis];
            low = low < other.min.data()[axis] ? other.min.data()[axis] : low;
            high = high > other.max.data()[axis] ? other.max.data()[axis] : high;
            if (low > high) {
                low = high = T();
            }
        }
    }

    /// The part that the two share, as intersect() leaves it.
    constexpr OpenEndedRange intersection(OpenEndedRange const& other) const noexcept {
        OpenEndedRange common = *this;
        common.intersect(other);
        return common;
    }

    /// The smallest box that holds both. Axis by axis: an empty side takes that of the other box.
    constexpr OpenEndedRange bounding(OpenEndedRange const& other) const noexcept {
        OpenEndedRange both = *this;
        for (int axis = 0; axis < N; ++axis) {
            T& low = both.min.data()[axis];
            T& high = both.max.data()[axis];
            T const otherLow = other.min.data()[axis];
            T const otherHigh = other.max.data()[axis];
            bool const isEmpty = high <= low;
            if (isEmpty || otherLow < otherHigh) {
                low = isEmpty || otherLow < low ? otherLow : low;
                high = isEmpty || otherHigh > high ? otherHigh : high;
            }
        }
        return both;
    }

    /// The same box elsewhere: its lower corner at `lower`, and its upper corner cut where it leaves T.
    constexpr OpenEndedRange movedTo(Point const& lower) const noexcept {
        OpenEndedRange moved(lower, lower);
        for (int axis = 0; axis < N; ++axis) {
            std::int64_t const length = std::int64_t{max.data()[axis]} - std::int64_t{min.data()[axis]};
            moved.max.data()[axis] = Detail::saturated<T>(std::int64_t{lower.data()[axis]} + length);
        }
        return moved;
    }

    friend constexpr bool operator==(OpenEndedRange const&, OpenEndedRange const&) = default;

    /// Writes "[0,4)x[1,3)".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, OpenEndedRange const& range) {
        for (int axis = 0; axis < N; ++axis) {
            out << (axis == 0 ? "[" : "x[") << range.min.data()[axis] << "," << range.max.data()[axis] << ")";
        }
        return out;
    }
};

/// Closed box of values: every v with min[a] <= v[a] <= max[a] on each axis a. Empty when min[a] > max[a] on one axis.
///
/// Unit: sample values or indices, whatever T counts. Threads: as `int`.
template <int N, class T>
struct ClosedRange {
    FixedVector<N, T> min;  ///< inclusive lower bound
    FixedVector<N, T> max;  ///< inclusive upper bound

    constexpr ClosedRange() noexcept = default;
    constexpr ClosedRange(FixedVector<N, T> const& lower, FixedVector<N, T> const& upper) noexcept
        : min(lower), max(upper) {}

    constexpr bool isEmpty() const noexcept {
        bool empty = false;
        for (int axis = 0; axis < N; ++axis) {
            empty = empty || min.data()[axis] > max.data()[axis];
        }
        return empty;
    }

    /// Whether every value of `other` is one of this range; an empty `other` always is.
    constexpr bool contains(ClosedRange const& other) const noexcept {
        return other.isEmpty() || (other.min.allGreaterEqual(min) && max.allGreaterEqual(other.max));
    }

    friend constexpr bool operator==(ClosedRange const&, ClosedRange const&) = default;

    /// Writes "[0,4]x[1,3]".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, ClosedRange const& range) {
        for (int axis = 0; axis < N; ++axis) {
            out << (axis == 0 ? "[" : "x[") << range.min.data()[axis] << "," << range.max.data()[axis] << "]";
        }
        return out;
    }
};

/// Closed interval of single values.
template <class T>
struct ClosedRange<1, T> {
    T min{};  ///< inclusive lower bound
    T max{};  ///< inclusive upper bound

    constexpr ClosedRange() noexcept = default;
    constexpr ClosedRange(T lower, T upper) noexcept : min(lower), max(upper) {}

    constexpr bool isEmpty() const noexcept { return min > max; }

    /// Whether every value of `other` is one of this range; an empty `other` always is.
    constexpr bool contains(ClosedRange const& other) const noexcept {
        return other.isEmpty() || (other.min >= min && other.max <= max);
    }

    friend constexpr bool operator==(ClosedRange const&, ClosedRange const&) = default;

    /// Writes "[0,4]".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, ClosedRange const& range) {
        return out << "[" << range.min << "," << range.max << "]";
    }
};

}  // namespace Quorvel::Dravik::Adt

template <int N, class T>
struct std::hash<Quorvel::Dravik::Adt::OpenEndedRange<N, T>> {
    std::size_t operator()(Quorvel::Dravik::Adt::OpenEndedRange<N, T> const& range) const {
        return Quorvel::Dravik::Adt::Detail::hashOf(range.min, range.max);
    }
};

template <int N, class T>
struct std::hash<Quorvel::Dravik::Adt::ClosedRange<N, T>> {
    std::size_t operator()(Quorvel::Dravik::Adt::ClosedRange<N, T> const& range) const {
        return Quorvel::Dravik::Adt::Detail::hashOf(range.min, range.max);
    }
};
