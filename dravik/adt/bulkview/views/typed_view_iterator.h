// SPDX-License-Identifier: Apache-2.0
#pragma once

// TypedViewIterBase: walks a box of a typed view sample by sample, and TypedViewBox, the box as a range. Both refer to
// the view. Threads: as the view.

#include "dravik/adt/bulkview/views/typed_view_base.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace Quorvel::Dravik::Adt::BulkView {

/// An input iterator over the samples of a box, last axis fastest, that ends at std::default_sentinel.
///
/// Gives samples by value and never dangles: the view may be read, written, disposed of and its block taken back
/// between two steps. Inside a row of the block on loan a step costs an addition; it notices by the view's count of
/// fetches and by the end of the loan that the row is no longer there, and then reads as TypedViewBase::get does, with
/// its exceptions. Advancing never throws and asks the accessor for nothing.
/// @lifetime of the view
///
///     TypedViewIterBase<2, float> at;
///     for (view.getIterator(at); at.next();) { histogram.add(at.index(), *at); }
template <int N, class T>
class TypedViewIterBase {
  public:
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::input_iterator_tag;
    using Index = FixedVector<N, int>;
    using Box = OpenEndedRange<N, int>;
    using View = TypedViewBase<N, T>;

    /// At the end.
    TypedViewIterBase() noexcept = default;

    /// Before the first index of the box: one less on the last axis. Advance it once to read.
    TypedViewIterBase(View const& view, Box const& box) noexcept
        : view_(&view), index_(box.min), box_(box), runEnd_(box.min.data()[N - 1]) {
        index_ -= lastAxisStep();
    }

    /// The index of the sample.
    Index const& index() const noexcept { return index_; }
    Box const& box() const noexcept { return box_; }

    /// The sample.
    /// @throws as TypedViewBase::get does
    T operator*() const { return isCurrent() ? *reinterpret_cast<T const*>(address_) : view_->get(index_); }

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

  private:
    static constexpr Index lastAxisStep() noexcept {
        Index step;
        step.data()[N - 1] = 1;
        return step;
    }

    // Whether the view still holds the block that address_ was taken from.
    bool isCurrent() const noexcept {
        return ((fetchCount_ ^ view_->fetchCount_) | static_cast<unsigned>(word_ ^ view_->handle_.firstAxisEnd())) == 0;
    }

    // Both inline whatever their length: an iterator whose address is never taken stays in registers.
    [[gnu::always_inline]] void carry() noexcept;
    [[gnu::always_inline]] void findRun() noexcept;

    View const* view_ = nullptr;
    Index index_;
    Box box_;
    int runEnd_ = 0;  // where the row leaves the box or the block, on the last axis
    std::uintptr_t address_ = 0;
    std::uintptr_t stride_ = 0;  // bytes
    std::uint64_t fetchCount_ = 0;
    int word_ = 0;
};

template <int N, class T>
inline void TypedViewIterBase<N, T>::carry() noexcept {
    if (box_.isEmpty()) {
        index_.data()[0] = box_.max.data()[0];
        return;
    }
    for (int axis = N - 1; axis > 0 && index_.data()[axis] >= box_.max.data()[axis]; --axis) {
        index_.data()[axis] = box_.min.data()[axis];
        ++index_.data()[axis - 1];
    }
}

template <int N, class T>
inline void TypedViewIterBase<N, T>::findRun() noexcept {
    if (*this == std::default_sentinel) {
        return;
    }
    fetchCount_ = view_->fetchCount_;
    word_ = view_->window_.word();
    if (view_->holds(index_)) {
        address_ = view_->address(view_->readOrigin_, index_);
        stride_ = static_cast<std::uintptr_t>(view_->strides_[N - 1]) * sizeof(T);
        runEnd_ = std::min(view_->lastAxisEnd_, box_.max.data()[N - 1]);
    } else {
        // The first sample of a block is read through the view, which fetches it; the next step finds the row.
        --fetchCount_;
        runEnd_ = index_.data()[N - 1] + 1;
    }
}

/// The samples of a box of a view, last axis fastest: an input range that refers to the view.
///
///     for (float sample : view.samples({0, 0}, {10, 10})) { … }
template <int N, class T>
class TypedViewBox {
  public:
    using Iterator = TypedViewIterBase<N, T>;

    TypedViewBox(TypedViewBase<N, T> const& view, OpenEndedRange<N, int> const& box) noexcept
        : beforeFirst_(view, box) {}

    Iterator begin() const noexcept { return ++Iterator(beforeFirst_); }
    std::default_sentinel_t end() const noexcept { return std::default_sentinel; }

  private:
    Iterator beforeFirst_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
