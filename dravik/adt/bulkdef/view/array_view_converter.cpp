// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/array_view_converter.h"

#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkdef/view/composite_view_def.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkDef::View {

namespace {

template <int N>
bool isDecimated(ExtentK<N, int> const& extents, OpenEndedRange<N, int> const& box) {
    bool decimated = false;
    for (int axis = 0; axis < N; ++axis) {
        // At the ends of int the box may be cut to just the count.
        bool const leavesOut = extents[axis].count > 1 && std::abs(std::int64_t{extents[axis].step}) != 1;
        decimated = decimated || leavesOut || box.size(axis) != std::max(extents[axis].count, 0);
    }
    return decimated;
}

[[noreturn]] void refuseSize() {
    throw std::length_error("[ArrayViewConverter::convertArray] The array is too large to be read backwards.");
}

int fitted(std::int64_t value, bool mustFit) {
    int const cut = Adt::Detail::saturated<int>(value);
    if (mustFit && cut != value) {
        refuseSize();
    }
    return cut;
}

// Turns the strides of an array whose range is already that of `target` into the direction of `target`.
template <int N>
void turnToTarget(ExtentK<N, int> const& target, ArrayConstRef<N>& array) {
    // On an axis that descends, the first sample belongs to the highest index.
    std::int64_t offset = array.bufferOffset();
    FixedVector<N, int> strides;
    for (int axis = 0; axis < N; ++axis) {
        std::int64_t const stride = array.strides()[axis];
        std::int64_t const distance = std::int64_t{target[axis].origin} - array.range().min[axis];
        if (__builtin_add_overflow(offset, distance * stride, &offset)) {
            refuseSize();
        }
        std::int64_t const step = target[axis].step == 0 ? 1 : target[axis].step;
        strides[axis] = fitted(stride / step, /*mustFit=*/target[axis].count > 1);
    }
    array.setBufferOffset(fitted(offset, /*mustFit=*/!target.isEmpty()));
    array.setStrides(strides);
}

}  // namespace

template <int N>
ArrayViewConverter<N>::ArrayViewConverter(ViewDef const& view, bool inverse) {
    if (auto const* const array = ArrayViewDef::Cast(&view)) {
        view_ = inverse ? array->inverse() : array->clone();
    } else if (CompleteViewDef::Cast(&view) == nullptr) {
        throw std::invalid_argument("[ArrayViewConverter] Unknown view type");
    }
}

template <int N>
ArrayViewConverter<N>::ArrayViewConverter(boost::shared_ptr<ViewDef const> const& view, bool inverse)
    : view_(ArrayViewDef::Cast(inverse ? CompositeViewDef::inverse(view) : view)) {
    if (!view) {
        throw std::invalid_argument("[ArrayViewConverter] null view");
    }
    if (!view_ && CompleteViewDef::Cast(view.get()) == nullptr) {
        throw std::invalid_argument("[ArrayViewConverter] wiew is of unknown type");
    }
}

template <int N>
ArrayViewConverter<N>::ArrayViewConverter(ArrayViewConverter const& other, bool inverse)
    : view_(inverse && other.view_ ? other.view_->inverse() : other.view_) {}

template <int N>
typename ArrayViewConverter<N>::Extent ArrayViewConverter<N>::convertExtents(Extent const& extent) const {
    FixedVector<N, int> axes;
    return convertExtents(extent, &axes);
}

template <int N>
typename ArrayViewConverter<N>::Extent ArrayViewConverter<N>::convertExtents(
    Extent const& extent, FixedVector<N, int>* axes) const {
    if (isIdentity()) {
        std::iota(axes->begin(), axes->end(), 0);
        return extent;
    }
    Extent converted;
    for (int axis = 0; axis < N; ++axis) {
        auto const [to, indices] = view_->viewToTargetAxisExtent({axis, extent[axis]});
        (*axes)[axis] = to;
        if (static_cast<unsigned>(to) < static_cast<unsigned>(N)) {
            converted[to] = indices;
        }
    }
    return converted;
}

template <int N>
typename ArrayViewConverter<N>::Range ArrayViewConverter<N>::convert(Range const& range) const {
    return isIdentity() ? range : convertExtents(Extent(range)).bounds();
}

template <int N>
void ArrayViewConverter<N>::convertRegion(Range const& range, Range* out) const {
    *out = convert(range);
}

template <int N>
typename ArrayViewConverter<N>::Set ArrayViewConverter<N>::convert(Set const& set) const {
    Set converted;
    convertRegion(set, &converted);
    return converted;
}

template <int N>
void ArrayViewConverter<N>::convertRegion(Set const& set, Set* out) const {
    if (isIdentity()) {
        *out = set;
        return;
    }
    if (&set == out) {
        // Adding to a set ends the walk through its boxes.
        convertRegion(Set(set), out);
        return;
    }
    for (Range const& box : set.boxes()) {
        out->add(convert(box));
    }
}

template <int N>
typename ArrayViewConverter<N>::Array ArrayViewConverter<N>::convert(Array const& array) const {
    if (isIdentity()) {
        return array;
    }
    FixedVector<N, int> axes;
    Extent const target = convertExtents(Extent(array.range()), &axes);
    FixedVector<N, int> inPlace;
    std::iota(inPlace.begin(), inPlace.end(), 0);
    if (axes != inPlace) {
        throw Exceptions::NotImplementedException("[ArrayViewConverter] Axis permutation is not yet supported.");
    }
    Range const box = target.bounds();
    if (isDecimated(target, box)) {
        throw std::invalid_argument("[ArrayViewConverter] Target view is decimated, cannot convert array.");
    }
    Array converted = array;
    converted.moveTo(box.min);
    if (converted.range() != box) {
        throw Exceptions::NotSupportedException(
            "[ArrayViewConverter::convertArray] Given array is (partially) outside the view.");
    }
    turnToTarget(target, converted);
    return converted;
}

template <int N>
void ArrayViewConverter<N>::convertArray(Array const& array, Array* out) const {
    *out = convert(array);
}

template <int N>
std::ostream& ArrayViewConverter<N>::print(std::ostream& out) const {
    out << "ArrayViewConverter(";
    return (view_ ? out << *view_ : out << "identity") << ")";
}

template class ArrayViewConverter<1>;
template class ArrayViewConverter<2>;
template class ArrayViewConverter<3>;
template class ArrayViewConverter<4>;

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
