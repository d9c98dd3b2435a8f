// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/array_map_def.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::View {

template <int N>
ArrayMapDef<N>::ArrayMapDef(FixedVector<N, int> const& order, ExtentK<N, int> const& subset)
    : axes_(order), subset_(subset) {}

template <int N>
ArrayMapDef<N> const* ArrayMapDef<N>::Cast(ViewDef const* view) noexcept {
    return dynamic_cast<ArrayMapDef const*>(view);
}

template <int N>
bool ArrayMapDef<N>::isWhole(int targetAxis) const {
    return static_cast<unsigned>(targetAxis) < static_cast<unsigned>(N) && subset()[targetAxis] == kWhole;
}

template <int N>
AxisExtent ArrayMapDef<N>::viewToTargetAxisExtent(AxisExtent const& viewAxis) const {
    auto const moved = axes_.viewToTargetAxisExtent(viewAxis);
    return isWhole(moved.first) ? moved : subset_.viewToTargetAxisExtent(moved);
}

template <int N>
AxisExtent ArrayMapDef<N>::targetToViewAxisExtent(AxisExtent const& targetAxis) const {
    bool const isAll = isWhole(targetAxis.first);
    return axes_.targetToViewAxisExtent(isAll ? targetAxis : subset_.targetToViewAxisExtent(targetAxis));
}

template <int N>
int ArrayMapDef<N>::getHashCode() const {
    return axes_.getHashCode();
}

template <int N>
void ArrayMapDef<N>::print(std::ostream& out) const {
    out << "ArrayMapDef(" << order() << " of " << subset() << ")";
}

template <int N>
bool ArrayMapDef<N>::compare(ViewDef const& other) const {
    auto const* const map = Cast(&other);
    return map != nullptr && order() == map->order() && subset() == map->subset();
}

template <int N>
std::unique_ptr<ViewDef> ArrayMapDef<N>::makeClone() const {
    return std::make_unique<ArrayMapDef>(*this);
}

template class ArrayMapDef<1>;
template class ArrayMapDef<2>;
template class ArrayMapDef<3>;
template class ArrayMapDef<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
