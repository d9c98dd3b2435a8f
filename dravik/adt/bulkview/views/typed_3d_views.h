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
        this->trace(Index(i, j, k), 2, out, count);
    }
    /// The same, sample by sample.
    void prototypeGetFloatKTrace(int i, int j, int k, float* out, int count) const;
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

    bool isWritable() const override { return this->mayBeWritten(); }

    /// Stores `value`; exceptions as for get, with the access ReadWrite.
    void set(Index const& index, T const& value) { this->put(index, value); }
    void set(int i, int j, int k, T const& value) { this->put(Index(i, j, k), value); }
};

template <class T, class Traits>
void Typed3dRoView<T, Traits>::prototypeGetFloatKTrace(int i, int j, int k, float* out, int count) const {
    this->forEachRun(Index(i, j, k), 2, count, [&out](T const* first, std::int64_t stride, int taken) {
        for (std::int64_t place = 0; place < taken; ++place) {
            *out++ = static_cast<float>(first[place * stride]);
        }
    });
}

extern template class TypedViewBase<3, float>;
extern template class Typed3dRoView<float>;
extern template class Typed3dRwView<float>;

}  // namespace Quorvel::Dravik::Adt::BulkView
