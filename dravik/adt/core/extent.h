// SPDX-License-Identifier: Apache-2.0
#pragma once

// Regular samplings of index space: ExtentImpl along one axis, ExtentK on N axes, and an extent together with the
// number of its axis. Plain values that own nothing. Threads: as `int`.

#include "dravik/adt/core/detail/progression.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <concepts>
#include <cstddef>
#include <utility>

namespace Quorvel::Dravik::Adt {

template <int N, class T>
class ExtentK;

/// The indices origin + k * step for k = 0 ... count - 1, in that order.
///
/// Unit: absolute indices. A negative step runs downwards; a count of 0 or less is empty. A step of 0 makes sense with
/// a count of 1 only and then divides like a step of 1. Indices that leave the range of T are wrapped where they are
/// asked for, and never undefined. Equality asks for the same sequence of indices, so empty extents are all equal and
/// the step of a single index does not matter. Threads: as `int`.
///
///     ExtentImpl<int> const odd{1, 2, 5};                    // 1 3 5 7 9
///     odd.reversed().intersection(ExtentImpl<int>{0, 3, 4});  // {9, -6, 2}: 9 3
template <class T>
struct ExtentImpl {
    static_assert(std::signed_integral<T> && sizeof(T) <= 4, "Sums and products are formed in 64 bits.");

    T origin = 0;  ///< first index
    T step = 1;    ///< distance from one index to the next
    T count = 0;   ///< number of indices

    constexpr bool isEmpty() const noexcept { return count <= 0; }

    /// The index at place `k`, in the extent or before or behind it.
    constexpr T at(T k) const noexcept { return static_cast<T>(wideAt(k)); }

    /// The last index of a non-empty extent.
    constexpr T last() const noexcept { return static_cast<T>(wideLast()); }

    /// The interval from the lowest to the highest index; meaningless for an empty extent.
    constexpr ClosedRange<1, T> bounds() const noexcept {
        return step < 0 ? ClosedRange<1, T>{last(), origin} : ClosedRange<1, T>{origin, last()};
    }

    /// The same indices in the opposite order; of an empty extent only the step turns.
    constexpr ExtentImpl reversed() const noexcept {
        T const turned = static_cast<T>(-std::int64_t{step});
        return isEmpty() ? ExtentImpl{origin, turned, 0} : ExtentImpl{last(), turned, count};
    }

    /// The place k of the index nearest to `value`, the later one on a tie; -1 in an empty extent.
    constexpr T nearestIndex(T value) const noexcept {
        if (isEmpty()) {
            return -1;
        }
        // Exact for 32-bit operands: the rounding error of the quotient is far below half a step.
        double const place =
            (static_cast<double>(value) - static_cast<double>(origin)) / static_cast<double>(divisor());
        auto const truncated = static_cast<std::int64_t>(place + 0.5);
        return truncated < 0 ? T{0} : truncated < count ? static_cast<T>(truncated) : static_cast<T>(count - 1);
    }

    /// Whether every index of `other` is one of this extent; an empty `other` always is.
    constexpr bool contains(ExtentImpl const& other) const noexcept {
        if (other.isEmpty() || isEmpty()) {
            return other.isEmpty();
        }
        bool const stepFits = other.count == 1 || std::int64_t{other.step} % divisor() == 0;
        return stepFits && lowest() <= other.lowest() && other.highest() <= highest() &&
               (other.lowest() - lowest()) % divisor() == 0;
    }

    /// The indices common to both, in the direction of this extent; its step is the least common multiple of both
    /// steps, also for a single index. Where that multiple leaves T, the first common index alone with the step clipped
    /// to T.
    /// @complexity O(log step)
    constexpr ExtentImpl intersection(ExtentImpl const& other) const noexcept {
        if (isEmpty() || other.isEmpty()) {
            return {};
        }
        auto const common = Detail::commonIndices(progression(), other.progression());
        if (common.count == 0) {
            return {};
        }
        std::int64_t const first = step < 0 ? common.first + (common.count - 1) * common.step : common.first;
        std::int64_t const stride = step < 0 ? -common.step : common.step;
        auto const narrow = Detail::saturated<T>(stride);
        return {static_cast<T>(first), narrow, narrow == stride ? static_cast<T>(common.count) : T{1}};
    }

    /// The places of this extent's indices inside `outer`; empty unless `outer` contains them all.
    constexpr ExtentImpl relativeTo(ExtentImpl const& outer) const noexcept {
        if (isEmpty() || !outer.contains(*this)) {
            return {};
        }
        std::int64_t const place = (std::int64_t{origin} - std::int64_t{outer.origin}) / outer.divisor();
        return {static_cast<T>(place), static_cast<T>(std::int64_t{step} / outer.divisor()), count};
    }

    /// The indices at these places of this extent: what relativeTo undoes. Wrapped where they leave T.
    ///
    ///     ExtentImpl<int>{10, 5, 8}.composed({1, 2, 3});  // {15, 10, 3}: 15 25 35
    constexpr ExtentImpl composed(ExtentImpl const& places) const noexcept {
        std::int64_t const stride = std::int64_t{places.step} * std::int64_t{step};
        return {at(places.origin), static_cast<T>(stride), places.count};
    }

    friend constexpr bool operator==(ExtentImpl const& left, ExtentImpl const& right) noexcept {
        if (left.isEmpty() || right.isEmpty()) {
            return left.isEmpty() && right.isEmpty();
        }
        return left.count == right.count && left.origin == right.origin && (left.count == 1 || left.step == right.step);
    }

    /// Writes "5:2:10" for origin 5, step 2, count 10.
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, ExtentImpl const& extent) {
        return out << extent.origin << ":" << extent.step << ":" << extent.count;
    }

  private:
    template <int N, class U>
    friend class ExtentK;

    constexpr std::int64_t divisor() const noexcept { return step == 0 ? 1 : std::int64_t{step}; }
    constexpr std::int64_t wideAt(std::int64_t k) const noexcept { return std::int64_t{origin} + k * step; }
    constexpr std::int64_t wideLast() const noexcept { return wideAt(std::int64_t{count} - 1); }
    /// The half-open interval from the lowest to the highest index, empty for an empty extent.
    constexpr std::pair<std::int64_t, std::int64_t> wideBounds() const noexcept {
        std::int64_t const first = step < 0 && isEmpty() ? std::int64_t{origin} - step : std::int64_t{origin};
        return isEmpty() ? std::pair{first, first} : std::pair{lowest(), highest() + 1};
    }
    constexpr std::int64_t lowest() const noexcept { return step < 0 ? wideLast() : std::int64_t{origin}; }
    constexpr std::int64_t highest() const noexcept { return step < 0 ? std::int64_t{origin} : wideLast(); }
    /// What of it lies within T.
    constexpr Detail::Progression progression() const noexcept {
        Detail::Progression all{lowest(), highest(), step < 0 ? -std::int64_t{step} : divisor()};
        all.clip(std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
        return all;
    }
};

/// One ExtentImpl per axis: a regular block of N-dimensional index space, possibly decimated or reversed.
///
/// Unit: absolute indices. Empty as soon as one axis is. Threads: as `int`.
template <int N, class T>
class ExtentK {
  public:
    using Vector = FixedVector<N, T>;

    /// Every axis empty.
    constexpr ExtentK() noexcept = default;

    /// Steps of 1 from `origin`, `count` indices per axis.
    constexpr ExtentK(Vector const& origin, Vector const& count) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            axes_.data()[axis] = {origin.data()[axis], 1, count.data()[axis]};
        }
    }

    /// The N extents, axis 0 first.
    template <class... Extents>
    requires(sizeof...(Extents) == N && (std::same_as<Extents, ExtentImpl<T>> && ...)) constexpr explicit(N == 1)
        ExtentK(Extents const&... axes) noexcept
        : axes_(axes...) {}

    /// The indices of a box; a side longer than T counts is cut at the largest count.
    constexpr explicit ExtentK(OpenEndedRange<N, T> const& range) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            std::int64_t const length = std::int64_t{range.max.data()[axis]} - std::int64_t{range.min.data()[axis]};
            axes_.data()[axis] = {range.min.data()[axis], 1, Detail::saturated<T>(length)};
        }
    }

    /// The extent along `axis`.
    /// @throws std::invalid_argument as FixedVector's index does
    constexpr ExtentImpl<T>& operator[](int axis) { return axes_[axis]; }
    constexpr ExtentImpl<T> const& operator[](int axis) const { return axes_[axis]; }

    /// The extents as a plain array of N, for loops that cannot leave it: no check.
    constexpr ExtentImpl<T>* data() noexcept { return axes_.data(); }
    constexpr ExtentImpl<T> const* data() const noexcept { return axes_.data(); }

    constexpr bool isEmpty() const noexcept {
        bool empty = false;
        for (ExtentImpl<T> const& axis : axes_) {
            empty = empty || axis.isEmpty();
        }
        return empty;
    }

    /// Per axis the smallest and the largest index of a non-empty extent. A step of 0 goes with the negative ones.
    constexpr Vector lowCorner() const noexcept {
        return corner([](ExtentImpl<T> const& axis) { return axis.step < 1 ? axis.last() : axis.origin; });
    }
    constexpr Vector highCorner() const noexcept {
        return corner([](ExtentImpl<T> const& axis) { return axis.step < 1 ? axis.origin : axis.last(); });
    }

    /// The smallest box that holds every index, cut at the ends of T. An axis without indices leaves an empty interval:
    /// at its origin, or one step above where it would descend.
    constexpr OpenEndedRange<N, T> bounds() const noexcept {
        OpenEndedRange<N, T> box;
        for (int axis = 0; axis < N; ++axis) {
            auto const [low, end] = axes_.data()[axis].wideBounds();
            box.min.data()[axis] = Detail::saturated<T>(low);
            box.max.data()[axis] = Detail::saturated<T>(end);
        }
        return box;
    }

    /// Axis by axis ExtentImpl::at and ExtentImpl::composed.
    constexpr Vector at(Vector const& place) const noexcept {
        Vector index;
        for (int axis = 0; axis < N; ++axis) {
            index.data()[axis] = axes_.data()[axis].at(place.data()[axis]);
        }
        return index;
    }
    constexpr ExtentK composed(ExtentK const& places) const noexcept {
        ExtentK indices;
        for (int axis = 0; axis < N; ++axis) {
            indices.data()[axis] = axes_.data()[axis].composed(places.data()[axis]);
        }
        return indices;
    }

    friend constexpr bool operator==(ExtentK const&, ExtentK const&) = default;

    /// Writes "0:1:10 x 9:-1:10".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& out, ExtentK const& extent) {
        for (int axis = 0; axis < N; ++axis) {
            out << (axis == 0 ? "" : " x ") << extent.data()[axis];
        }
        return out;
    }

  private:
    template <class Pick>
    constexpr Vector corner(Pick pick) const noexcept {
        Vector corner;
        for (int axis = 0; axis < N; ++axis) {
            corner.data()[axis] = pick(axes_.data()[axis]);
        }
        return corner;
    }

    FixedVector<N, ExtentImpl<T>> axes_;
};

/// An axis number, from 0, and an extent along that axis: what a view definition maps at a time.
using AxisExtent = std::pair<int, ExtentImpl<int>>;

}  // namespace Quorvel::Dravik::Adt

template <class T>
struct std::hash<Quorvel::Dravik::Adt::ExtentImpl<T>> {
    std::size_t operator()(Quorvel::Dravik::Adt::ExtentImpl<T> const& extent) const {
        if (extent.isEmpty()) {
            return 0;
        }
        // What equality looks at: a single index has no step.
        T const step = extent.count == 1 ? T{} : extent.step;
        return Quorvel::Dravik::Adt::Detail::hashOf(extent.origin, extent.count, step);
    }
};

template <int N, class T>
struct std::hash<Quorvel::Dravik::Adt::ExtentK<N, T>> {
    std::size_t operator()(Quorvel::Dravik::Adt::ExtentK<N, T> const& extent) const {
        std::size_t seed = N;
        for (int axis = 0; axis < N; ++axis) {
            auto const code = std::hash<Quorvel::Dravik::Adt::ExtentImpl<T>>()(extent.data()[axis]);
            seed = Quorvel::Dravik::Adt::Detail::mixedHash(seed, code);
        }
        return seed;
    }
};
