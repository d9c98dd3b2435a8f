// SPDX-License-Identifier: Apache-2.0
#pragma once

// TypedViewIterBase: walks a box of a typed view sample by sample, and TypedViewBox, the box as a range. Both refer to
// the view. Threads: as the view.

#include "dravik/adt/bulkview/views/detail/held_block.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace Quorvel::Dravik::Adt::BulkView {

template <int N, class T, class Traits>
class TypedViewBase;
struct BoundsCheckViewTraits;

/// An input iterator over the samples of a box, last axis fastest, that ends at std::default_sentinel.
///
/// Gives samples by value and never dangles: the view may be read, written, disposed of and its block taken back
/// between two steps. Inside a row of the block on loan a step costs an addition; it notices by the block's
/// tag that the row is no longer there, and then reads as TypedViewBase::get does, with
/// its exceptions. Advancing never throws and asks the accessor for nothing.
/// @lifetime of the view
///
///     TypedViewIterBase<2, float> at;
///     for (view.getIterator(at); at.next();) { histogram.add(at.index(), *at); }
template <int N, class T, class Traits = BoundsCheckViewTraits>
class TypedViewIterBase {
  public:
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::input_iterator_tag;
    using iterator_category = std::input_iterator_tag;
    using reference = T;
    using pointer = void;
    using Index = FixedVector<N, int>;
    using Box = OpenEndedRange<N, int>;
    using View = TypedViewBase<N, T, Traits>;
    using Block = Detail::HeldBlock<N, T>;

    /// At the end.
    TypedViewIterBase() noexcept = default;

    /// Before the first index of the box: one less on the last axis. Advance it once to read. `block` is what the view
    /// holds.
    TypedViewIterBase(View const& view, Block const& block, Box const& box) noexcept
        : view_(&view), block_(&block), index_(box.min), box_(box), runEnd_(box.min.data()[N - 1]) {
        index_ -= lastAxisStep();
    }

    /// The index of the sample.
    Index const& index() const noexcept { return index_; }
    Box const& box() const noexcept { return box_; }

    /// The sample.
    /// @throws as TypedViewBase::get does
    T operator*() const { return block_->isTagged(tag_) ? *reinterpret_cast<T const*>(address_) : view_->get(index_); }

    TypedViewIterBase& operator++() noexcept {
        index_ += lastAxisStep();
        address_ += stride_;
        if (index_.data()[N - 1] >= runEnd_) {
            carry();
            findRun();
        }
        return *this;
    }
    void operator++(int) noexcept { ++*this; }

    /// Advances and tells whether there is a sample.
    bool next() noexcept {
        ++*this;
        return *this != std::default_sentinel;
    }

    friend bool operator==(TypedViewIterBase const& at, std::default_sentinel_t) noexcept {
        return at.index_.data()[0] >= at.box_.max.data()[0];
    }
    /// As every input iterator, for telling the end alone.
    friend bool operator==(TypedViewIterBase const& a, TypedViewIterBase const& b) noexcept {
        return (a == std::default_sentinel) == (b == std::default_sentinel);
    }

  private:
    static constexpr Index lastAxisStep() noexcept {
        Index step;
        step.data()[N - 1] = 1;
        return step;
    }

    // Both inline whatever their length: an iterator whose address is never taken stays in registers.
    [[gnu::always_inline]] void carry() noexcept;
    [[gnu::always_inline]] void findRun() noexcept;

    View const* view_ = nullptr;
    Block const* block_ = nullptr;
    Index index_;
    Box box_;
    int runEnd_ = 0;  // where the row leaves the box or the block, on the last axis
    std::uintptr_t address_ = 0;
    std::uintptr_t stride_ = 0;  // bytes
    typename Block::Tag tag_;    // of the block that address_ was taken from
};

template <int N, class T, class Traits>
inline void TypedViewIterBase<N, T, Traits>::carry() noexcept {
    if (box_.isEmpty()) {
        index_.data()[0] = box_.max.data()[0];
        return;
    }
    for (int axis = N - 1; axis > 0 && index_.data()[axis] >= box_.max.data()[axis]; --axis) {
        index_.data()[axis] = box_.min.data()[axis];
        ++index_.data()[axis - 1];
    }
}

template <int N, class T, class Traits>
inline void TypedViewIterBase<N, T, Traits>::findRun() noexcept {
    if (*this == std::default_sentinel) {
        return;
    }
    tag_ = block_->tag();
    int const last = index_.data()[N - 1];
    if (block_->holds(index_)) {
        address_ = block_->addressOf(index_);
        stride_ = static_cast<std::uintptr_t>(block_->stride(N - 1)) * sizeof(T);
        int const end = box_.max.data()[N - 1];
        runEnd_ = end < block_->end(N - 1) ? end : block_->end(N - 1);
    } else {
        // The first samples of a block are read through the view, which fetches it; then a step finds the row.
        --tag_.fetches;
        runEnd_ = last + 1;
    }
}

/// The samples of a box of a view, last axis fastest: an input range that refers to the view.
///
///     for (float sample : view.samples({0, 0}, {10, 10})) { … }
///     auto const all = view.samples();
///     double const sum = std::accumulate(all.begin(), all.end(), 0.0);
template <int N, class T, class Traits = BoundsCheckViewTraits>
class TypedViewBox {
  public:
    using Iterator = TypedViewIterBase<N, T, Traits>;

    TypedViewBox(
        TypedViewBase<N, T, Traits> const& view, Detail::HeldBlock<N, T> const& block,
        OpenEndedRange<N, int> const& box) noexcept
        : beforeFirst_(view, block, box) {}

    Iterator begin() const noexcept { return ++Iterator(beforeFirst_); }
    Iterator end() const noexcept { return {}; }

  private:
    Iterator beforeFirst_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
