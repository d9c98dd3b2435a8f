// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/array_ref.h"

#include "dravik/adt/platform/type_name.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace Quorvel::Dravik::Adt {

namespace {

constexpr std::int64_t kLargestByteSize = std::numeric_limits<std::uint32_t>::max();

/// A sum that stops at the ends of 64 bits.
std::int64_t sumWithin(std::int64_t left, std::int64_t right) noexcept {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(left, right, &sum)) {
        return right < 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    }
    return sum;
}

/// Whole bytes of `sampleCount` samples of `bitSize` bits, cut at the ends of 64 bits.
std::int64_t byteSizeOf(std::int64_t sampleCount, int bitSize) noexcept {
    std::int64_t bits = 0;
    if (__builtin_mul_overflow(sampleCount, std::int64_t{bitSize}, &bits) || __builtin_add_overflow(bits, 7, &bits)) {
        return bitSize < 0 ? 0 : std::numeric_limits<std::int64_t>::max();
    }
    return bits / 8;
}

}  // namespace

std::string Detail::sampleTypeName(std::type_info const& type) {
    return Platform::readableTypeName(type);
}

template <int N, class Byte>
OpenEndedRange<1, std::int64_t> BasicArrayRef<N, Byte>::linearBounds() const noexcept {
    Index low = range_.min;
    Index high = range_.min;
    for (int axis = 0; axis < N; ++axis) {
        if (range_.min.data()[axis] < range_.max.data()[axis]) {
            Index& farEnd = strides_.data()[axis] < 0 ? low : high;
            farEnd.data()[axis] = range_.max.data()[axis] - 1;
        }
    }
    using Position = FixedVector<1, std::int64_t>;
    auto const end = static_cast<std::int64_t>(static_cast<std::uint64_t>(position(high)) + 1);
    return {Position(position(low)), Position(end)};
}

template <int N, class Byte>
std::uint32_t BasicArrayRef<N, Byte>::requiredBufferByteSize(bool touchedOnly) const {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(wideRequiredBufferByteSize(touchedOnly), 0, kLargestByteSize));
}

template <int N, class Byte>
std::int64_t BasicArrayRef<N, Byte>::wideRequiredBufferByteSize(bool touchedOnly) const {
    // The linear bounds, but stopping at the ends of 64 bits: a block that wraps must not pass for a small one.
    std::int64_t first = bufferOffset_;
    std::int64_t last = bufferOffset_;
    for (int axis = 0; axis < N; ++axis) {
        std::int64_t const distance = std::max<std::int64_t>(range_.size(axis) - 1, 0) * strides_.data()[axis];
        std::int64_t& farEnd = distance < 0 ? first : last;
        farEnd = sumWithin(farEnd, distance);
    }
    std::int64_t const end = sumWithin(last, 1);
    if (touchedOnly) {
        std::int64_t sampleCount = 0;
        if (__builtin_sub_overflow(end, first, &sampleCount)) {
            sampleCount = std::numeric_limits<std::int64_t>::max();
        }
        return byteSizeOf(sampleCount, bitSize_);
    }
    if (first < 0) {
        throw std::runtime_error("[ArrayConstRef::requiredBufferByteSize(false)] Buffer offset is not normalized.");
    }
    return byteSizeOf(end, bitSize_);
}

template class BasicArrayRef<1, char const>;
template class BasicArrayRef<2, char const>;
template class BasicArrayRef<3, char const>;
template class BasicArrayRef<4, char const>;
template class BasicArrayRef<1, char>;
template class BasicArrayRef<2, char>;
template class BasicArrayRef<3, char>;
template class BasicArrayRef<4, char>;

}  // namespace Quorvel::Dravik::Adt
