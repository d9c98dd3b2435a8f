// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/array_subset_def.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::View {

template <int N>
ArraySubsetDef<N>::ArraySubsetDef(ExtentK<N, int> const& subset) : subset_(subset) {}

template <int N>
ArraySubsetDef<N> const* ArraySubsetDef<N>::Cast(ViewDef const* view) noexcept {
    return dynamic_cast<ArraySubsetDef const*>(view);
}

template <int N>
AxisExtent ArraySubsetDef<N>::viewToTargetAxisExtent(AxisExtent const& viewAxis) const {
    auto const& [axis, wanted] = viewAxis;
    if (static_cast<unsigned>(axis) >= static_cast<unsigned>(N)) {
        return viewAxis;
    }
    ExtentImpl<int> const& seen = subset_[axis];
    ExtentImpl<int> const whole{0, 1, seen.count};
    return {axis, seen.composed(whole.contains(wanted) ? wanted : whole.intersection(wanted))};
}

template <int N>
AxisExtent ArraySubsetDef<N>::targetToViewAxisExtent(AxisExtent const& targetAxis) const {
    auto const& [axis, wanted] = targetAxis;
    if (static_cast<unsigned>(axis) >= static_cast<unsigned>(N)) {
        return targetAxis;
    }
    ExtentImpl<int> const& seen = subset_[axis];
    return {axis, wanted.intersection(seen).relativeTo(seen)};
}

template <int N>
int ArraySubsetDef<N>::getHashCode() const {
    return 19;
}

template <int N>
void ArraySubsetDef<N>::print(std::ostream& out) const {
    out << "ArraySubsetDef(" << subset_ << ")";
}

template <int N>
bool ArraySubsetDef<N>::compare(ViewDef const& other) const {
    auto const* const subsetDef = Cast(&other);
    return subsetDef != nullptr && subset_ == subsetDef->subset_;
}

template <int N>
std::unique_ptr<ViewDef> ArraySubsetDef<N>::makeClone() const {
    return std::make_unique<ArraySubsetDef>(subset_);
}

template class ArraySubsetDef<1>;
template class ArraySubsetDef<2>;
template class ArraySubsetDef<3>;
template class ArraySubsetDef<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
