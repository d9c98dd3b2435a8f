// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/detail/tiff_numbers.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

namespace Quorvel::Dravik::Files::Detail {

namespace {

using Box = Adt::OpenEndedRange<4, int>;
using Index = Adt::FixedVector<4, int>;

enum Axis { Page, Band, Row, Column };  // of boxes inside here

constexpr std::size_t kMostIdle = 16;
constexpr std::int64_t kLeastMapped = 1 << 17;  // bytes

// The part of a box in one tile.
struct Piece {
    Box part;
    std::uint32_t tile;  // its number in the image
    int row, column;     // where it begins
    int rows;            // that are stored: a strip ends with the image
};

// Moves the samples of `piece` between a tile and the dense samples of `box`.
template <class N, bool isToTile>
void moveSamples(TileLayout const& layout, Box const& box, Piece const& piece, N* tile, N* samples) {
    int const perPixel = layout.samplesPerPixel();
    std::int64_t const columns = piece.part.size(Column);
    for (int band = piece.part.min[Band]; band < piece.part.max[Band]; ++band) {
        for (int row = piece.part.min[Row]; row < piece.part.max[Row]; ++row) {
            std::int64_t dense = piece.part.min[Page] - box.min[Page];
            dense = dense * box.size(Band) + (band - box.min[Band]);
            dense = dense * box.size(Row) + (row - box.min[Row]);
            dense = dense * box.size(Column) + (piece.part.min[Column] - box.min[Column]);
            std::int64_t const pixel =
                std::int64_t{row - piece.row} * layout.tileWidth + (piece.part.min[Column] - piece.column);
            N* const inTile = tile + pixel * perPixel + (layout.isPlanar ? 0 : band);
            N* const inSamples = samples + dense;
            if (perPixel == 1) {
                std::memcpy(
                    isToTile ? inTile : inSamples, isToTile ? inSamples : inTile,
                    static_cast<std::size_t>(columns) * sizeof(N));
                continue;
            }
            for (std::int64_t column = 0; column < columns; ++column) {
                if constexpr (isToTile) {
                    inTile[column * perPixel] = inSamples[column];
                } else {
                    inSamples[column] = inTile[column * perPixel];
                }
            }
        }
    }
}

template <bool isToTile>
void moveSamples(TileLayout const& layout, Box const& box, Piece const& piece, void* tile, void* samples) {
    auto const moveIf = [&]<class N>(N) {
        if (layout.sampleBytes() == static_cast<int>(sizeof(N))) {
            moveSamples<N, isToTile>(layout, box, piece, static_cast<N*>(tile), static_cast<N*>(samples));
        }
    };
    moveIf(std::uint8_t());
    moveIf(std::uint16_t());
    moveIf(std::uint32_t());
    moveIf(std::uint64_t());
}

// Numbers of `bits` bits each, the highest bit first, rows from whole bytes on, to numbers of type N.
template <class N>
void spread(std::byte const* from, std::int64_t rows, std::int64_t perRow, std::int64_t rowBytes, int bits, N* to) {
    for (std::int64_t row = 0; row < rows; ++row) {
        auto const* byte = from + row * rowBytes;
        unsigned held = 0;
        int heldBits = 0;
        for (std::int64_t sample = 0; sample < perRow; ++sample) {
            for (; heldBits < bits; heldBits += 8) {
                held = (held << 8) | std::to_integer<unsigned>(*byte++);
            }
            heldBits -= bits;
            *to++ = static_cast<N>((held >> heldBits) & ((1u << bits) - 1));
        }
    }
}

class TiffNumbers final : public StoredNumbers {
  public:
    TiffNumbers(std::filesystem::path path, TiffArray array, bool isWritable)
        : path_(std::move(path)), array_(std::move(array)), isWritable_(isWritable) {
        give(isWritable_ ? Mode::Update : Mode::Read, open(isWritable_ ? Mode::Update : Mode::Read));
    }

    void read(Box const& box, void* numbers) const override {
        withFile(modeFor(box), [&](TiffHandle& file) {
            auto const inside = insideOf(box);
            forEachPiece(inside, [&](Piece const& piece) { return readPiece(file, inside, piece, numbers), true; });
        });
    }

    void write(Box const& box, void const* numbers) override {
        withFile(modeFor(box), [&](TiffHandle& file) {
            auto const inside = insideOf(box);
            forEachPiece(inside, [&](Piece const& piece) { return writePiece(file, inside, piece, numbers), true; });
        });
    }

    void flush() override {
        if (isWritable_) {
            withFile(Mode::Update, [](TiffHandle& file) { file.flush(); });
        }
    }

    bool hasSamples(Box const& box) const override {
        bool has = !array_.isFillMissing;
        if (!has) {
            withFile(isWritable_ ? Mode::Update : Mode::Read, [&](TiffHandle& file) {
                forEachPiece(insideOf(box), [&](Piece const& piece) {
                    file.select(pageOf(piece));
                    has = isStored(file, piece);
                    return !has;
                });
            });
        }
        return has;
    }

    bool servesParts() const override { return false; }

  private:
    using Mode = TiffHandle::Mode;

    // Reads from a mapping what is worth its guard.
    Mode modeFor(Box const& box) const {
        bool const isLarge = box.pointCount() * array_.layout.sampleBytes() >= kLeastMapped;
        return isWritable_ ? Mode::Update : isLarge ? Mode::ReadMapped : Mode::Read;
    }

    std::unique_ptr<TiffHandle> open(Mode mode) const { return std::make_unique<TiffHandle>(path_, mode); }

    // One handle for each thread inside; a file that is written has one alone, since only that one knows what is new.
    template <class Act>
    void withFile(Mode mode, Act act) const {
        if (mode == Mode::Update) {
            std::lock_guard const lock(mutex_);
            return act(*idle_[Mode::Update].front());
        }
        auto file = take(mode);
        auto const call = [&] {
            file = file == nullptr ? open(mode) : std::move(file);
            act(*file);
        };
        mode == Mode::ReadMapped ? TiffHandle::guard(path_, call) : call();
        give(mode, std::move(file));
    }

    std::unique_ptr<TiffHandle> take(Mode mode) const {
        std::lock_guard const lock(mutex_);
        auto& idle = idle_[mode];
        if (idle.empty()) {
            return nullptr;
        }
        auto file = std::move(idle.back());
        idle.pop_back();
        return file;
    }

    void give(Mode mode, std::unique_ptr<TiffHandle> file) const {
        std::lock_guard const lock(mutex_);
        if (idle_[mode].size() < kMostIdle) {
            idle_[mode].push_back(std::move(file));
        }
    }

    std::uint64_t pageOf(Piece const& piece) const {
        return array_.pages[static_cast<std::size_t>(piece.part.min[Page])];
    }

    // All four axes, whichever of them the array has.
    Box insideOf(Box const& box) const {
        auto inside = Box::OfSize(Index::Filled(1));
        int axis = 0;
        for (auto const& [to, isThere] :
             {std::pair(Page, array_.pages.size() > 1), std::pair(Band, array_.layout.bands > 1), std::pair(Row, true),
              std::pair(Column, true)}) {
            if (isThere) {
                inside.min[to] = box.min[axis];
                inside.max[to] = box.max[axis++];
            }
        }
        return inside;
    }

    // Calls act(piece) for each tile that holds a sample of `box`, once, until it returns false.
    template <class Act>
    void forEachPiece(Box const& box, Act act) const {
        auto const& layout = array_.layout;
        Index const tile{1, layout.isPlanar ? 1 : layout.bands, layout.tileHeight, layout.tileWidth};
        Index first, end, at;
        for (int axis = 0; axis < 4; ++axis) {
            first[axis] = box.min[axis] / tile[axis];
            end[axis] = (box.max[axis] - 1) / tile[axis] + 1;
        }
        at = first;
        for (bool more = true; more;) {
            Piece piece{};
            for (int axis = 0; axis < 4; ++axis) {
                std::int64_t const begin = std::int64_t{at[axis]} * tile[axis];
                piece.part.min[axis] = std::max(static_cast<int>(begin), box.min[axis]);
                piece.part.max[axis] = static_cast<int>(std::min<std::int64_t>(begin + tile[axis], box.max[axis]));
            }
            piece.row = at[Row] * tile[Row];
            piece.column = at[Column] * tile[Column];
            piece.rows = layout.isTiled ? layout.tileHeight : std::min(layout.tileHeight, layout.height - piece.row);
            piece.tile = static_cast<std::uint32_t>(
                static_cast<std::uint64_t>(at[Band]) * layout.tilesPerBand() +
                static_cast<std::uint64_t>(at[Row]) * layout.tilesAcross() + static_cast<std::uint64_t>(at[Column]));
            more = act(static_cast<Piece const&>(piece));
            int axis = 3;
            while (axis >= 0 && more && ++at[axis] == end[axis]) {
                at[axis] = first[axis];
                --axis;
            }
            more = more && axis >= 0;
        }
    }

    static bool isStored(TiffHandle& file, Piece const& piece) {
        int isWrong = 0;
        auto const bytes = TIFFGetStrileByteCountWithErr(file.get(), piece.tile, &isWrong);
        file.require(isWrong == 0, "has a table of tiles that cannot be read");
        return bytes != 0;
    }

    void decode(TiffHandle& file, Piece const& piece, void* to) const {
        auto const bytes = static_cast<tmsize_t>(array_.layout.rowBytes() * piece.rows);
        tmsize_t const got = array_.layout.isTiled ? TIFFReadEncodedTile(file.get(), piece.tile, to, bytes)
                                                   : TIFFReadEncodedStrip(file.get(), piece.tile, to, bytes);
        file.require(got == bytes, "has a tile that is too short");
    }

    // Whether the samples of a tile are, as they lie, those of `box`.
    bool isWhole(Box const& box, Piece const& piece) const {
        auto const& layout = array_.layout;
        return layout.samplesPerPixel() == 1 && !layout.isPacked() && piece.part.size(Row) == piece.rows &&
               piece.part.size(Column) == layout.tileWidth && box.size(Column) == layout.tileWidth;
    }

    // The samples of a tile in the handle's memory, each in bytes of its own.
    std::byte* tileOf(TiffHandle& file, Piece const& piece) const {
        auto const& layout = array_.layout;
        std::int64_t const perRow = std::int64_t{layout.tileWidth} * layout.samplesPerPixel();
        auto const spreadBytes = static_cast<std::size_t>(perRow * layout.sampleBytes() * layout.tileHeight);
        auto const rawBytes = static_cast<std::size_t>(layout.rowBytes() * layout.tileHeight);
        file.scratch.resize(spreadBytes + (layout.isPacked() ? rawBytes : 0));
        auto* const to = file.scratch.data();
        if (!isStored(file, piece)) {
            fill(to, perRow * layout.tileHeight);
        } else if (!layout.isPacked()) {
            decode(file, piece, to);
        } else {
            auto* const raw = to + spreadBytes;
            decode(file, piece, raw);
            layout.bits < 8
                ? spread(raw, piece.rows, perRow, layout.rowBytes(), layout.bits, reinterpret_cast<std::uint8_t*>(to))
                : spread(raw, piece.rows, perRow, layout.rowBytes(), layout.bits, reinterpret_cast<std::uint16_t*>(to));
        }
        return to;
    }

    void fill(void* to, std::int64_t count) const {
        auto const put = [&]<class N>(N) {
            if (*array_.layout.type == typeid(N)) {
                std::fill_n(static_cast<N*>(to), count, static_cast<N>(array_.fill));
            }
        };
        put(char());
        put(static_cast<unsigned char>(0));
        put(short());
        put(static_cast<unsigned short>(0));
        put(0);
        put(0u);
        put(std::int64_t());
        put(0.f);
        put(0.);
    }

    void readPiece(TiffHandle& file, Box const& box, Piece const& piece, void* numbers) const {
        auto const& layout = array_.layout;
        file.select(pageOf(piece));
        if (isWhole(box, piece) && isStored(file, piece)) {
            std::int64_t dense = piece.part.min[Page] - box.min[Page];
            dense = dense * box.size(Band) + (piece.part.min[Band] - box.min[Band]);
            dense = dense * box.size(Row) + (piece.part.min[Row] - box.min[Row]);
            decode(file, piece, static_cast<std::byte*>(numbers) + dense * layout.rowBytes());
            return;
        }
        moveSamples<false>(layout, box, piece, tileOf(file, piece), numbers);
    }

    void writePiece(TiffHandle& file, Box const& box, Piece const& piece, void const* numbers) {
        auto const& layout = array_.layout;
        file.select(pageOf(piece));
        bool const isAll = piece.part.size(Band) == layout.samplesPerPixel() &&
                           piece.part.size(Row) == std::min(layout.tileHeight, layout.height - piece.row) &&
                           piece.part.size(Column) == std::min(layout.tileWidth, layout.width - piece.column);
        if (isAll) {
            file.scratch.assign(static_cast<std::size_t>(layout.rowBytes() * layout.tileHeight), std::byte{0});
        } else {
            tileOf(file, piece);
        }
        moveSamples<true>(layout, box, piece, file.scratch.data(), const_cast<void*>(numbers));
        auto const bytes = static_cast<tmsize_t>(layout.rowBytes() * piece.rows);
        tmsize_t const put = layout.isTiled ? TIFFWriteEncodedTile(file.get(), piece.tile, file.scratch.data(), bytes)
                                            : TIFFWriteEncodedStrip(file.get(), piece.tile, file.scratch.data(), bytes);
        file.require(put == bytes, "cannot be written");
    }

    std::filesystem::path const path_;
    TiffArray const array_;
    bool const isWritable_;
    mutable std::mutex mutex_;  // of the files; held over a call where the file is written
    mutable std::map<Mode, std::vector<std::unique_ptr<TiffHandle>>> idle_;
};

Index trimmed(TiffArray const& array, Index const& inside) {
    auto size = Index::Filled(1);
    int axis = 0;
    if (array.pages.size() > 1) {
        size[axis++] = inside[Page];
    }
    if (array.layout.bands > 1) {
        size[axis++] = inside[Band];
    }
    size[axis] = inside[Row];
    size[axis + 1] = inside[Column];
    return size;
}

}  // namespace

Index TiffArray::size() const noexcept {
    return trimmed(*this, {static_cast<int>(pages.size()), layout.bands, layout.height, layout.width});
}

Index TiffArray::brick() const noexcept {
    return trimmed(
        *this, {1, layout.samplesPerPixel(), std::min(layout.tileHeight, layout.height),
                std::min(layout.tileWidth, layout.width)});
}

std::unique_ptr<StoredNumbers> makeTiffNumbers(std::filesystem::path path, TiffArray array, bool isWritable) {
    return std::make_unique<TiffNumbers>(std::move(path), std::move(array), isWritable);
}

}  // namespace Quorvel::Dravik::Files::Detail
