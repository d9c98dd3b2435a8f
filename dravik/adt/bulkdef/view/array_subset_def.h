// SPDX-License-Identifier: Apache-2.0
#pragma once

// ArraySubsetDef: a regular part of an array, possibly decimated or reversed. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/view/array_view_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// On each of N = 1 ... 4 axes, the target indices that the view runs through; further axes stay as they are.
///
/// View index k on axis a is target index subset[a].origin + k * subset[a].step for k = 0 ... subset[a].count - 1. Any
/// extent is accepted: a negative step reverses the axis, a larger one decimates it, a count of 0 or less shows
/// nothing. Two subsets are equal where they run through the same indices in the same order. Every subset has the same
/// hash code, so a table with subsets alone as keys is searched from end to end.
///
///     using Extent = ExtentImpl<int>;
///     ArraySubsetDef<2> const view({Extent{1, 2, 5}, Extent{9, -1, 10}});  // (0, 0) is (1, 9), (4, 9) is (9, 0)
template <int N>
class DRAVIK_ADT_EXPORT ArraySubsetDef : public ArrayViewDef, public IPrintable {
    static_assert(1 <= N && N <= 4, "Arrays have one to four axes.");

  public:
    explicit ArraySubsetDef(ExtentK<N, int> const& subset);

    /// The target indices per axis.
    ExtentK<N, int> const& subset() const noexcept { return subset_; }
    void setSubset(ExtentK<N, int> const& subset) noexcept { subset_ = subset; }

    /// `view` itself where it is a subset of as many axes, else null.
    static ArraySubsetDef const* Cast(ViewDef const* view) noexcept;

    /// Positions inside the view keep their order; others are clipped away, and what is left then ascends in the view.
    AxisExtent viewToTargetAxisExtent(AxisExtent const& viewAxis) const override;
    /// The view indices come in the order of `targetAxis`; {0, 1, 0} where the view sees none of them.
    AxisExtent targetToViewAxisExtent(AxisExtent const& targetAxis) const override;
    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(ViewDef const& other) const override;
    std::unique_ptr<ViewDef> makeClone() const override;

  private:
    ExtentK<N, int> subset_;
};

extern template class ArraySubsetDef<1>;
extern template class ArraySubsetDef<2>;
extern template class ArraySubsetDef<3>;
extern template class ArraySubsetDef<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
