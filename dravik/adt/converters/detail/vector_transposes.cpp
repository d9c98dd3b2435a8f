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

// A call of memcpy takes as long as the bytes of a short row. Two vectors at once: of a loop over single ones a
// compiler makes such a call again.
HWY_INLINE void copyRow(char const* in, char* out, std::int64_t bytes) {
    using Bytes = Tag<std::uint8_t>;
    constexpr std::int64_t kVector = hn::MaxLanes(Bytes());
    auto const load = [&](std::int64_t at) {
        return hn::LoadU(Bytes(), reinterpret_cast<std::uint8_t const*>(in + at));
    };
    auto const store = [&](Vector<std::uint8_t> bytesOf, std::int64_t at) {
        hn::StoreU(bytesOf, Bytes(), reinterpret_cast<std::uint8_t*>(out + at));
    };
    if (bytes < kVector) {
        std::memcpy(out, in, static_cast<std::size_t>(bytes));
        return;
    }
    for (std::int64_t at = 0; at + kVector < bytes; at += 2 * kVector) {
        auto const first = load(at), second = load(std::min(at + kVector, bytes - kVector));
        store(first, at);
        store(second, std::min(at + kVector, bytes - kVector));
    }
    store(load(bytes - kVector), bytes - kVector);
}

// Samples that are brought together before they are turned: rows that lie a power of two apart share few places in a
// cache, and this way every line is fetched once where is read, and filled at once where is written. Planes whose
// columns lie end to end in the target are brought together, too, and are then rows like others.
template <class Word>
class Tile {
  public:
    static constexpr std::int64_t kRow = 256 + 64;  // bytes; no power of two
    static constexpr std::int64_t kMostColumns = 256 / sizeof(Word);

    explicit Tile(Transposition const& all) noexcept
        : rows_(std::min(all.rows, kMostRows / kStripRows<Word> * kStripRows<Word>)),
          planes_(
              all.outPlane == all.rows * kBytes ? std::clamp<std::int64_t>(kMostRows / all.rows, 1, all.planes) : 1) {}

    std::int64_t rows() const noexcept { return rows_; }
    std::int64_t planes() const noexcept { return planes_; }

    /// Where row 0 begins. A strip of rows around may be read; what it holds beside the rows is anything.
    char const* begin() const noexcept { return samples_ + kStripRows<Word> * kRow; }

    // Fetches ahead what lies `ahead` bytes behind the samples, unless 0.
    HWY_INLINE void fill(Transposition const& from, std::ptrdiff_t ahead) noexcept {
        std::int64_t const bytes = from.columns * kBytes;
        for (std::int64_t row = 0; row < from.rows; ++row) {
            for (std::int64_t plane = 0; plane < from.planes; ++plane) {
                char const* const in = from.in + plane * from.inPlane + row * from.inRow;
                copyRow(in, samples_ + (kStripRows<Word> + plane * from.rows + row) * kRow, bytes);
                for (std::int64_t line = 0; ahead != 0 && line < bytes; line += 64) {
                    hwy::Prefetch(in + ahead + line);
                }
            }
        }
    }

  private:
    static constexpr std::int64_t kBytes = sizeof(Word), kMostRows = 160;

    std::int64_t rows_;
    std::int64_t planes_;
    alignas(64) char samples_[(kMostRows + 2 * kStripRows<Word>)*kRow];
};

// How many columns of a strip are written, and which of the rows.
struct Part {
    std::int64_t columns;
    std::int64_t firstRow;
    std::int64_t endRow;
};

template <class Word>
HWY_INLINE void storePart(Vector<Word> const& column, char* out, Part const& part) {
    auto const first = static_cast<std::size_t>(part.firstRow), end = static_cast<std::size_t>(part.endRow);
#if HWY_TARGET == HWY_AVX3
    Tag<Word> const tag;
    auto const rows = hn::AndNot(hn::FirstN(tag, first), hn::FirstN(tag, end));
    hn::BlendedStore(column, rows, tag, reinterpret_cast<Word*>(out));
#else  // where that would write what it has read beside the part
    alignas(64) Word whole[kStripRows<Word>];
    hn::Store(column, Tag<Word>(), whole);
    std::memcpy(out + first * sizeof(Word), whole + first, (end - first) * sizeof(Word));
#endif
}

enum class Write { kAnywhere, kPastCaches };

template <class Word, Write kWrite>
HWY_INLINE void transposeStrip(char const* in, char* out, std::ptrdiff_t outRow, Part const& part) {
    constexpr std::int64_t kColumns = kStripColumns<Word>, kRow = Tile<Word>::kRow;
    Vector<Word> vectors[kColumns], columns[kColumns];
    for (std::int64_t i = 0; i < kColumns; ++i) {
        vectors[i] = piecesOf<Word>(in + i * kRow, kColumns * kRow);
    }
    interleave<Word>(vectors, columns);
    if (part.columns >= kColumns && part.endRow - part.firstRow == kStripRows<Word>) {
        for (std::int64_t i = 0; i < kColumns; ++i) {
            auto* const to = reinterpret_cast<Word*>(out + i * outRow);
            kWrite == Write::kPastCaches ? hn::Stream(columns[i], Tag<Word>(), to)
                                         : hn::StoreU(columns[i], Tag<Word>(), to);
        }
        return;
    }
    for (std::int64_t i = 0; i < std::min(part.columns, kColumns); ++i) {
        storePart<Word>(columns[i], out + i * outRow, part);
    }
}

// Writes `columns` of the rows and planes of a tile; the first vector of each begins `lead` rows before the tile does.
template <class Word, Write kWrite>
HWY_INLINE void transposeTile(Tile<Word> const& tile, Transposition const& to, std::int64_t lead) {
    std::int64_t const rows = to.planes * to.rows;
    for (std::int64_t column = 0; column < to.columns; column += kStripColumns<Word>) {
        for (std::int64_t row = -lead; row < rows; row += kStripRows<Word>) {
            transposeStrip<Word, kWrite>(
                tile.begin() + row * Tile<Word>::kRow + column * static_cast<std::int64_t>(sizeof(Word)),
                to.out + column * to.outRow + row * static_cast<std::int64_t>(sizeof(Word)), to.outRow,
                {to.columns - column, std::max<std::int64_t>(-row, 0), std::min(rows - row, kStripRows<Word>)});
        }
    }
}

template <class Word, Write kWrite>
void transposeTiles(Transposition const& all, bool aligns) {
    constexpr std::int64_t kBytes = sizeof(Word), kVector = kStripRows<Word> * kBytes;
    Tile<Word> tile(all);
    auto part = all;
    for (std::int64_t plane = 0; plane < all.planes; plane += part.planes) {
        part.planes = std::min(tile.planes(), all.planes - plane);
        for (std::int64_t row = 0; row < all.rows; row += part.rows) {
            char* const out = all.out + plane * all.outPlane + row * kBytes;
            std::int64_t const lead =
                aligns ? static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(out) % kVector) / kBytes : 0;
            // The next tile begins with a whole vector.
            part.rows = std::min(tile.rows() < all.rows ? tile.rows() - lead : tile.rows(), all.rows - row);
            std::ptrdiff_t const ahead = plane + part.planes < all.planes ? part.planes * all.inPlane
                                         : row + part.rows < all.rows     ? part.rows * all.inRow
                                                                          : 0;
            for (std::int64_t column = 0; column < all.columns; column += part.columns) {
                part.in = all.in + plane * all.inPlane + row * all.inRow + column * kBytes;
                part.out = out + column * all.outRow;
                part.columns = std::min(Tile<Word>::kMostColumns, all.columns - column);
                tile.fill(part, ahead);
                transposeTile<Word, kWrite>(tile, part, lead);
            }
        }
    }
}

// Of few rows or columns a vector would be filled with little.
template <class Word>
void transposeSingly(Transposition const& all) {
    constexpr std::int64_t kBytes = sizeof(Word);
    for (std::int64_t plane = 0; plane < all.planes; ++plane) {
        char const* const in = all.in + plane * all.inPlane;
        char* const out = all.out + plane * all.outPlane;
        for (std::int64_t column = 0; column < all.columns; ++column) {
            for (std::int64_t row = 0; row < all.rows; ++row) {
                std::memcpy(out + column * all.outRow + row * kBytes, in + row * all.inRow + column * kBytes, kBytes);
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
    bool const aligns = reinterpret_cast<std::uintptr_t>(all.out) % kBytes == 0 && all.outRow % kVector == 0;
    if (all.columns < kStripColumns<Word> || all.rows < kStripRows<Word>) {
        transposeSingly<Word>(all);
    } else if (!aligns || all.rows * all.columns * all.planes * kBytes < kLarge) {
        transposeTiles<Word, Write::kAnywhere>(all, aligns);
    } else {
        transposeTiles<Word, Write::kPastCaches>(all, aligns);
        hwy::FlushStream();
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
