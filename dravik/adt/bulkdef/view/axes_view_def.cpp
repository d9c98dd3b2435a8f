// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/axes_view_def.h"

#include "dravik/adt/core/hasher.h"

#include <ostream>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkDef::View {

namespace {

template <int N>
FixedVector<N, int> inverted(FixedVector<N, int> const& order) {
    auto inverse = FixedVector<N, int>::Filled(-1);
    for (int axis = 0; axis < N; ++axis) {
        int const shown = order[axis];
        if (shown < 0 || shown >= N || inverse[shown] != -1) {
            std::ostringstream text;
            text << "[AxesViewDef] Invalid argument: " << order << " is no order of the axes 0 to " << N - 1 << ".";
            throw std::invalid_argument(text.str());
        }
        inverse[shown] = axis;
    }
    return inverse;
}

template <int N>
AxisExtent moved(AxisExtent const& from, FixedVector<N, int> const& order) {
    bool const isMoved = static_cast<unsigned>(from.first) < static_cast<unsigned>(N);
    return {isMoved ? order[from.first] : from.first, from.second};
}

}  // namespace

template <int N>
AxesViewDef<N>::AxesViewDef(FixedVector<N, int> const& order) : order_(order), inverseOrder_(inverted(order)) {}

template <int N>
AxesViewDef<N> const* AxesViewDef<N>::Cast(ViewDef const* view) noexcept {
    return dynamic_cast<AxesViewDef const*>(view);
}

template <int N>
AxisExtent AxesViewDef<N>::viewToTargetAxisExtent(AxisExtent const& viewAxis) const {
    return moved(viewAxis, order_);
}

template <int N>
AxisExtent AxesViewDef<N>::targetToViewAxisExtent(AxisExtent const& targetAxis) const {
    return moved(targetAxis, inverseOrder_);
}

template <int N>
int AxesViewDef<N>::getHashCode() const {
    Hasher hash(29);
    for (int const axis : order_) {
        hash(static_cast<unsigned int>(axis));
    }
    return hash;
}

template <int N>
void AxesViewDef<N>::print(std::ostream& out) const {
    out << "AxesViewDef" << order_;
}

template <int N>
bool AxesViewDef<N>::compare(ViewDef const& other) const {
    auto const* const axes = Cast(&other);
    return axes != nullptr && order_ == axes->order_;
}

template <int N>
std::unique_ptr<ViewDef> AxesViewDef<N>::makeClone() const {
    return std::make_unique<AxesViewDef>(*this);
}

template class AxesViewDef<1>;
template class AxesViewDef<2>;
template class AxesViewDef<3>;
template class AxesViewDef<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
