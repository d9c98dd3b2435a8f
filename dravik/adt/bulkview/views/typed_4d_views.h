// SPDX-License-Identifier: Apache-2.0
#pragma once

// Typed4dRoView and Typed4dRwView: volumes of samples over a fourth axis, to read and to write. Threads: as
// TypedViewBase.

#include "dravik/adt/bulkview/views/typed_view_base.h"

#include <memory>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

/// Reads single samples of four-dimensional data. Copies own a clone of the chain; a move takes it along.
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed4dRoView : public TypedViewBase<4, T, Traits> {
  public:
    using typename TypedViewBase<4, T, Traits>::Index;

    /// Without an accessor.
    Typed4dRoView() = default;
    /// As init.
    explicit Typed4dRoView(std::unique_ptr<IBufferAccessor> accessor) { this->init(std::move(accessor)); }
    Typed4dRoView(Typed4dRoView const&) = default;
    Typed4dRoView& operator=(Typed4dRoView const&) = default;
    Typed4dRoView(Typed4dRoView&&) noexcept = default;
    Typed4dRoView& operator=(Typed4dRoView&&) noexcept = default;
    ~Typed4dRoView() override = default;

    bool isWritable() const override { return false; }

    using TypedViewBase<4, T, Traits>::get;
    T const& get(int i, int j, int k, int l) const { return get(Index(i, j, k, l)); }
    T const& operator()(Index const& index) const { return get(index); }
    T const& operator()(int i, int j, int k, int l) const { return get(Index(i, j, k, l)); }
};

/// Reads and writes single samples of four-dimensional data.
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed4dRwView : public Typed4dRoView<T, Traits> {
  public:
    using typename TypedViewBase<4, T, Traits>::Index;

    Typed4dRwView() = default;
    explicit Typed4dRwView(std::unique_ptr<IBufferAccessor> accessor) : Typed4dRoView<T, Traits>(std::move(accessor)) {}
    Typed4dRwView(Typed4dRwView const&) = default;
    Typed4dRwView& operator=(Typed4dRwView const&) = default;
    Typed4dRwView(Typed4dRwView&&) noexcept = default;
    Typed4dRwView& operator=(Typed4dRwView&&) noexcept = default;
    ~Typed4dRwView() override = default;

    bool isWritable() const override { return this->mayBeWritten(); }

    /// Stores `value`; exceptions as for get, with the access ReadWrite.
    void set(Index const& index, T const& value) { this->put(index, value); }
    void set(int i, int j, int k, int l, T const& value) { this->put(Index(i, j, k, l), value); }
};

extern template class TypedViewBase<4, float>;
extern template class Typed4dRoView<float>;
extern template class Typed4dRwView<float>;

}  // namespace Quorvel::Dravik::Adt::BulkView
