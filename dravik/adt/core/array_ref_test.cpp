// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/array_ref.h"

#include "dravik/adt/testing/index_bitmap.h"
#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <numeric>

namespace Quorvel::Dravik::Adt {
namespace {

using Testing::Random;

static_assert(std::is_trivially_copyable_v<ArrayRef<4>> && std::is_trivially_copyable_v<ArrayConstRef<4>>);
static_assert(std::is_convertible_v<ArrayRef<3>, ArrayConstRef<3>>);
static_assert(!std::is_convertible_v<ArrayConstRef<3>, ArrayRef<3>>, "what may only be read must not become writable");
static_assert(!std::is_constructible_v<ArrayRef<3>, ArrayRef<4>>);
static_assert(ArrayRef<2>({{2, 0}, {9, 1}}, {3, 1}, nullptr, 4, typeid(int), 32).originOffset() == -2);
static_assert(ArrayRef<2>().bitSize() == 0 && ArrayRef<2>().originOffset() == 0 && ArrayRef<2>().data() == nullptr);

template <int N>
ArrayConstRef<N> layout(
    OpenEndedRange<N, int> const& range, FixedVector<N, int> const& strides, int bufferOffset, int bitSize = 32) {
    return {range, strides, nullptr, bufferOffset, typeid(float), bitSize};
}

template <int N>
FixedVector<N, int> randomVector(Random& random, int low, int high) {
    FixedVector<N, int> vector;
    std::generate(vector.begin(), vector.end(), [&] { return random.between(low, high); });
    return vector;
}

template <int N>
void checkAgainstEnumeration(Random& random) {
    auto const min = randomVector<N>(random, -5, 5);
    auto const size = randomVector<N>(random, 0, 4);
    ArrayConstRef<N> array = layout<N>({}, {}, 0, random.oneOf({1, 7, 8, 32, 96}));
    // One field after the other, in any order, ends with the same origin.
    int const first = random.between(0, 2);
    for (int field = first; field < first + 3; ++field) {
        field % 3 == 0   ? array.setBufferOffset(random.between(-20, 20))
        : field % 3 == 1 ? array.setRange({min, min + size})
                         : array.setStrides(randomVector<N>(random, -3, 3));
    }
    SCOPED_TRACE(testing::Message() << array);
    auto const newMin = randomVector<N>(random, -100, 100);
    auto moved = array;
    moved.moveTo(newMin);
    EXPECT_EQ(moved.range(), (OpenEndedRange<N, int>{newMin, newMin + size}));
    EXPECT_EQ(moved.bufferOffset(), array.bufferOffset());

    auto touched = array.range();
    for (int axis = 0; axis < N; ++axis) {
        touched.max[axis] += size[axis] == 0 ? 1 : 0;  // an empty axis counts as its lower bound
    }
    std::int64_t lowest = array.bufferOffset();
    std::int64_t highest = lowest;
    Testing::forEachPoint(touched, [&](FixedVector<N, int> const& point) {
        auto const steps = point - min;
        auto const position =
            std::inner_product(steps.begin(), steps.end(), array.strides().begin(), array.bufferOffset());
        EXPECT_EQ(array.position(point), position);
        EXPECT_EQ(moved.position(newMin + steps), position) << "the same samples under other labels";
        lowest = std::min<std::int64_t>(lowest, position);
        highest = std::max<std::int64_t>(highest, position);
    });
    EXPECT_EQ(array.linearBounds().min[0], lowest);
    EXPECT_EQ(array.linearBounds().max[0], highest + 1);
    auto const byteSize = [&](std::int64_t samples) { return (samples * array.bitSize() + 7) / 8; };
    EXPECT_EQ(array.requiredBufferByteSize(/*touchedOnly=*/true), byteSize(highest + 1 - lowest));
    if (lowest >= 0) {
        EXPECT_EQ(array.requiredBufferByteSize(/*touchedOnly=*/false), byteSize(highest + 1));
    } else {
        EXPECT_THROW(array.requiredBufferByteSize(/*touchedOnly=*/false), std::runtime_error);
    }
}

TEST(ArrayRef, AgreesWithEnumeratedPositions) {
    Random random;
    for (int round = 0; round < 1000; ++round) {
        checkAgainstEnumeration<1>(random);
        checkAgainstEnumeration<2>(random);
        checkAgainstEnumeration<3>(random);
        checkAgainstEnumeration<4>(random);
    }
}

TEST(ArrayRef, FormsPositionsInSixtyFourBits) {
    // One row of a large volume, lent with the strides of the whole: index 357 is the last that 32 bits can tell.
    auto const row = layout<3>({{350, 0, 0}, {360, 1, 1}}, {6'000'000, 2000, 1}, 0);
    EXPECT_EQ(row.originOffset(), -2'100'000'000);
    EXPECT_EQ(row.position({359, 0, 0}), 54'000'000);
    auto const volume = layout<3>({{0, 0, 0}, {1000, 3000, 2000}}, {6'000'000, 2000, 1}, 0);
    EXPECT_EQ(volume.position({358, 0, 0}), 2'148'000'000);
    EXPECT_EQ(volume.linearBounds().max[0], 6'000'000'000);
    EXPECT_EQ(layout<3>({{-1000, 0, 0}, {0, 1, 1}}, {6'000'000, 2000, 1}, 0).originOffset(), 6'000'000'000);
}

TEST(ArrayRef, CutsByteSizesAt32Bits) {
    struct Row {
        char const* name;
        int side;
        int bitSize;
        std::uint32_t byteSize;
    };
    constexpr Row kRows[] = {
        {"NoType", 10, 0, 0},
        {"NegativeBits", 10, -8, 0},
        {"JustFits", 65535, 8, 4294836225},
        {"OneTooMany", 65536, 8, 4294967295},
        {"Beyond64Bits", INT_MAX, INT_MAX, 4294967295},
        {"FarBelowZero", INT_MAX, INT_MIN, 0},
    };
    for (Row const& row : kRows) {
        auto const square = layout<2>({{0, 0}, {row.side, row.side}}, {row.side, 1}, 0, row.bitSize);
        EXPECT_EQ(square.requiredBufferByteSize(/*touchedOnly=*/true), row.byteSize) << row.name;
        EXPECT_EQ(square.requiredBufferByteSize(/*touchedOnly=*/false), row.byteSize) << row.name;
    }
    try {
        layout<2>({{0, 0}, {4, 1}}, {-1, 0}, 0).requiredBufferByteSize(/*touchedOnly=*/false);
        ADD_FAILURE() << "starts before its buffer";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "[ArrayConstRef::requiredBufferByteSize(false)] Buffer offset is not normalized.");
    }
}

TEST(ArrayRef, IsReadAsTheSameArray) {
    ArrayRef<2> array({{2, 0}, {5, 4}}, {4, 1}, nullptr, 3, typeid(short), 16);
    ArrayConstRef<2> const read = array;
    EXPECT_EQ(read, ArrayConstRef<2>({{2, 0}, {5, 4}}, {4, 1}, nullptr, 3, typeid(short), 16));
    array.setValueType(typeid(short), 12);
    EXPECT_NE(read, ArrayConstRef<2>(array));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
