// SPDX-License-Identifier: Apache-2.0
#pragma once

// AxesViewDef: an array with its axes in another order. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/view/array_view_def.h"
#include "dravik/adt/core/fixed_vector.h"

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// Exchanges the first N = 1 ... 4 axes: axis a of the view is axis order[a] of the target, index by index. Further
/// axes stay as they are.
///
///     AxesViewDef<3> const view({2, 0, 1});  // (k, i, j) is (i, j, k)
template <int N>
class DRAVIK_ADT_EXPORT AxesViewDef : public ArrayViewDef, public IPrintable {
    static_assert(1 <= N && N <= 4, "Arrays have one to four axes.");

  public:
    /// @throws std::invalid_argument unless each axis from 0 to N - 1 is in `order` once
    explicit AxesViewDef(FixedVector<N, int> const& order);

    FixedVector<N, int> const& order() const noexcept { return order_; }
    /// The order that leads back: axis t of the target is axis inverseOrder()[t] of the view.
    FixedVector<N, int> const& inverseOrder() const noexcept { return inverseOrder_; }

    /// `view` itself where it exchanges as many axes, else null.
    static AxesViewDef const* Cast(ViewDef const* view) noexcept;

    AxisExtent viewToTargetAxisExtent(AxisExtent const& viewAxis) const override;
    AxisExtent targetToViewAxisExtent(AxisExtent const& targetAxis) const override;
    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(ViewDef const& other) const override;
    std::unique_ptr<ViewDef> makeClone() const override;

  private:
    FixedVector<N, int> order_;
    FixedVector<N, int> inverseOrder_;
};

extern template class AxesViewDef<1>;
extern template class AxesViewDef<2>;
extern template class AxesViewDef<3>;
extern template class AxesViewDef<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
