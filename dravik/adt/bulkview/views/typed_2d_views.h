// SPDX-License-Identifier: Apache-2.0
#pragma once

// Typed2dRoView and Typed2dRwView: planes of samples, to read and to write. Threads: as TypedViewBase.

#include "dravik/adt/bulkview/views/typed_view_base.h"

#include <memory>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

/// Reads single samples of two-dimensional data. Copies own a clone of the chain; a move takes it along.
///
///     Typed2dRoView<float> const relief(std::make_unique<Accessors::MemoryAccessor>(array));
///     float const height = relief(120, 75);
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed2dRoView : public TypedViewBase<2, T, Traits> {
  public:
    using typename TypedViewBase<2, T, Traits>::Index;

    /// Without an accessor.
    Typed2dRoView() = default;
    /// As init.
    explicit Typed2dRoView(std::unique_ptr<IBufferAccessor> accessor) { this->init(std::move(accessor)); }
    Typed2dRoView(Typed2dRoView const&) = default;
    Typed2dRoView& operator=(Typed2dRoView const&) = default;
    Typed2dRoView(Typed2dRoView&&) noexcept = default;
    Typed2dRoView& operator=(Typed2dRoView&&) noexcept = default;
    ~Typed2dRoView() override = default;

    bool isWritable() const override { return false; }

    using TypedViewBase<2, T, Traits>::get;
    T const& get(int i, int j) const { return get(Index(i, j)); }
    T const& operator()(Index const& index) const { return get(index); }
    T const& operator()(int i, int j) const { return get(Index(i, j)); }
};

/// Reads and writes single samples of two-dimensional data.
template <class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT Typed2dRwView : public Typed2dRoView<T, Traits> {
  public:
    using typename TypedViewBase<2, T, Traits>::Index;

    Typed2dRwView() = default;
    explicit Typed2dRwView(std::unique_ptr<IBufferAccessor> accessor) : Typed2dRoView<T, Traits>(std::move(accessor)) {}
    Typed2dRwView(Typed2dRwView const&) = default;
    Typed2dRwView& operator=(Typed2dRwView const&) = default;
    Typed2dRwView(Typed2dRwView&&) noexcept = default;
    Typed2dRwView& operator=(Typed2dRwView&&) noexcept = default;
    ~Typed2dRwView() override = default;

    bool isWritable() const override { return this->mayBeWritten(); }

    /// Stores `value`; exceptions as for get, with the access ReadWrite.
    void set(Index const& index, T const& value) { this->put(index, value); }
    void set(int i, int j, T const& value) { this->put(Index(i, j), value); }
};

extern template class TypedViewBase<2, float>;
extern template class TypedViewBase<2, unsigned char>;
extern template class TypedViewBase<2, char>;
extern template class Typed2dRoView<float>;
extern template class Typed2dRoView<unsigned char>;
extern template class Typed2dRoView<char>;
extern template class Typed2dRwView<float>;
extern template class Typed2dRwView<unsigned char>;
extern template class Typed2dRwView<char>;

}  // namespace Quorvel::Dravik::Adt::BulkView
