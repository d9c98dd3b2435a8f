// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/copy_kernels.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <optional>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

using Converters::Detail::rowCopies;

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

template <class Word>
void copyWords(char const* in, std::int64_t inStride, char* out, std::int64_t outStride, std::int64_t count) noexcept {
    constexpr std::int64_t kBytes = sizeof(Word);
    for (std::int64_t k = 0; k < count; ++k) {
        store(out + k * outStride * kBytes, load<Word>(in + k * inStride * kBytes));
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

// Where the tables of vector code have functions for samples of so many bytes; empty where they have none.
std::optional<std::size_t> placeOf(int bytes) noexcept {
    auto const size = static_cast<unsigned>(bytes);
    return bytes <= 8 && std::has_single_bit(size) ? std::optional<std::size_t>(std::countr_zero(size)) : std::nullopt;
}

// What copies rows of such strides in vector instructions; null where nothing does.
Converters::Detail::RowsFunction vectorCopy(std::int64_t inStride, std::int64_t outStride, int bytes) noexcept {
    auto const place = placeOf(bytes);
    if (outStride != 1 || !place) {
        return nullptr;
    }
    auto const& copies = rowCopies();
    return inStride == 1    ? copies.plain[*place]
           : inStride == -1 ? copies.reversed[*place]
           : inStride == 2  ? copies.everySecond[*place]
           : inStride == 3  ? copies.everyThird[*place]
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

void transpose(Converters::Detail::Transposition const& all, int bytes) noexcept {
    if (auto const place = placeOf(bytes); place && rowCopies().transposed[*place] != nullptr) {
        rowCopies().transposed[*place](all);
        return;
    }
    constexpr std::int64_t kSide = 16;  // samples: each line that is read, and each that is written, stays in the cache
    for (std::int64_t plane = 0; plane < all.planes; ++plane) {
        for (std::int64_t row = 0; row < all.rows; row += kSide) {
            std::int64_t const rows = std::min(kSide, all.rows - row);
            char const* const in = all.in + plane * all.inPlane + row * all.inRow;
            char* const out = all.out + plane * all.outPlane + row * bytes;
            for (std::int64_t column = 0; column < all.columns; ++column) {
                copyRow(in + column * bytes, all.inRow / bytes, out + column * all.outRow, 1, rows, bytes);
            }
        }
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
