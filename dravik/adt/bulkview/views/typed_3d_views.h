// SPDX-License-Identifier: Apache-2.0
#pragma once

// Typed3dRoView and Typed3dRwView: volumes of samples, to read and to write. Threads: as TypedViewBase.

#include "dravik/adt/bulkview/views/typed_view_base.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

/// Reads single samples, and runs of them along the last axis, of three-dimensional data. Copies own a clone of the
/// chain; a move takes it along.
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed3dRoView : public TypedViewBase<3, T, Traits> {
  public:
    using typename TypedViewBase<3, T, Traits>::Index;

    /// Without an accessor.
    Typed3dRoView() = default;
    /// As init.
    explicit Typed3dRoView(std::unique_ptr<IBufferAccessor> accessor) { this->init(std::move(accessor)); }
    Typed3dRoView(Typed3dRoView const&) = default;
    Typed3dRoView& operator=(Typed3dRoView const&) = default;
    Typed3dRoView(Typed3dRoView&&) noexcept = default;
    Typed3dRoView& operator=(Typed3dRoView&&) noexcept = default;
    ~Typed3dRoView() override = default;

    bool isWritable() const override { return false; }

    using TypedViewBase<3, T, Traits>::get;
    T const& get(int i, int j, int k) const { return get(Index(i, j, k)); }
    T const& operator()(Index const& index) const { return get(index); }
    T const& operator()(int i, int j, int k) const { return get(Index(i, j, k)); }

    /// Copies the `count` samples from (i, j, k) on along the third axis to `out`; none for a count of 0 or less.
    /// @throws as get does, with the samples of the blocks before already in `out`
    void prototypeGetKTrace(int i, int j, int k, T* out, int count) const {
        Index const first(i, j, k);
        auto const& block = this->heldBlock();
        // One look at the block for index, length and address: between two it may be another one.
        bool const isDense = block.holds(first) && block.stride(2) == 1 && count <= std::int64_t{block.end(2)} - k;
        if (isDense) {
            std::copy_n(&block.at(first), count, out);
        } else {
            copyRuns(first, count, out);
        }
    }
    /// The same, sample by sample.
    void prototypeGetFloatKTrace(int i, int j, int k, float* out, int count) const;

  private:
    // Calls take(first, stride, count) for each run of the trace that lies in one block.
    template <class Take>
    void forEachRun(Index index, int count, Take take) const;
    void copyRuns(Index start, int count, T* out) const;
};

/// Reads and writes single samples of three-dimensional data.
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed3dRwView : public Typed3dRoView<T, Traits> {
  public:
    using typename TypedViewBase<3, T, Traits>::Index;

    Typed3dRwView() = default;
    explicit Typed3dRwView(std::unique_ptr<IBufferAccessor> accessor) : Typed3dRoView<T, Traits>(std::move(accessor)) {}
    Typed3dRwView(Typed3dRwView const&) = default;
    Typed3dRwView& operator=(Typed3dRwView const&) = default;
    Typed3dRwView(Typed3dRwView&&) noexcept = default;
    Typed3dRwView& operator=(Typed3dRwView&&) noexcept = default;
    ~Typed3dRwView() override = default;

    bool isWritable() const override { return true; }

    /// Stores `value`; exceptions as for get, with the access ReadWrite.
    void set(Index const& index, T const& value) { this->put(index, value); }
    void set(int i, int j, int k, T const& value) { this->put(Index(i, j, k), value); }
};

template <class T, class Traits>
template <class Take>
void Typed3dRoView<T, Traits>::forEachRun(Index index, int count, Take take) const {
    int& k = index.data()[2];
    while (count > 0) {
        T const* const first = &get(index);
        // At least the sample that was just served, whatever the block claims to hold.
        std::int64_t const left = std::max<std::int64_t>(std::int64_t{this->heldBlock().end(2)} - k, 1);
        int const taken = static_cast<int>(std::min<std::int64_t>(left, count));
        take(first, this->heldBlock().stride(2), taken);
        k += taken;
        count -= taken;
    }
}

template <class T, class Traits>
void Typed3dRoView<T, Traits>::copyRuns(Index start, int count, T* out) const {
    forEachRun(start, count, [&out](T const* first, std::int64_t stride, int taken) {
        if (stride == 1) {
            out = std::copy_n(first, taken, out);
            return;
        }
        // One at a time: the processor has more of them under way than an unrolled loop.
        for (std::int64_t place = 0; taken > 0; --taken, place += stride) {
            *out++ = first[place];
        }
    });
}

template <class T, class Traits>
void Typed3dRoView<T, Traits>::prototypeGetFloatKTrace(int i, int j, int k, float* out, int count) const {
    forEachRun(Index(i, j, k), count, [&out](T const* first, std::int64_t stride, int taken) {
        for (std::int64_t place = 0; place < taken; ++place) {
            *out++ = static_cast<float>(first[place * stride]);
        }
    });
}

extern template class TypedViewBase<3, float>;
extern template class Typed3dRoView<float>;
extern template class Typed3dRwView<float>;

}  // namespace Quorvel::Dravik::Adt::BulkView
