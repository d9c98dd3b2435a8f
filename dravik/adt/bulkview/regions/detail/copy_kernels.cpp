// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/copy_kernels.h"

#include <algorithm>
#include <array>
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

template <class Word, std::size_t... Lane>
typename Vector<Word>::Type reversed(typename Vector<Word>::Type in, std::index_sequence<Lane...>) noexcept {
    return __builtin_shufflevector(in, in, static_cast<int>(sizeof...(Lane) - 1 - Lane)...);
}

template <class Word>
void reverseRow(char const* in, char* out, std::int64_t count) noexcept {
    using V = Vector<Word>;
    constexpr std::int64_t kBytes = sizeof(Word);
    std::int64_t k = 0;
    for (; k + V::kLanes <= count; k += V::kLanes) {
        auto const lanes = load<typename V::Type>(in - (k + V::kLanes - 1) * kBytes);
        store(out + k * kBytes, reversed<Word>(lanes, std::make_index_sequence<V::kLanes>()));
    }
    for (; k < count; ++k) {
        store(out + k * kBytes, load<Word>(in - k * kBytes));
    }
}

template <class Word>
void copyWords(char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t count) noexcept {
    constexpr std::int64_t kBytes = sizeof(Word);
    if (inStride == -1 && outStride == 1) {
        reverseRow<Word>(in, out, count);
        return;
    }
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

template <class Word>
void transposeWords(
    char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t inner,
    std::int64_t across) noexcept {
    constexpr std::int64_t kBytes = sizeof(Word);
    constexpr std::int64_t kTile = 64;  // a cache line of bytes
    for (std::int64_t j = 0; j < across; j += kTile) {
        for (std::int64_t i = 0; i < inner; i += kTile) {
            transposeTile<Word>(
                in + (i * inStride + j) * kBytes, inStride * kBytes, out + (j * outStride + i) * kBytes,
                outStride * kBytes, std::min(kTile, inner - i), std::min(kTile, across - j));
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

}  // namespace

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
