// SPDX-License-Identifier: Apache-2.0
#pragma once

// SharedArray: a strided block of samples together with a hold on its memory. A value whose copies share the samples.
// Threads: one value is as `int`; copies may live on different threads, the samples they share are not guarded.

#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/shared_buffer.h"
#include "dravik/adt/export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace Quorvel::Dravik::Adt {

/// A sample type of whole bytes for which all bytes 0 are a value. Packed types are named by type information instead.
template <class Sample>
concept ByteSample = std::is_trivially_copyable_v<Sample> && !std::is_empty_v<Sample> && !std::is_const_v<Sample>;

/// An ArrayRef that keeps the memory it describes alive, and can allocate it.
///
/// Owns a counted share of a SharedBuffer, which is null where somebody else keeps the memory. Copying costs one atomic
/// increment. Units as in BasicArrayRef.
///
///     auto const grid = SharedArray<2>::Make<float>({{0, 0}, {480, 640}});  // zeros, last axis fastest
template <int N>
class DRAVIK_ADT_EXPORT SharedArray : public ArrayRef<N> {
  public:
    using Range = OpenEndedRange<N, int>;
    using Strides = FixedVector<N, int>;

    /// No samples, no memory.
    SharedArray() noexcept = default;
    SharedArray(SharedArray const&) noexcept = default;
    SharedArray& operator=(SharedArray const&) noexcept = default;
    /// Leaves `other` without samples and memory.
    SharedArray(SharedArray&& other) noexcept
        : ArrayRef<N>(std::exchange(static_cast<ArrayRef<N>&>(other), {})), buffer_(std::move(other.buffer_)) {}
    SharedArray& operator=(SharedArray&& other) noexcept {
        static_cast<ArrayRef<N>&>(*this) = std::exchange(static_cast<ArrayRef<N>&>(other), {});
        buffer_ = std::move(other.buffer_);
        return *this;
    }
    ~SharedArray() = default;

    /// The block `array` together with the storage that data() points into, or will once it is allocated.
    SharedArray(ArrayRef<N> const& array, SharedBuffer buffer) noexcept
        : ArrayRef<N>(array), buffer_(std::move(buffer)) {}

    /// The same samples in the same storage, with added trailing axes of range [0, 1) and stride 0.
    template <int M>
    requires(M < N) SharedArray(SharedArray<M> const& narrower)
    noexcept : ArrayRef<N>(narrower), buffer_(narrower.buffer()) {}

    /// New memory filled with zeros. Without strides the last axis varies fastest and lies densely (C order); with them
    /// the lowest sample starts the buffer. bufferOffset() follows.
    /// @throws std::length_error if the array needs more than 4294967295 bytes or an offset beyond `int`
    /// @throws std::invalid_argument if `bitSize` is below 1
    /// @throws Exceptions::MemoryException if the allocation fails
    static SharedArray Make(Range const& range, std::type_info const& valueType, int bitSize);
    static SharedArray Make(Range const& range, Strides const& strides, std::type_info const& valueType, int bitSize);
    template <ByteSample Sample>
    static SharedArray Make(Range const& range) {
        return Make(range, typeid(Sample), bitSizeOf<Sample>());
    }
    template <ByteSample Sample>
    static SharedArray Make(Range const& range, Strides const& strides) {
        return Make(range, strides, typeid(Sample), bitSizeOf<Sample>());
    }

    /// The caller's own memory as an array, laid out as Make would; nothing is copied. What the caller may only read
    /// stays that way: data() refuses it, and so does every loan that asks to write.
    /// @lifetime the caller keeps the memory as long as this array, a copy, or a reference to the buffer exists
    /// @throws std::invalid_argument if the memory is too small or `bitSize` is below 1
    /// @throws std::length_error as Make does
    static SharedArray Wrap(
        void* memory, std::size_t byteSize, Range const& range, Strides const& strides, std::type_info const& valueType,
        int bitSize);
    static SharedArray Wrap(
        void const* memory, std::size_t byteSize, Range const& range, Strides const& strides,
        std::type_info const& valueType, int bitSize);
    template <class Sample>
    requires ByteSample<std::remove_const_t<Sample>>
    static SharedArray Wrap(std::span<Sample> samples, Range const& range) {
        return Wrap<Sample>(samples, range, DenseStrides(range));
    }
    template <class Sample>
    requires ByteSample<std::remove_const_t<Sample>>
    static SharedArray Wrap(std::span<Sample> samples, Range const& range, Strides const& strides) {
        return Wrap(samples.data(), samples.size_bytes(), range, strides, typeid(Sample), bitSizeOf<Sample>());
    }

    /// The strides of a dense block in which the last axis varies fastest.
    /// @throws std::length_error if a stride that is needed does not fit into `int`
    static Strides DenseStrides(Range const& range);

    SharedBuffer const& buffer() const noexcept { return buffer_; }
    void setBuffer(SharedBuffer buffer) noexcept { buffer_ = std::move(buffer); }

    /// The start of the buffer, for writing; null where there is no memory.
    /// @throws Exceptions::NotSupportedException if the memory is read-only
    char* data() const {
        if (buffer_.isReadOnly()) {
            refuseWriting();
        }
        return ArrayRef<N>::data();
    }
    /// The start of the buffer, for reading; null where there is no memory.
    char const* constData() const noexcept { return ArrayRef<N>::data(); }

    /// Takes data() from the storage, where the block keeps its place: from the present one, which leaves data() null
    /// if it is too small, or from a new one if there is none. Bytes that do not exist yet are allocated if
    /// `allocateNow`, uninitialised; else data() becomes null. When the allocation fails, a storage made for it stays.
    /// @throws std::runtime_error if the block starts before its buffer
    /// @throws std::length_error if it needs more than 4294967295 bytes
    /// @throws Exceptions::MemoryException if the allocation fails; data() is as it was
    void allocate(bool allocateNow);

    /// Allocates if `wanted` and there is no memory; throws as data() and allocate do.
    void ensureAllocated(bool wanted) {
        if (wanted && data() == nullptr) {
            allocate(/*allocateNow=*/true);
        }
    }

  private:
    template <class Sample>
    static constexpr int bitSizeOf() noexcept {
        return static_cast<int>(8 * sizeof(Sample));
    }
    [[noreturn]] static void refuseWriting();
    static SharedArray wrapped(void* memory, bool writable, std::size_t byteSize, SharedArray laidOut);
    static SharedArray laidOut(
        Range const& range, Strides const& strides, std::type_info const& valueType, int bitSize);

    /// requiredBufferByteSize(false), refusing what 32 bits cannot tell.
    std::uint32_t exactByteSize() const;

    SharedBuffer buffer_;
};

extern template class SharedArray<1>;
extern template class SharedArray<2>;
extern template class SharedArray<3>;
extern template class SharedArray<4>;

}  // namespace Quorvel::Dravik::Adt

/// Equal arrays are equal as references: the same samples, whoever keeps them.
template <int N>
struct std::hash<Quorvel::Dravik::Adt::SharedArray<N>> : std::hash<Quorvel::Dravik::Adt::ArrayRef<N>> {};
