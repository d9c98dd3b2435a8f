// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/shared_array.h"

#include "dravik/adt/exceptions/simple_exception.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt {
namespace {

static_assert(
    std::is_convertible_v<SharedArray<2>, SharedArray<4>> && std::is_convertible_v<SharedArray<3>, SharedArray<4>>);
static_assert(!std::is_constructible_v<SharedArray<3>, SharedArray<4>>);
static_assert(std::is_convertible_v<SharedArray<3>, ArrayConstRef<3>>);
static_assert(std::is_nothrow_move_constructible_v<SharedArray<4>>);

class Packed {};
template <class Sample>
concept CanMake = requires {
    SharedArray<1>::Make<Sample>({});
};
static_assert(CanMake<double> && !CanMake<Packed>, "whoever packs samples has to say how many bits they take");

TEST(SharedArray, WidensInTheSameStorage) {
    auto narrow = SharedArray<2>::Make<float>({{2, 0}, {5, 4}}, {4, 1});
    char* const data = narrow.data();
    SharedArray<4> const wide = narrow;
    EXPECT_EQ(wide, ArrayRef<4>({{2, 0, 0, 0}, {5, 4, 1, 1}}, {4, 1, 0, 0}, data, 0, typeid(float), 32));
    EXPECT_EQ(wide.position({3, 2, 0, 0}), narrow.position({3, 2}));
    EXPECT_EQ(wide.buffer().getOwner(), narrow.buffer().getOwner());
    narrow = SharedArray<2>();
    EXPECT_EQ(wide.buffer().getBufferNoAlloc(), data) << "the wide one holds the storage as well";
}

TEST(SharedArray, MakesZerosInTheLayoutAskedFor) {
    struct Row {
        char const* name;
        SharedArray<3> array;
        FixedVector<3, int> strides;
        int bufferOffset;
        std::uint32_t byteSize;
    };
    using Array = SharedArray<3>;
    Row const rows[] = {
        {"CIsTheDefault", Array::Make<float>({{1, 1, 1}, {3, 4, 5}}), {12, 4, 1}, 0, 96},
        {"LastAxisSlowest", Array::Make<char>({{0, 0, 0}, {2, 3, 4}}, {1, 2, 6}), {1, 2, 6}, 0, 24},
        {"Backwards", Array::Make<double>({{0, 0, 0}, {2, 3, 4}}, {-12, 4, -1}), {-12, 4, -1}, 15, 192},
        {"Repeating", Array::Make<short>({{0, 0, 0}, {9, 3, 4}}, {0, 4, 1}), {0, 4, 1}, 0, 24},
        {"Padded", Array::Make<short>({{0, 0, 0}, {2, 2, 3}}, {16, 4, 1}), {16, 4, 1}, 0, 46},
        {"OneBit", Array::Make({{0, 0, 0}, {1, 1, 9}}, typeid(Packed), 1), {9, 9, 1}, 0, 2},
        {"Empty", Array::Make<int>({{0, 0, 0}, {0, 3, 4}}), {12, 4, 1}, 0, 48},
        {"EmptyInside", Array::Make<int>({{0, 0, 0}, {2, 0, 4}}), {0, 4, 1}, 0, 16},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(row.array.strides(), row.strides) << row.name;
        EXPECT_EQ(row.array.bufferOffset(), row.bufferOffset) << row.name;
        ASSERT_EQ(row.array.buffer().getBufferByteSize(), row.byteSize) << row.name;
        ASSERT_EQ(row.array.data(), row.array.buffer().getBufferNoAlloc()) << row.name;
        char const* const bytes = row.array.data();
        EXPECT_EQ(std::count(bytes, bytes + row.byteSize, 0), row.byteSize) << row.name;
    }
}

TEST(SharedArray, WrapsTheCallersMemory) {
    std::vector<int> samples(12);
    auto const array = SharedArray<2>::Wrap<int>(samples, {{0, 0}, {3, 4}}, {-4, 1});
    reinterpret_cast<int*>(array.data())[array.position({0, 2})] = 7;
    EXPECT_EQ(samples[10], 7) << "row 0 lies last";
    EXPECT_FALSE(array.buffer().isReadOnly());
    EXPECT_FALSE(array.buffer().isShareable());
    EXPECT_EQ(array.buffer().getBufferByteSize(), 48u);
    EXPECT_THROW(SharedArray<2>::Wrap<int>(samples, {{0, 0}, {1, 13}}), std::invalid_argument);
    EXPECT_EQ(SharedArray<2>::Wrap<int>(samples, {{0, 0}, {2, 4}}).position({1, 0}), 4);
}

TEST(SharedArray, RefusesToWriteReadOnlyMemory) {
    std::vector<int> const samples(12, 7);
    auto array = SharedArray<2>::Wrap(std::span(samples), {{0, 0}, {3, 4}});
    EXPECT_TRUE(array.buffer().isReadOnly());
    SharedArray<4> const wide = array;
    EXPECT_THROW(wide.data(), Exceptions::NotSupportedException);
    EXPECT_THROW(array.ensureAllocated(/*wanted=*/true), Exceptions::NotSupportedException);
    array.allocate(/*allocateNow=*/false);
    EXPECT_EQ(wide.constData(), reinterpret_cast<char const*>(samples.data()));
    EXPECT_EQ(ArrayConstRef<2>(array).data(), wide.constData());
    EXPECT_EQ(SharedArray<1>::Wrap(std::span<int>(), {}).range(), SharedArray<1>::Range()) << "nothing to wrap";
}

TEST(SharedArray, IsEmptyAfterItWasMoved) {
    auto array = SharedArray<2>::Make<float>({{0, 0}, {3, 4}});
    char* const bytes = array.data();
    SharedArray<2> moved(std::move(array));
    EXPECT_EQ(array, SharedArray<2>());
    EXPECT_TRUE(array.buffer().isNull());
    array = std::move(moved);
    EXPECT_EQ(moved, SharedArray<2>());
    EXPECT_EQ(array.buffer().getBufferNoAlloc(), bytes);
    moved.ensureAllocated(/*wanted=*/true);
    EXPECT_NE(moved.data(), nullptr);
}

TEST(SharedArray, RefusesWhatItsNumbersCannotTell) {
    using Array = SharedArray<3>;
    std::array<char, 4> memory{};
    EXPECT_THROW(Array::Make<double>({{0, 0, 0}, {1024, 1024, 512}}), std::length_error) << "bytes";
    EXPECT_THROW(Array::Make({{}, {2, 65536, 32768}}, typeid(Packed), 1), std::length_error) << "a dense stride";
    EXPECT_THROW(Array::Make({{}, {3, 1, 1}}, {INT_MIN, 0, 0}, typeid(Packed), 1), std::length_error) << "the offset";
    EXPECT_THROW(Array::Wrap<char>(memory, {{}, {65536, 65536, 1}}), std::length_error);
    EXPECT_THROW(
        Array::Make({{INT_MIN, INT_MIN, 0}, {INT_MAX, INT_MAX, 1}}, {INT_MAX, INT_MAX, 0}, typeid(Packed), 1),
        std::length_error)
        << "positions beyond 64 bits";
    EXPECT_THROW(Array::Make({}, typeid(void), 0), std::invalid_argument);
    EXPECT_EQ(Array::DenseStrides({{}, {2, 1, INT_MAX}})[0], INT_MAX) << "just fits";
    EXPECT_EQ(Array::Make({{}, {2, 1, 1}}, {-INT_MAX, 0, 0}, typeid(Packed), 1).bufferOffset(), INT_MAX);
    EXPECT_EQ(Array::DenseStrides({{}, {1, 50000, 50000}})[0], INT_MAX) << "an axis of one index takes no step";
}

SharedArray<1> unallocated(int length, SharedBuffer buffer, int bufferOffset = 0, int bitSize = 8) {
    using Index = FixedVector<1, int>;
    ArrayRef<1> const array({Index(0), Index(length)}, Index(1), nullptr, bufferOffset, typeid(char), bitSize);
    return {array, std::move(buffer)};
}

SharedBuffer bufferOf(std::uint32_t byteSize) {
    return SharedBuffer(boost::intrusive_ptr<SharedBuffer::Owner>(new SharedBuffer::BasicArrayOwner(byteSize)));
}

TEST(SharedArray, AllocatesInItsStorage) {
    struct Row {
        char const* name;
        SharedArray<1> array;
        bool allocateNow;
        bool getsMemory;
        std::uint32_t byteSize;
    };
    static char external[4];
    Row rows[] = {
        {"NewStorage", unallocated(8, {}), true, true, 8},
        {"NewStorageLater", unallocated(8, {}), false, false, 8},
        {"OffsetIsRoomBefore", unallocated(8, {}, 2), true, true, 10},
        {"NoBits", unallocated(8, {}, 0, 0), true, true, 0},
        {"NegativeBits", unallocated(8, {}, 0, -8), true, true, 0},
        {"LargeEnough", unallocated(8, bufferOf(8)), true, true, 8},
        {"TooSmallGivesNothing", unallocated(8, bufferOf(7)), true, false, 7},
        {"TooSmallTakesAway", unallocated(8, SharedBuffer::createFromExternal(external, 4, true)), true, false, 4},
    };
    std::end(rows)[-1].array.setData(external);
    for (Row& row : rows) {
        auto const owner = row.array.buffer().getOwner();
        row.array.allocate(row.allocateNow);
        EXPECT_EQ(row.array.data() != nullptr, row.getsMemory) << row.name;
        EXPECT_EQ(row.array.buffer().getBufferByteSize(), row.byteSize) << row.name;
        EXPECT_TRUE(owner == nullptr || owner == row.array.buffer().getOwner()) << row.name;
        EXPECT_EQ(row.array.data(), row.getsMemory ? row.array.buffer().getBufferNoAlloc() : nullptr) << row.name;
    }
}

TEST(SharedArray, ChangesNothingWhenItCannotAllocate) {
    auto before = unallocated(4, {}, -1);
    EXPECT_THROW(before.allocate(/*allocateNow=*/true), std::runtime_error);
    EXPECT_TRUE(before.buffer().isNull());

    SharedArray<2> huge(
        ArrayRef<2>({{0, 0}, {65536, 65536}}, {65536, 1}, nullptr, 0, typeid(char), 8), bufferOf(0xFFFFFFFF));
    EXPECT_THROW(huge.allocate(/*allocateNow=*/false), std::length_error) << "one byte more than the owner can have";
    huge.setRange({{0, 0}, {65535, 65537}});
    huge.setStrides({65537, 1});
    EXPECT_NO_THROW(huge.allocate(/*allocateNow=*/false)) << "as many bytes as an owner can have";

    auto array = unallocated(4, {});
    array.ensureAllocated(/*wanted=*/false);
    EXPECT_TRUE(array.buffer().isNull());
    array.ensureAllocated(/*wanted=*/true);
    char* const bytes = array.data();
    array.setBuffer(bufferOf(100));
    array.ensureAllocated(/*wanted=*/true);
    EXPECT_EQ(array.data(), bytes) << "memory that is there is left alone";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
