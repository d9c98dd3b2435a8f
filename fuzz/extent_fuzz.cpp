// SPDX-License-Identifier: Apache-2.0
// Extents and array positions with arbitrary numbers, the ends of int included, against arithmetic in 128 bits.

#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"

#include "input.h"

#include <algorithm>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

__extension__ typedef __int128 Wide;
using Extent = ExtentImpl<int>;

constexpr Wide kLowest = std::numeric_limits<int>::min();
constexpr Wide kHighest = std::numeric_limits<int>::max();

Extent anyExtent(Input& input) {
    return {input.anyInt(), input.anyInt(), input.anyInt()};
}

Wide indexAt(Extent const& extent, Wide place) {
    return extent.origin + place * extent.step;
}

bool hasIndex(Extent const& extent, Wide index) {
    if (extent.count <= 0) {
        return false;
    }
    Wide const distance = index - extent.origin;
    if (extent.step == 0 || extent.count == 1) {
        return distance == 0;
    }
    return distance % extent.step == 0 && distance / extent.step >= 0 && distance / extent.step < extent.count;
}

/// A few places of an extent, its ends among them.
template <class Visit>
void atSomePlaces(Extent const& extent, Input& input, Visit visit) {
    for (int round = 0; round < 6 && extent.count > 0; ++round) {
        Wide const place = round == 0   ? Wide{0}
                           : round == 1 ? Wide{extent.count} - 1
                                        : Wide{input.take<std::uint32_t>()} % extent.count;
        visit(indexAt(extent, place));
    }
}

void checkIntersection(Extent const& a, Extent const& b, Input& input) {
    Extent const common = a.intersection(b);
    require(common.count >= 0 && (common.count > 0 || (common.origin == 0 && common.step == 1)), "empty", a, b, common);
    atSomePlaces(common, input, [&](Wide index) {
        require(hasIndex(a, index) && hasIndex(b, index), "index of one side only", a, b, common);
    });
    require(common.count <= 1 || (a.step < 0) == (common.step < 0), "direction", a, b, common);
    // A common step that leaves int keeps one index; everything else has to be there.
    Wide const stepA = a.step == 0 ? 1 : a.step;
    Wide const stepB = b.step == 0 ? 1 : b.step;
    Wide divisor = stepA;
    for (Wide rest = stepB; rest != 0;) {
        Wide const next = divisor % rest;
        divisor = rest;
        rest = next;
    }
    Wide const multiple = stepA / divisor * stepB;
    Wide const step = (multiple < 0) == (a.step < 0) ? multiple : -multiple;
    bool const cut = step < kLowest || step > kHighest;
    for (Extent const& side : {a, b}) {
        atSomePlaces(side, input, [&](Wide index) {
            bool const wanted = hasIndex(a, index) && hasIndex(b, index) && kLowest <= index && index <= kHighest;
            require(!wanted || hasIndex(common, index) || (cut && common.count == 1), "lost index", a, b, common);
        });
    }
}

void checkPair(Extent const& a, Extent const& b, Input& input) {
    checkIntersection(a, b, input);
    bool const inside = a.contains(b);
    if (inside) {
        atSomePlaces(b, input, [&](Wide index) { require(hasIndex(a, index), "contained, but outside", a, b); });
    }
    Extent const relative = b.relativeTo(a);
    require(relative.count == (inside && b.count > 0 ? b.count : 0), "relative count", a, b, relative);
    require(!(a == b) || b == a, "equality goes both ways", a, b);
    int const value = input.anyInt();
    int const place = a.nearestIndex(value);
    require(a.count <= 0 ? place == -1 : 0 <= place && place < a.count, "place", a, value, place);
    if (a.count > 0 && a.step != 0) {
        auto const distance = [&](Wide at) {
            Wide const difference = indexAt(a, at) - value;
            return difference < 0 ? -difference : difference;
        };
        require(place == 0 || distance(place) <= distance(place - 1), "nearer before", a, value, place);
        require(place == a.count - 1 || distance(place) <= distance(place + 1), "nearer behind", a, value, place);
    }
    require(a.reversed().isEmpty() == a.isEmpty(), "reversed", a);
    static_cast<void>(a.bounds());
}

std::uint64_t low64(Wide value) {
    return static_cast<std::uint64_t>(value);
}

void checkArray(Input& input) {
    OpenEndedRange<4, int> range;
    FixedVector<4, int> strides;
    for (int axis = 0; axis < 4; ++axis) {
        range.min[axis] = input.anyInt();
        range.max[axis] = input.anyInt();
        strides[axis] = input.anyInt();
    }
    int const offset = input.anyInt();
    int const bitSize = input.between(0, 256);
    ArrayConstRef<4> const array(range, strides, nullptr, offset, typeid(void), bitSize);
    Wide origin = offset;
    Wide low = offset;
    Wide high = offset;
    for (int axis = 0; axis < 4; ++axis) {
        origin -= Wide{range.min[axis]} * strides[axis];
        Wide const reach =
            range.min[axis] < range.max[axis] ? (Wide{range.max[axis]} - 1 - range.min[axis]) * strides[axis] : Wide{0};
        (reach < 0 ? low : high) += reach;
    }
    require(low64(origin) == static_cast<std::uint64_t>(array.originOffset()), "origin", array);
    constexpr Wide kMost = std::numeric_limits<std::int64_t>::max() / 512;
    if (-kMost < low && high < kMost) {
        auto const bounds = array.linearBounds();
        require(low == bounds.min[0] && high + 1 == bounds.max[0], "linear bounds", array, bounds);
        Wide const bytes = ((high - low + 1) * bitSize + 7) / 8;
        Wide const expected = std::min<Wide>(bytes, std::numeric_limits<std::uint32_t>::max());
        require(expected == array.requiredBufferByteSize(/*touchedOnly=*/true), "bytes", array);
    }
    try {
        static_cast<void>(array.requiredBufferByteSize(/*touchedOnly=*/true));
        static_cast<void>(array.requiredBufferByteSize(/*touchedOnly=*/false));
    } catch (std::runtime_error const&) {
        // The block starts before its buffer.
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    auto const a = anyExtent(input);
    auto const b = anyExtent(input);
    checkPair(a, b, input);
    checkPair(b, a, input);
    checkArray(input);
    return 0;
}
