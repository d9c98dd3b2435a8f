// SPDX-License-Identifier: Apache-2.0
#pragma once

// Typed1dRoView and Typed1dRwView: rows of samples, to read and to write. Threads: as TypedViewBase.

#include "dravik/adt/bulkview/views/typed_view_base.h"

#include <memory>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

/// Reads single samples of one-dimensional data. Copies own a clone of the chain; a move takes it along.
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed1dRoView : public TypedViewBase<1, T, Traits> {
  public:
    using typename TypedViewBase<1, T, Traits>::Index;

    /// Without an accessor.
    Typed1dRoView() = default;
    /// As init.
    explicit Typed1dRoView(std::unique_ptr<IBufferAccessor> accessor) { this->init(std::move(accessor)); }
    Typed1dRoView(Typed1dRoView const&) = default;
    Typed1dRoView& operator=(Typed1dRoView const&) = default;
    Typed1dRoView(Typed1dRoView&&) noexcept = default;
    Typed1dRoView& operator=(Typed1dRoView&&) noexcept = default;
    ~Typed1dRoView() override = default;

    bool isWritable() const override { return false; }

    using TypedViewBase<1, T, Traits>::get;
    T const& get(int i) const { return get(Index(i)); }
    T const& operator()(Index const& index) const { return get(index); }
    T const& operator()(int i) const { return get(Index(i)); }
};

/// Reads and writes single samples of one-dimensional data.
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed1dRwView : public Typed1dRoView<T, Traits> {
  public:
    using typename TypedViewBase<1, T, Traits>::Index;

    Typed1dRwView() = default;
    explicit Typed1dRwView(std::unique_ptr<IBufferAccessor> accessor) : Typed1dRoView<T, Traits>(std::move(accessor)) {}
    Typed1dRwView(Typed1dRwView const&) = default;
    Typed1dRwView& operator=(Typed1dRwView const&) = default;
    Typed1dRwView(Typed1dRwView&&) noexcept = default;
    Typed1dRwView& operator=(Typed1dRwView&&) noexcept = default;
    ~Typed1dRwView() override = default;

    bool isWritable() const override { return this->mayBeWritten(); }

    /// Stores `value`; exceptions as for get, with the access ReadWrite.
    void set(Index const& index, T const& value) { this->put(index, value); }
    void set(int i, T const& value) { this->put(Index(i), value); }
};

extern template class TypedViewBase<1, float>;
extern template class Typed1dRoView<float>;
extern template class Typed1dRwView<float>;

}  // namespace Quorvel::Dravik::Adt::BulkView
