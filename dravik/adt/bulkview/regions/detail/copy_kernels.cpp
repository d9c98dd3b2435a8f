// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/copy_kernels.h"

#include "dravik/adt/converters/detail/row_copies.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

// Samples as the memory holds them: loads and stores without regard to alignment.
template <class Word>
Word load(char const* at) noexcept {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}
template <class Word>
void store(char* at, Word word) noexcept {
    std::memcpy(at, &word, sizeof word);
}

// A vector of 16 bytes, which every processor of the kinds supported has.
template <class Word>
struct Vector {
    // NOLINTNEXTLINE(modernize-use-using): g++ takes the attribute of a dependent type here only
    typedef Word Type __attribute__((vector_size(16)));
    static constexpr std::int64_t kLanes = 16 / sizeof(Word);
};

template <class Word>
void copyWords(char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t count) noexcept {
    constexpr std::int64_t kBytes = sizeof(Word);
    for (std::int64_t k = 0; k < count; ++k) {
        store(out + k * outStride * kBytes, load<Word>(in + k * inStride * kBytes));
    }
}

// Of two rows, the lower or the upper halves in turns: what the processor's unpack instructions do.
template <class Word, bool kUpper, std::size_t... Lane>
typename Vector<Word>::Type halves(
    typename Vector<Word>::Type a, typename Vector<Word>::Type b, std::index_sequence<Lane...>) noexcept {
    constexpr int kLanes = static_cast<int>(Vector<Word>::kLanes);
    constexpr int kStart = kUpper ? kLanes / 2 : 0;
    return __builtin_shufflevector(a, b, (kStart + static_cast<int>(Lane) / 2 + (Lane % 2 == 0 ? 0 : kLanes))...);
}

// One square of as many rows as a vector has lanes: each round interleaves row i with row i + half, and after as many
// rounds as the count of rows has bits, rows have become columns.
template <class Word>
void transposeSquare(char const* in, std::int64_t inBytes, char* out, std::int64_t outBytes) noexcept {
    using V = Vector<Word>;
    constexpr auto kLanes = static_cast<std::size_t>(V::kLanes);
    constexpr auto kSequence = std::make_index_sequence<kLanes>();
    std::array<typename V::Type, kLanes> rows, next;
    for (std::size_t i = 0; i < kLanes; ++i) {
        rows[i] = load<typename V::Type>(in + static_cast<std::int64_t>(i) * inBytes);
    }
    for (std::size_t round = 1; round < kLanes; round *= 2) {
        for (std::size_t i = 0; i < kLanes / 2; ++i) {
            next[2 * i] = halves<Word, false>(rows[i], rows[i + kLanes / 2], kSequence);
            next[2 * i + 1] = halves<Word, true>(rows[i], rows[i + kLanes / 2], kSequence);
        }
        rows = next;
    }
    for (std::size_t i = 0; i < kLanes; ++i) {
        store(out + static_cast<std::int64_t>(i) * outBytes, rows[i]);
    }
}

// One tile, by squares as far as they go.
template <class Word>
void transposeTile(
    char const* in, std::int64_t inBytes, char* out, std::int64_t outBytes, std::int64_t inner,
    std::int64_t across) noexcept {
    constexpr std::int64_t kBytes = sizeof(Word);
    constexpr std::int64_t kSide = Vector<Word>::kLanes;
    std::int64_t const wholeInner = inner - inner % kSide;
    std::int64_t const wholeAcross = across - across % kSide;
    for (std::int64_t j = 0; j < wholeAcross; j += kSide) {
        for (std::int64_t i = 0; i < wholeInner; i += kSide) {
            transposeSquare<Word>(in + i * inBytes + j * kBytes, inBytes, out + j * outBytes + i * kBytes, outBytes);
        }
    }
    for (std::int64_t j = 0; j < across; ++j) {
        for (std::int64_t i = j < wholeAcross ? wholeInner : 0; i < inner; ++i) {
            store(out + j * outBytes + i * kBytes, load<Word>(in + i * inBytes + j * kBytes));
        }
    }
}

// Rows that lie a power of two apart share few places in a cache, so a tile is first brought together: every line is
// then fetched once where is read, and filled at once where is written.
template <class Word>
void transposeWords(
    char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t inner,
    std::int64_t across) noexcept {
    constexpr std::int64_t kBytes = sizeof(Word);
    constexpr std::int64_t kRows = 64;
    constexpr std::int64_t kWidth = 256 / kBytes;
    alignas(64) std::array<char, kRows * kWidth * kBytes> tile;
    for (std::int64_t i = 0; i < inner; i += kRows) {
        std::int64_t const rows = std::min(kRows, inner - i);
        for (std::int64_t j = 0; j < across; j += kWidth) {
            std::int64_t const width = std::min(kWidth, across - j);
            for (std::int64_t row = 0; row < rows; ++row) {
                char const* const first = in + ((i + row) * inStride + j) * kBytes;
                std::memcpy(tile.data() + row * kWidth * kBytes, first, static_cast<std::size_t>(width * kBytes));
            }
            transposeTile<Word>(
                tile.data(), kWidth * kBytes, out + (j * outStride + i) * kBytes, outStride * kBytes, rows, width);
        }
    }
}

// Calls act with a word of the size of a sample; false where there is none.
template <class Act>
bool withWord(int bytes, Act act) noexcept {
    switch (bytes) {
    // Each branch calls another function.
    case 1:  // NOLINT(bugprone-branch-clone)
        act(std::uint8_t());
        return true;
    case 2:
        act(std::uint16_t());
        return true;
    case 4:
        act(std::uint32_t());
        return true;
    case 8:
        act(std::uint64_t());
        return true;
    default:
        return false;
    }
}

// What copies rows of such strides in vector instructions; null where nothing does.
Converters::Detail::RowsFunction vectorCopy(std::int64_t inStride, std::int64_t outStride, int bytes) noexcept {
    if (outStride != 1 || bytes > 8 || (bytes & (bytes - 1)) != 0) {
        return nullptr;
    }
    auto const& copies = Converters::Detail::rowCopies();
    int const size = std::countr_zero(static_cast<unsigned>(bytes));
    auto const at = static_cast<std::size_t>(size);
    return inStride == 1    ? copies.plain[at]
           : inStride == -1 ? copies.reversed[at]
           : inStride == 2  ? copies.everySecond[at]
           : inStride == 3  ? copies.everyThird[at]
                            : nullptr;
}

// out[k * outStride] = in[k * inStride], in this order.
void copyRow(
    char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t count, int bytes) noexcept {
    if (inStride == 1 && outStride == 1) {
        std::memcpy(out, in, static_cast<std::size_t>(count) * static_cast<std::size_t>(bytes));
        return;
    }
    bool const isWord =
        withWord(bytes, [&](auto word) { copyWords<decltype(word)>(in, inStride, out, outStride, count); });
    for (std::int64_t k = 0; !isWord && k < count; ++k) {
        std::memcpy(out + k * outStride * bytes, in + k * inStride * bytes, static_cast<std::size_t>(bytes));
    }
}

}  // namespace

void copyRows(
    RowsOf<char const*> const& from, RowsOf<char*> const& to, std::int64_t count, std::int64_t rows,
    int bytes) noexcept {
    constexpr std::int64_t kShort = 1024;  // bytes; a call of memcpy costs as much as the bytes of a shorter row
    bool const isLong = from.stride == 1 && (rows == 1 || count * bytes > kShort);
    auto const vector = isLong ? nullptr : vectorCopy(from.stride, to.stride, bytes);
    if (vector != nullptr) {
        vector(from.data, from.rowStride * bytes, to.data, to.rowStride * bytes, count, rows);
        return;
    }
    for (std::int64_t row = 0; row < rows; ++row) {
        copyRow(
            from.data + row * from.rowStride * bytes, from.stride, to.data + row * to.rowStride * bytes, to.stride,
            count, bytes);
    }
}

void transpose(
    char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t inner, std::int64_t across,
    int bytes) noexcept {
    bool const isWord = withWord(
        bytes, [&](auto word) { transposeWords<decltype(word)>(in, inStride, out, outStride, inner, across); });
    for (std::int64_t j = 0; !isWord && j < across; ++j) {
        copyRow(in + j * bytes, inStride, out + j * outStride * bytes, 1, inner, bytes);
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
