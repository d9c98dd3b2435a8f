// SPDX-License-Identifier: Apache-2.0
// Rows that become columns, in vector instructions. Compiled once per instruction set, as vector_kernels.cpp is.

#include "dravik/adt/converters/detail/row_copies.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dravik/adt/converters/detail/vector_transposes.cpp"
#include <hwy/cache_control.h>
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
template <class Word>
using Vector = hn::Vec<Tag<Word>>;

// A strip of samples is turned at once: as many rows as a vector has lanes, as many columns as 16 bytes hold.
template <class Word>
constexpr std::int64_t kStripRows = static_cast<std::int64_t>(hn::MaxLanes(Tag<Word>()));
template <class Word>
constexpr std::int64_t kStripColumns = 16 / sizeof(Word);

// 16 bytes of each of several rows, side by side: of as many rows as the vector has such pieces, `step` bytes apart.
template <class Word>
HWY_INLINE Vector<Word> piecesOf(char const* row, std::ptrdiff_t step) {
    constexpr std::size_t kPieces = hn::MaxLanes(Tag<std::uint8_t>()) / 16;
    auto const piece = [&](std::ptrdiff_t number) {
        return hn::LoadU(hn::Full128<Word>(), reinterpret_cast<Word const*>(row + number * step));
    };
    if constexpr (kPieces == 4) {
        hn::Half<Tag<Word>> const half;
        return hn::Combine(Tag<Word>(), hn::Combine(half, piece(3), piece(2)), hn::Combine(half, piece(1), piece(0)));
    } else if constexpr (kPieces == 2) {
        return hn::Combine(Tag<Word>(), piece(1), piece(0));
    } else {
        return piece(0);
    }
}

// Each round interleaves vector i with vector i + half; after as many rounds as their number has bits, rows have become
// columns in every 16 bytes.
template <class Word, std::size_t kRound = 1, std::size_t kCount>
HWY_INLINE void interleave(Vector<Word> const (&vectors)[kCount], Vector<Word> (&columns)[kCount]) {
    Vector<Word> next[kCount];
    for (std::size_t i = 0; i < kCount / 2; ++i) {
        next[2 * i] = hn::InterleaveLower(Tag<Word>(), vectors[i], vectors[i + kCount / 2]);
        next[2 * i + 1] = hn::InterleaveUpper(Tag<Word>(), vectors[i], vectors[i + kCount / 2]);
    }
    if constexpr (2 * kRound < kCount) {
        interleave<Word, 2 * kRound>(next, columns);
    } else {
        for (std::size_t i = 0; i < kCount; ++i) {  // std::copy would go through memory
            columns[i] = next[i];
        }
    }
}

// With kStreams the target is aligned to vectors, and the caches are passed by.
template <class Word, bool kStreams>
HWY_INLINE void transposeStrip(char const* in, std::ptrdiff_t inRow, char* out, std::ptrdiff_t outRow) {
    constexpr std::int64_t kColumns = kStripColumns<Word>;
    Vector<Word> vectors[kColumns], columns[kColumns];
    for (std::int64_t i = 0; i < kColumns; ++i) {
        vectors[i] = piecesOf<Word>(in + i * inRow, kColumns * inRow);
    }
    interleave<Word>(vectors, columns);
    for (std::int64_t i = 0; i < kColumns; ++i) {
        auto* const to = reinterpret_cast<Word*>(out + i * outRow);
        kStreams ? hn::Stream(columns[i], Tag<Word>(), to) : hn::StoreU(columns[i], Tag<Word>(), to);
    }
}

constexpr std::int64_t kTileRows = 64;

// A part of a rectangle, brought together.
struct Tile {
    char const* in;
    std::ptrdiff_t inRow;  // bytes
    char* out;
    std::ptrdiff_t outRow;  // bytes
    std::int64_t rows;
    std::int64_t columns;
    std::int64_t unaligned;  // rows before the first whose place in the target is aligned
};

// The last strip, and the first where the target is not aligned, overlap their neighbours.
template <class Word, bool kStreams>
HWY_INLINE void transposeTile(Tile const& tile) {
    constexpr std::int64_t kBytes = sizeof(Word), kRows = kStripRows<Word>, kColumns = kStripColumns<Word>;
    auto const in = [&](std::int64_t row, std::int64_t column) { return tile.in + row * tile.inRow + column * kBytes; };
    auto const out = [&](std::int64_t row, std::int64_t column) {
        return tile.out + column * tile.outRow + row * kBytes;
    };
    if (tile.rows < kRows || tile.columns < kColumns) {
        for (std::int64_t column = 0; column < tile.columns; ++column) {
            for (std::int64_t row = 0; row < tile.rows; ++row) {
                std::memcpy(out(row, column), in(row, column), kBytes);
            }
        }
        return;
    }
    for (std::int64_t start = 0; start < tile.columns; start += kColumns) {
        std::int64_t const column = std::min(start, tile.columns - kColumns);
        std::int64_t row = tile.unaligned;
        if (row > 0) {
            transposeStrip<Word, false>(in(0, column), tile.inRow, out(0, column), tile.outRow);
        }
        for (; row + kRows <= tile.rows; row += kRows) {
            transposeStrip<Word, kStreams>(in(row, column), tile.inRow, out(row, column), tile.outRow);
        }
        if (row < tile.rows) {
            row = tile.rows - kRows;
            transposeStrip<Word, false>(in(row, column), tile.inRow, out(row, column), tile.outRow);
        }
    }
}

// Copies a tile to `samples` and fetches ahead what lies `ahead` bytes after it, unless 0.
HWY_INLINE void bringTogether(
    char const* in, std::ptrdiff_t inRow, char* samples, std::ptrdiff_t samplesRow, std::int64_t rows,
    std::int64_t rowBytes, std::ptrdiff_t ahead) {
    constexpr std::int64_t kLine = 64;
    for (std::int64_t row = 0; row < rows; ++row, in += inRow, samples += samplesRow) {
        std::memcpy(samples, in, static_cast<std::size_t>(rowBytes));
        for (std::int64_t line = 0; ahead != 0 && line < rowBytes; line += kLine) {
            hwy::Prefetch(in + ahead + line);
        }
    }
}

// Rows that lie a power of two apart share few places in a cache, so a tile is first brought together: every line is
// then fetched once where is read, and filled at once where is written. Its own rows are a line longer than a power of
// two for the same reason.
template <class Word, bool kStreams>
void transposeTiles(Transposition const& all, std::int64_t head) {
    constexpr std::int64_t kBytes = sizeof(Word);
    constexpr std::int64_t kRows = kTileRows, kWidth = 512 / kBytes, kTileRow = 512 + 64;
    alignas(64) char samples[kRows * kTileRow];
    for (std::int64_t plane = 0; plane < all.planes; ++plane) {
        char const* const in = all.in + plane * all.inPlane;
        char* const out = all.out + plane * all.outPlane;
        for (std::int64_t row = 0, rows = 0; row < all.rows; row += rows) {
            std::int64_t const unaligned = row == 0 ? head : 0;
            rows = std::min(unaligned > 0 ? kRows - kStripRows<Word> + unaligned : kRows, all.rows - row);
            bool const isLast = row + rows == all.rows;
            std::ptrdiff_t const ahead = plane + 1 < all.planes ? all.inPlane : isLast ? 0 : rows * all.inRow;
            for (std::int64_t column = 0; column < all.columns; column += kWidth) {
                std::int64_t const columns = std::min(kWidth, all.columns - column);
                char const* const from = in + row * all.inRow + column * kBytes;
                bringTogether(from, all.inRow, samples, kTileRow, rows, columns * kBytes, ahead);
                char* const to = out + column * all.outRow + row * kBytes;
                transposeTile<Word, kStreams>({samples, kTileRow, to, all.outRow, rows, columns, unaligned});
            }
        }
    }
}

// Where all columns of the target can be aligned to vectors they are, and a result that no cache would keep until it is
// used is written past the caches.
template <class Word>
void transpose(Transposition const& all) {
    constexpr std::int64_t kBytes = sizeof(Word), kVector = kBytes * kStripRows<Word>;
    constexpr std::int64_t kLarge = std::int64_t{8} << 20;  // bytes
    auto const beyond = static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(all.out) % kVector);
    bool const aligns = 2 * kStripRows<Word> <= kTileRows && beyond % kBytes == 0 && all.outRow % kVector == 0 &&
                        (all.planes == 1 || all.outPlane % kVector == 0);
    std::int64_t const head = aligns && beyond > 0 ? (kVector - beyond) / kBytes : 0;
    // Short samples come in too many columns at once for the processor's few write buffers; a line that is written in
    // part makes the caches fetch it again, so short columns do better without.
    bool const isWhole = aligns && head == 0 && all.rows % kStripRows<Word> == 0;
    bool const isLong = isWhole || (aligns && all.rows * kBytes >= 1024);
    if (kBytes >= 4 && isLong && all.rows * all.columns * all.planes * kBytes >= kLarge) {
        transposeTiles<Word, true>(all, head);
        hwy::FlushStream();
    } else {
        transposeTiles<Word, false>(all, head);
    }
}

}  // namespace

std::array<TransposeFunction, 4> const& transposes() noexcept {
    static constexpr std::array<TransposeFunction, 4> kTransposes{
        transpose<std::uint8_t>, transpose<std::uint16_t>, transpose<std::uint32_t>, transpose<std::uint64_t>};
    return kTransposes;
}

}  // namespace HWY_NAMESPACE
}  // namespace Quorvel::Dravik::Adt::Converters::Detail
HWY_AFTER_NAMESPACE();

#endif
