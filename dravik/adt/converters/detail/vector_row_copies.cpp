// SPDX-License-Identifier: Apache-2.0
// Copies of rows in vector instructions. Compiled once per instruction set, as vector_kernels.cpp is.

#include "dravik/adt/converters/detail/row_copies.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dravik/adt/converters/detail/vector_row_copies.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_SSE4

HWY_BEFORE_NAMESPACE();
namespace Quorvel::Dravik::Adt::Converters::Detail {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

template <class Word>
using Tag = hn::ScalableTag<Word>;

// The number of samples in a vector.
template <class Word>
constexpr std::int64_t kLanes = static_cast<std::int64_t>(hn::MaxLanes(Tag<Word>()));

template <class Word>
HWY_INLINE hn::Vec<Tag<Word>> loadAt(char const* at) {
    return hn::LoadU(Tag<Word>(), reinterpret_cast<Word const*>(at));
}
template <class Word>
HWY_INLINE void storeAt(hn::Vec<Tag<Word>> vector, char* at) {
    hn::StoreU(vector, Tag<Word>(), reinterpret_cast<Word*>(at));
}

template <class Word>
HWY_INLINE void copySingly(char const* in, std::int64_t inStride, char* out, std::int64_t begin, std::int64_t end) {
    constexpr std::int64_t kBytes = sizeof(Word);
    for (std::int64_t k = begin; k < end; ++k) {
        std::memcpy(out + k * kBytes, in + k * inStride * kBytes, kBytes);
    }
}

// Step::block(in) makes one vector of the samples from `in` on, and Step::tail the same without a touch of what follows
// the last one. A tail overlaps the block before it.
template <class Word, class Step>
void copyRows(
    char const* in, std::ptrdiff_t inRow, char* out, std::ptrdiff_t outRow, std::int64_t count, std::int64_t rows) {
    constexpr std::int64_t kBytes = sizeof(Word), kBlock = kLanes<Word>;
    constexpr std::int64_t kStride = Step::kStride;
    Step const step;
    for (std::int64_t row = 0; row < rows; ++row, in += inRow, out += outRow) {
        // A tail of longer steps needs a sample in front of its own.
        if (count < kBlock + (kStride > 1 ? 1 : 0)) {
            copySingly<Word>(in, kStride, out, 0, count);
            continue;
        }
        std::int64_t k = 0;
        for (; k + 2 * kBlock < count; k += 2 * kBlock) {
            auto const first = step.block(in + k * kStride * kBytes);
            auto const second = step.block(in + (k + kBlock) * kStride * kBytes);
            storeAt<Word>(first, out + k * kBytes);
            storeAt<Word>(second, out + (k + kBlock) * kBytes);
        }
        if (k + kBlock < count) {
            storeAt<Word>(step.block(in + k * kStride * kBytes), out + k * kBytes);
        }
        k = count - kBlock;
        storeAt<Word>(step.tail(in + k * kStride * kBytes), out + k * kBytes);
    }
}

template <class Word>
struct Plain {
    static constexpr std::int64_t kStride = 1;
    HWY_INLINE auto block(char const* in) const { return loadAt<Word>(in); }
    HWY_INLINE auto tail(char const* in) const { return loadAt<Word>(in); }
};

template <class Word>
struct Reversed {
    static constexpr std::int64_t kStride = -1;
    using Bytes = Tag<std::uint8_t>;

    Reversed() {
        alignas(16) std::uint8_t order[16];
        for (std::size_t at = 0; at < 16; ++at) {
            std::size_t const sample = at / sizeof(Word), byte = at % sizeof(Word);
            order[at] = static_cast<std::uint8_t>((16 / sizeof(Word) - 1 - sample) * sizeof(Word) + byte);
        }
        order_ = hn::LoadDup128(Bytes(), order);
    }
    // Inside each 16 bytes, and these among themselves.
    HWY_INLINE auto block(char const* in) const {
        auto const bytes = loadAt<std::uint8_t>(in - (kLanes<Word> - 1) * static_cast<std::int64_t>(sizeof(Word)));
        return hn::BitCast(Tag<Word>(), hn::ReverseBlocks(Bytes(), hn::TableLookupBytes(bytes, order_)));
    }
    HWY_INLINE auto tail(char const* in) const { return block(in); }

  private:
    hn::Vec<Bytes> order_;
};

template <class Word>
struct EverySecond {
    static constexpr std::int64_t kStride = 2;
    static constexpr std::int64_t kVector = kLanes<Word> * sizeof(Word);

    HWY_INLINE auto block(char const* in) const {
        return hn::ConcatEven(Tag<Word>(), loadAt<Word>(in + kVector), loadAt<Word>(in));
    }
    // One sample earlier, so that the last one is the last that is read.
    HWY_INLINE auto tail(char const* in) const {
        char const* const before = in - sizeof(Word);
        return hn::ConcatOdd(Tag<Word>(), loadAt<Word>(before + kVector), loadAt<Word>(before));
    }
};

#if HWY_TARGET == HWY_AVX3
// Of three vectors of 16 samples; the second pair of tables is for two samples earlier.
struct EveryThird {
    static constexpr std::int64_t kStride = 3;

    HWY_INLINE auto block(char const* in) const {
        return pick(
            in, _mm512_setr_epi32(0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 0, 0, 0, 0, 0),
            _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 17, 20, 23, 26, 29));
    }
    HWY_INLINE auto tail(char const* in) const {
        return pick(
            in - 2 * sizeof(std::uint32_t), _mm512_setr_epi32(2, 5, 8, 11, 14, 17, 20, 23, 26, 29, 0, 0, 0, 0, 0, 0),
            _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 19, 22, 25, 28, 31));
    }

  private:
    HWY_INLINE static hn::Vec<Tag<std::uint32_t>> pick(char const* in, __m512i ofTwo, __m512i ofThird) {
        auto const two =
            _mm512_permutex2var_epi32(loadAt<std::uint32_t>(in).raw, ofTwo, loadAt<std::uint32_t>(in + 64).raw);
        return {_mm512_permutex2var_epi32(two, ofThird, loadAt<std::uint32_t>(in + 128).raw)};
    }
};
constexpr RowsFunction kEveryThird = copyRows<std::uint32_t, EveryThird>;
#else
constexpr RowsFunction kEveryThird = nullptr;
#endif

template <template <class> class Step>
constexpr std::array<RowsFunction, 4> ofAll() {
    return {
        copyRows<std::uint8_t, Step<std::uint8_t>>, copyRows<std::uint16_t, Step<std::uint16_t>>,
        copyRows<std::uint32_t, Step<std::uint32_t>>, copyRows<std::uint64_t, Step<std::uint64_t>>};
}

}  // namespace

std::array<TransposeFunction, 4> const& transposes() noexcept;  // in vector_transposes.cpp

RowCopies const& rowCopies() noexcept {
    static RowCopies const kCopies{
        ofAll<Plain>(),
        ofAll<Reversed>(),
        ofAll<EverySecond>(),
        {nullptr, nullptr, kEveryThird, nullptr},
        transposes()};
    return kCopies;
}

}  // namespace HWY_NAMESPACE
}  // namespace Quorvel::Dravik::Adt::Converters::Detail
HWY_AFTER_NAMESPACE();

#endif
