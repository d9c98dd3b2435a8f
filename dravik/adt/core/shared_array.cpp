// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/shared_array.h"

#include "dravik/adt/exceptions/simple_exception.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt {

namespace {

constexpr std::int64_t kLargestByteSize = std::numeric_limits<std::uint32_t>::max();
constexpr std::int64_t kLargestInt = std::numeric_limits<int>::max();

/// Indices along `axis`, at least 0.
template <int N>
std::int64_t lengthOf(OpenEndedRange<N, int> const& range, int axis) {
    return std::max<std::int64_t>(range.size(axis), 0);
}

}  // namespace

template <int N>
SharedArray<N> SharedArray<N>::Make(Range const& range, std::type_info const& valueType, int bitSize) {
    return Make(range, DenseStrides(range), valueType, bitSize);
}

template <int N>
SharedArray<N> SharedArray<N>::Make(
    Range const& range, Strides const& strides, std::type_info const& valueType, int bitSize) {
    SharedArray array = laidOut(range, strides, valueType, bitSize);
    array.allocate(/*allocateNow=*/true);
    std::memset(array.data(), 0, array.buffer_.getBufferByteSize());
    return array;
}

template <int N>
SharedArray<N> SharedArray<N>::Wrap(
    void* memory, std::size_t byteSize, Range const& range, Strides const& strides, std::type_info const& valueType,
    int bitSize) {
    return wrapped(memory, /*writable=*/true, byteSize, laidOut(range, strides, valueType, bitSize));
}

template <int N>
SharedArray<N> SharedArray<N>::Wrap(
    void const* memory, std::size_t byteSize, Range const& range, Strides const& strides,
    std::type_info const& valueType, int bitSize) {
    return wrapped(
        const_cast<void*>(memory), /*writable=*/false, byteSize, laidOut(range, strides, valueType, bitSize));
}

template <int N>
SharedArray<N> SharedArray<N>::wrapped(void* memory, bool writable, std::size_t byteSize, SharedArray laidOut) {
    // An empty array counts its first position, but has no sample there that anybody reads.
    std::uint32_t const byteSizeFromStart = laidOut.exactByteSize();
    std::uint32_t const needed = laidOut.range().isEmpty() ? 0 : byteSizeFromStart;
    if (needed > byteSize) {
        throw std::invalid_argument(
            "[SharedArray::Wrap] Invalid argument: memory is smaller than the array. It has " +
            std::to_string(byteSize) + " of " + std::to_string(needed) + " bytes.");
    }
    auto const lentByteSize = static_cast<std::uint32_t>(std::min<std::size_t>(byteSize, kLargestByteSize));
    laidOut.buffer_ = SharedBuffer::createFromExternal(memory, lentByteSize, writable);
    laidOut.setData(static_cast<char*>(memory));
    return laidOut;
}

template <int N>
void SharedArray<N>::refuseWriting() {
    throw Exceptions::NotSupportedException("[SharedArray::data] The memory is read-only. constData() reads it.");
}

template <int N>
FixedVector<N, int> SharedArray<N>::DenseStrides(Range const& range) {
    Strides strides;
    std::int64_t stride = 1;
    for (int axis = N - 1; axis >= 0; --axis) {
        std::int64_t const length = lengthOf(range, axis);
        if (stride > kLargestInt && length > 1) {
            throw std::length_error(
                "[SharedArray::DenseStrides] The array is too large for its strides: axis " + std::to_string(axis) +
                " needs one of " + std::to_string(stride) + ", the largest is 2147483647.");
        }
        // An axis of one index never takes a step, so any stride will do for it.
        strides[axis] = static_cast<int>(std::min(stride, kLargestInt));
        stride *= length;  // fits: a stride beyond int has only lengths of 0 and 1 in front of it
    }
    return strides;
}

template <int N>
void SharedArray<N>::allocate(bool allocateNow) {
    std::uint32_t const byteSize = exactByteSize();
    bool const createOwner = buffer_.isNull();
    this->setData(buffer_.getBuffer(byteSize, allocateNow, createOwner));
}

template <int N>
SharedArray<N> SharedArray<N>::laidOut(
    Range const& range, Strides const& strides, std::type_info const& valueType, int bitSize) {
    if (bitSize < 1) {
        throw std::invalid_argument(
            "[SharedArray] Invalid argument: bitSize is below 1: " + std::to_string(bitSize) + ".");
    }
    // The first sample stands as far into the buffer as the axes that run backwards reach in front of it.
    std::int64_t offset = 0;
    for (int axis = 0; axis < N; ++axis) {
        offset += std::max<std::int64_t>(-std::int64_t{strides[axis]}, 0) *
                  std::max<std::int64_t>(lengthOf(range, axis) - 1, 0);
        if (offset > kLargestInt) {
            throw std::length_error(
                "[SharedArray] The array is too large for its offset: " + std::to_string(offset) +
                ", the largest is 2147483647.");
        }
    }
    return {ArrayRef<N>(range, strides, nullptr, static_cast<int>(offset), valueType, bitSize), SharedBuffer()};
}

template <int N>
std::uint32_t SharedArray<N>::exactByteSize() const {
    std::int64_t const byteSize = this->wideRequiredBufferByteSize(/*touchedOnly=*/false);
    if (byteSize > kLargestByteSize) {
        throw std::length_error(
            "[SharedArray] The array needs more than 4294967295 bytes: " + std::to_string(byteSize) + ".");
    }
    return static_cast<std::uint32_t>(std::max<std::int64_t>(byteSize, 0));
}

template class SharedArray<1>;
template class SharedArray<2>;
template class SharedArray<3>;
template class SharedArray<4>;

}  // namespace Quorvel::Dravik::Adt
