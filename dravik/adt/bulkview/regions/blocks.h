// SPDX-License-Identifier: Apache-2.0
#pragma once

// Blocks: a box cut into boxes that suit a storage. Plain arithmetic; nothing is read. Threads: as `int`.

#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace Quorvel::Dravik::Adt::BulkView {

/// Boxes that cover `range` once, in storage order: along the fastest axis first, which is the last one where the
/// storage does not tell.
///
/// A box is as large as the budget allows: whole natural blocks, first along the fastest axes. A natural block above
/// the budget is cut along the slowest axes first.
///
///     for (OpenEndedRange<4, int> const& box : Blocks(traitsOf(accessor), range, 1 << 20)) { … }
class DRAVIK_ADT_EXPORT Blocks {
  public:
    using Box = OpenEndedRange<4, int>;
    class Iterator;
    using iterator = Iterator;
    using const_iterator = Iterator;

    /// @throws std::invalid_argument for a budget, in samples, below 1
    Blocks(AccessTraits const& traits, Box const& range, std::int64_t sampleBudget);

    /// Of the largest box.
    std::int64_t sampleCount() const noexcept { return largest_; }

    bool empty() const noexcept { return size_ == 0; }
    std::int64_t size() const noexcept { return size_; }
    /// @pre 0 <= n < size()
    Box operator[](std::int64_t n) const noexcept;
    Iterator begin() const noexcept;
    Iterator end() const noexcept;

  private:
    void fit(std::array<std::int64_t, 4> const& natural, std::int64_t budget);

    Box range_;
    std::array<int, 4> order_{0, 1, 2, 3};  // axes, the slowest first
    // By axis: where the first box would begin if it were whole, samples per box, and boxes.
    std::array<std::int64_t, 4> first_{}, step_{}, count_{};
    std::int64_t size_ = 0;
    std::int64_t largest_ = 0;
};

/// Refers to the blocks.
class Blocks::Iterator {
  public:
    using iterator_concept = std::random_access_iterator_tag;
    using iterator_category = std::input_iterator_tag;  // of a proxy, to algorithms from before C++20
    using value_type = Box;
    using difference_type = std::int64_t;
    using reference = Box;
    using pointer = void;

    Iterator() noexcept = default;
    Iterator(Blocks const& blocks, std::int64_t n) noexcept : blocks_(&blocks), n_(n) {}

    Box operator*() const noexcept { return (*blocks_)[n_]; }
    Box operator[](difference_type steps) const noexcept { return (*blocks_)[n_ + steps]; }
    Iterator& operator++() noexcept { return ++n_, *this; }
    Iterator operator++(int) noexcept { return {*blocks_, n_++}; }
    Iterator& operator--() noexcept { return --n_, *this; }
    Iterator operator--(int) noexcept { return {*blocks_, n_--}; }
    Iterator& operator+=(difference_type steps) noexcept { return n_ += steps, *this; }
    Iterator& operator-=(difference_type steps) noexcept { return n_ -= steps, *this; }

    friend Iterator operator+(Iterator it, difference_type steps) noexcept { return it += steps; }
    friend Iterator operator+(difference_type steps, Iterator it) noexcept { return it += steps; }
    friend Iterator operator-(Iterator it, difference_type steps) noexcept { return it -= steps; }
    friend difference_type operator-(Iterator const& a, Iterator const& b) noexcept { return a.n_ - b.n_; }
    friend bool operator==(Iterator const& a, Iterator const& b) noexcept { return a.n_ == b.n_; }
    friend auto operator<=>(Iterator const& a, Iterator const& b) noexcept { return a.n_ <=> b.n_; }

  private:
    Blocks const* blocks_ = nullptr;
    std::int64_t n_ = 0;
};

inline Blocks::Iterator Blocks::begin() const noexcept {
    return {*this, 0};
}
inline Blocks::Iterator Blocks::end() const noexcept {
    return {*this, size_};
}

}  // namespace Quorvel::Dravik::Adt::BulkView
