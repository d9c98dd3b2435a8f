// SPDX-License-Identifier: Apache-2.0
#pragma once

// ArrayConstRef and ArrayRef: where the samples of an N-dimensional block lie in a flat buffer. Plain values that own
// nothing and trust what they are told. Threads: as `int`.

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace Quorvel::Dravik::Adt {

namespace Detail {

/// start + sum of index[a] * strides[a]. Wraps instead of overflowing where 64 bits are too few.
template <int N>
constexpr std::int64_t linearPosition(
    std::int64_t start, FixedVector<N, int> const& index, FixedVector<N, int> const& strides) noexcept {
    auto position = static_cast<std::uint64_t>(start);
    for (int axis = 0; axis < N; ++axis) {
        position += static_cast<std::uint64_t>(std::int64_t{index.data()[axis]} * std::int64_t{strides.data()[axis]});
    }
    return static_cast<std::int64_t>(position);
}

/// The name of a sample type as a person wrote it.
DRAVIK_ADT_EXPORT std::string sampleTypeName(std::type_info const& type);

}  // namespace Detail

/// A strided block of samples: its index range, one stride per axis, the buffer, the place of the first sample in it,
/// the sample type and its size in bits. Byte is `char const` or `char`; used through ArrayConstRef and ArrayRef.
///
/// Unit: indices are absolute indices of the data set; strides, offsets and positions count samples from data(), also
/// for samples below 8 bits. A stride may be 0 (the axis repeats one sample) or negative (it runs backwards in memory).
/// Refers to the buffer, which may be null. Starts with an empty range at 0, no buffer, sample type `void`, 0 bits.
/// Equality asks for the same description of the same memory. Threads: as `int`.
///
///     std::vector<float> grid(12);
///     ArrayRef<2> const array({{5, 0}, {8, 4}}, {4, 1}, reinterpret_cast<char*>(grid.data()), 0, typeid(float), 32);
///     array.position({6, 2});  // 6
template <int N, class Byte>
class DRAVIK_ADT_EXPORT BasicArrayRef {
    static_assert(1 <= N && N <= 4 && std::same_as<std::remove_const_t<Byte>, char>);

  public:
    using Range = OpenEndedRange<N, int>;
    using Index = FixedVector<N, int>;

    constexpr BasicArrayRef() noexcept = default;

    /// `bufferOffset` is the position of the sample at range.min.
    constexpr BasicArrayRef(
        Range const& range, Index const& strides, Byte* data, int bufferOffset, std::type_info const& valueType,
        int bitSize) noexcept
        : range_(range),
          strides_(strides),
          data_(data),
          bufferOffset_(bufferOffset),
          valueType_(&valueType),
          bitSize_(bitSize) {
        updateOriginOffset();
    }

    /// A reference that may only read what `writable` may write.
    template <class Other>
    requires(std::is_const_v<Byte> && !std::is_const_v<Other>) constexpr BasicArrayRef(
        BasicArrayRef<N, Other> const& writable) noexcept
        : BasicArrayRef(
              writable.range(), writable.strides(), writable.data(), writable.bufferOffset(), writable.valueType(),
              writable.bitSize()) {}

    /// The same samples with added trailing axes of range [0, 1) and stride 0.
    template <int M>
    requires(M < N) constexpr explicit BasicArrayRef(BasicArrayRef<M, Byte> const& narrower) noexcept
        : BasicArrayRef(
              {Index(narrower.range().min, 0), Index(narrower.range().max, 1)}, Index(narrower.strides(), 0),
              narrower.data(), narrower.bufferOffset(), narrower.valueType(), narrower.bitSize()) {}

    constexpr Range const& range() const noexcept { return range_; }
    constexpr Index const& strides() const noexcept { return strides_; }
    constexpr Byte* data() const noexcept { return data_; }
    /// Position of the sample at range().min.
    constexpr int bufferOffset() const noexcept { return bufferOffset_; }
    /// Position of the sample at index 0, be it in the block or not; follows range, strides and bufferOffset.
    constexpr std::int64_t originOffset() const noexcept { return originOffset_; }
    constexpr std::type_info const& valueType() const noexcept { return *valueType_; }
    constexpr int bitSize() const noexcept { return bitSize_; }

    /// Another part of the same buffer: range().min stays at bufferOffset().
    constexpr void setRange(Range const& range) noexcept {
        range_ = range;
        updateOriginOffset();
    }
    constexpr void setStrides(Index const& strides) noexcept {
        strides_ = strides;
        updateOriginOffset();
    }
    constexpr void setBufferOffset(int bufferOffset) noexcept {
        bufferOffset_ = bufferOffset;
        updateOriginOffset();
    }
    constexpr void setData(Byte* data) noexcept { data_ = data; }
    constexpr void setValueType(std::type_info const& valueType, int bitSize) noexcept {
        valueType_ = &valueType;
        bitSize_ = bitSize;
    }

    /// Labels the same samples anew, so that the first one has index `newMin`. Samples whose index would leave `int`
    /// are cut off.
    constexpr void moveTo(Index const& newMin) noexcept { setRange(range_.movedTo(newMin)); }

    /// The position of the sample at `index`, inside the range or not.
    constexpr std::int64_t position(Index const& index) const noexcept {
        return Detail::linearPosition(originOffset_, index, strides_);
    }

    /// From the lowest to one past the highest position that the block touches. Never empty: an empty axis counts as
    /// its lower bound. Wraps where 64 bits are too few.
    OpenEndedRange<1, std::int64_t> linearBounds() const noexcept;

    /// Bytes that a buffer needs to hold the block: of the touched positions only if `touchedOnly`, else of all from
    /// position 0. A number beyond 32 bits is cut at 4294967295.
    /// @throws std::runtime_error if the block touches a position below 0 and `touchedOnly` is false
    std::uint32_t requiredBufferByteSize(bool touchedOnly) const;

    friend constexpr bool operator==(BasicArrayRef const& left, BasicArrayRef const& right) noexcept {
        return left.range_ == right.range_ && left.strides_ == right.strides_ && left.data_ == right.data_ &&
               left.bufferOffset_ == right.bufferOffset_ && *left.valueType_ == *right.valueType_ &&
               left.bitSize_ == right.bitSize_;
    }

    /// Writes "float[2,5)x[0,4) strides (4,1) offset 0", and ", no memory" where there is none.
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, BasicArrayRef const& array) {
        return out << Detail::sampleTypeName(*array.valueType_).c_str() << array.range_ << " strides " << array.strides_
                   << " offset " << array.bufferOffset_ << (array.data_ == nullptr ? ", no memory" : "");
    }

  protected:
    /// As requiredBufferByteSize, cut only at the ends of 64 bits.
    std::int64_t wideRequiredBufferByteSize(bool touchedOnly) const;

  private:
    constexpr void updateOriginOffset() noexcept {
        // Every sample lies min * strides after the origin, so the origin lies as far before the first one.
        std::int64_t const distance = Detail::linearPosition(0, range_.min, strides_);
        originOffset_ = static_cast<std::int64_t>(
            std::uint64_t(std::int64_t{bufferOffset_}) - static_cast<std::uint64_t>(distance));
    }

    Range range_;
    Index strides_;
    Byte* data_ = nullptr;
    int bufferOffset_ = 0;
    std::int64_t originOffset_ = 0;
    std::type_info const* valueType_ = &typeid(void);
    int bitSize_ = 0;
};

/// A strided block that may be read.
template <int N>
using ArrayConstRef = BasicArrayRef<N, char const>;

/// A strided block that may be read and written; stands wherever an ArrayConstRef is expected.
template <int N>
using ArrayRef = BasicArrayRef<N, char>;

extern template class BasicArrayRef<1, char const>;
extern template class BasicArrayRef<2, char const>;
extern template class BasicArrayRef<3, char const>;
extern template class BasicArrayRef<4, char const>;
extern template class BasicArrayRef<1, char>;
extern template class BasicArrayRef<2, char>;
extern template class BasicArrayRef<3, char>;
extern template class BasicArrayRef<4, char>;

}  // namespace Quorvel::Dravik::Adt

template <int N, class Byte>
struct std::hash<Quorvel::Dravik::Adt::BasicArrayRef<N, Byte>> {
    std::size_t operator()(Quorvel::Dravik::Adt::BasicArrayRef<N, Byte> const& array) const {
        void const* const memory = array.data();
        return Quorvel::Dravik::Adt::Detail::hashOf(
            std::type_index(array.valueType()), array.range(), array.strides(), memory, array.bufferOffset(),
            array.bitSize());
    }
};
