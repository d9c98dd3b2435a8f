// SPDX-License-Identifier: Apache-2.0
#pragma once

// ArrayViewConverter: carries extents, boxes, index sets and arrays between a view and its target. A value that shares
// an immutable view; threads: any number may use one converter, and copies of it, at once.

#include "dravik/adt/bulkdef/equal_definitions.h"
#include "dravik/adt/bulkdef/view/array_view_def.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/index_set.h"
#include "dravik/adt/core/range.h"

#include <cstddef>
#include <functional>

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// Applies a view to coordinates of N = 1 ... 4 axes: from its indices to its target's or, inverted, back.
///
/// Holds the view in the direction of conversion, or nothing for a complete view, which leaves everything as it is.
/// What the view does not see is dropped without a word, except from arrays. Unit: absolute indices. Equal where the
/// views are.
///
///     ArrayViewConverter<2> const toTarget(view);
///     auto const needed = toTarget.convert(visible);
///     auto const shown = toTarget.inverse().convert(changed);
template <int N>
class DRAVIK_ADT_EXPORT ArrayViewConverter {
  public:
    using Extent = ExtentK<N, int>;
    using Range = OpenEndedRange<N, int>;
    using Set = IndexSet<N, int>;
    using Array = ArrayConstRef<N>;

    /// Converts through a clone of `view`, or from its target's indices to its own if `inverse`.
    /// @throws std::invalid_argument "[ArrayViewConverter] Unknown view type" for any but complete and array views
    explicit ArrayViewConverter(ViewDef const& view, bool inverse = false);

    /// The same, sharing the view.
    /// @throws std::invalid_argument "[ArrayViewConverter] null view" for an empty pointer
    /// @throws std::invalid_argument "[ArrayViewConverter] wiew is of unknown type" for any but complete and array
    /// views
    /// @throws std::bad_cast instead of the latter if `inverse`
    explicit ArrayViewConverter(boost::shared_ptr<ViewDef const> const& view, bool inverse = false);

    /// Whether everything converts to itself.
    bool isIdentity() const noexcept { return !view_; }

    /// The converter in the opposite direction.
    ArrayViewConverter inverse() const { return ArrayViewConverter(*this, /*inverse=*/true); }

    /// The view that is converted through, inverted already if need be; empty for the identity.
    boost::shared_ptr<ViewDef const> getViewPtr() const noexcept { return view_; }

    /// The indices that those of `extent` stand for, per axis in the order the view gives them.
    Extent convert(Extent const& extent) const { return convertExtents(extent); }
    Extent convertExtents(Extent const& extent) const;
    /// The same; axes[i] becomes the axis that axis i goes to. Axes that none goes to are empty, and an axis that goes
    /// to N or beyond is dropped.
    Extent convertExtents(Extent const& extent, FixedVector<N, int>* axes) const;

    /// The smallest box around the indices that those of `range` stand for: through a decimating view, those in between
    /// belong to it. Corners beyond `int` stop there.
    Range convert(Range const& range) const;
    void convertRegion(Range const& range, Range* out) const;

    /// The points of every stored box of `set`, converted as boxes are.
    Set convert(Set const& set) const;
    /// Adds them to `out`, which may be `set` itself; only the identity makes `out` a copy of `set` instead.
    void convertRegion(Set const& set, Set* out) const;

    /// The same samples under the indices that theirs stand for; memory, type and bits stay. A reversed axis turns its
    /// stride, and one index on a decimated axis divides it, truncating. `out` stays as it was on failure.
    /// @throws Exceptions::NotImplementedException if the view moves an axis
    /// @throws std::invalid_argument if the view decimates an axis of the array, so that no stride fits
    /// @throws Exceptions::NotSupportedException if the array reaches out of the view
    /// @throws std::length_error if an axis turns around and the offset or the stride leaves `int` with that
    Array convert(Array const& array) const;
    void convertArray(Array const& array, Array* out) const;

    friend bool operator==(ArrayViewConverter const& left, ArrayViewConverter const& right) {
        return EqualDefinitions()(left.view_, right.view_);
    }

    /// Writes "ArrayViewConverter(…)" with the view, or with "identity".
    friend std::ostream& operator<<(std::ostream& out, ArrayViewConverter const& converter) {
        return converter.print(out);
    }

  private:
    ArrayViewConverter(ArrayViewConverter const& other, bool inverse);

    std::ostream& print(std::ostream& out) const;

    boost::shared_ptr<ArrayViewDef const> view_;
};

extern template class ArrayViewConverter<1>;
extern template class ArrayViewConverter<2>;
extern template class ArrayViewConverter<3>;
extern template class ArrayViewConverter<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View

template <int N>
struct std::hash<Quorvel::Dravik::Adt::BulkDef::View::ArrayViewConverter<N>> {
    std::size_t operator()(Quorvel::Dravik::Adt::BulkDef::View::ArrayViewConverter<N> const& converter) const {
        return Quorvel::Dravik::Adt::BulkDef::HashDefinitions()(converter.getViewPtr());
    }
};
