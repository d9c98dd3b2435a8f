// SPDX-License-Identifier: Apache-2.0
#pragma once

// ArrayMapDef: a regular part of an array with its axes in another order. Threads: as every definition.

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/axes_view_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// On each of N = 1 ... 4 axes an ArraySubsetDef, seen through an AxesViewDef: index k on axis a of the view is index
/// subset[t].origin + k * subset[t].step on axis t = order[a] of the target. Made by CompositeViewDef.
///
/// An axis whose extent is kWhole is not restricted. Two maps are equal where their orders are and, as for
/// ArraySubsetDef, their subsets. The hash is that of the order.
template <int N>
class DRAVIK_ADT_EXPORT ArrayMapDef : public ArrayViewDef, public IPrintable {
  public:
    /// More than any axis has: all of it, whatever its size.
    static constexpr ExtentImpl<int> kWhole{-1073741824, 1, 2147483647};

    /// @throws std::invalid_argument unless each axis from 0 to N - 1 is in `order` once
    ArrayMapDef(FixedVector<N, int> const& order, ExtentK<N, int> const& subset);

    FixedVector<N, int> const& order() const noexcept { return axes_.order(); }
    /// Per axis of the target.
    ExtentK<N, int> const& subset() const noexcept { return subset_.subset(); }

    /// `view` itself where it is a map of as many axes, else null.
    static ArrayMapDef const* Cast(ViewDef const* view) noexcept;

    AxisExtent viewToTargetAxisExtent(AxisExtent const& viewAxis) const override;
    AxisExtent targetToViewAxisExtent(AxisExtent const& targetAxis) const override;
    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(ViewDef const& other) const override;
    std::unique_ptr<ViewDef> makeClone() const override;

  private:
    bool isWhole(int targetAxis) const;

    AxesViewDef<N> axes_;
    ArraySubsetDef<N> subset_;
};

extern template class ArrayMapDef<1>;
extern template class ArrayMapDef<2>;
extern template class ArrayMapDef<3>;
extern template class ArrayMapDef<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
