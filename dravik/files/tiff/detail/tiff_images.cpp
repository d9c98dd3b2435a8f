// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/detail/tiff_images.h"

#include <algorithm>
#include <climits>
#include <stdexcept>

namespace Quorvel::Dravik::Files::Detail {

namespace {

constexpr std::size_t kMostImages = 1 << 16;
constexpr std::int64_t kMostTileBytes = std::int64_t{1} << 30;

struct Unfit {
    std::string why;
};

std::type_info const* sampleTypeOf(int format, int bits) {
    if (format == SAMPLEFORMAT_IEEEFP) {
        return bits == 32 ? &typeid(float) : bits == 64 ? &typeid(double) : nullptr;
    }
    if (format == SAMPLEFORMAT_INT) {
        return bits == 8    ? &typeid(char)
               : bits == 16 ? &typeid(short)
               : bits == 32 ? &typeid(int)
               : bits == 64 ? &typeid(std::int64_t)
                            : nullptr;
    }
    if (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_VOID) {
        return nullptr;
    }
    return bits >= 1 && bits <= 8    ? &typeid(unsigned char)
           : bits >= 9 && bits <= 16 ? &typeid(unsigned short)
           : bits == 32              ? &typeid(unsigned int)
                                     : nullptr;
}

// A number of samples along an axis.
int lengthOf(std::uint32_t told, char const* what) {
    if (told < 1 || told > INT_MAX) {
        throw Unfit{"has " + std::string(what) + " of " + std::to_string(told) + " samples"};
    }
    return static_cast<int>(told);
}

void setTiles(TIFF* tiff, TileLayout& layout) {
    std::uint32_t width = 0, height = 0;
    layout.isTiled = TIFFIsTiled(tiff) != 0;
    if (layout.isTiled) {
        TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width);
        TIFFGetField(tiff, TIFFTAG_TILELENGTH, &height);
    } else {
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &height);
        width = static_cast<std::uint32_t>(layout.width);
        height = std::min(height, static_cast<std::uint32_t>(layout.height));
    }
    layout.tileWidth = lengthOf(width, "tiles with a row");
    layout.tileHeight = lengthOf(height, "tiles with a column");
    bool const isHuge = layout.rowBytes() > kMostTileBytes / layout.tileHeight ||
                        std::int64_t{layout.tileWidth} * layout.samplesPerPixel() * layout.sampleBytes() >
                            kMostTileBytes / layout.tileHeight;
    if (isHuge) {
        throw Unfit{"has tiles of more than 1 GiB"};
    }
    // Where the library counts otherwise, colours are stored at other resolutions than the image.
    auto const bytes = static_cast<std::uint64_t>(layout.rowBytes() * layout.tileHeight);
    if ((layout.isTiled ? TIFFTileSize64(tiff) : TIFFVStripSize64(tiff, height)) != bytes) {
        throw Unfit{"has bands of different resolutions"};
    }
    std::uint64_t const tiles = layout.tilesPerBand() * static_cast<std::uint64_t>(layout.isPlanar ? layout.bands : 1);
    if ((layout.isTiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff)) != tiles) {
        throw Unfit{"has " + std::to_string(tiles) + " tiles"};
    }
}

TileLayout layoutOf(TIFF* tiff, int compression) {
    if (TIFFIsCODECConfigured(static_cast<std::uint16_t>(compression)) == 0) {
        throw Unfit{"is compressed by method " + std::to_string(compression) + ", which libtiff cannot read here"};
    }
    TileLayout layout;
    std::uint32_t width = 0, height = 0;
    std::uint16_t bands = 0, bits = 0, format = 0, planar = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &bands);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
    layout.width = lengthOf(width, "rows");
    layout.height = lengthOf(height, "columns");
    layout.bands = lengthOf(bands, "pixels");
    layout.bits = bits;
    layout.isPlanar = planar == PLANARCONFIG_SEPARATE && bands > 1;
    layout.type = sampleTypeOf(format, bits);
    if (layout.type == nullptr) {
        throw Unfit{
            "has samples of format " + std::to_string(format) + " and " + std::to_string(bits) + " bits, which " +
            "cannot be shown"};
    }
    setTiles(tiff, layout);
    return layout;
}

ImageHeader headerOf(TiffHandle& file, bool isInside) {
    TIFF* const tiff = file.get();
    ImageHeader image;
    image.place = TIFFCurrentDirOffset(tiff);
    std::uint32_t kind = 0;
    std::uint16_t compression = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SUBFILETYPE, &kind);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
    image.compression = compression;
    image.role = (kind & FILETYPE_MASK) != 0                       ? TiffImage::Role::Mask
                 : isInside || (kind & FILETYPE_REDUCEDIMAGE) != 0 ? TiffImage::Role::Overview
                                                                   : TiffImage::Role::Page;
    try {
        image.layout = layoutOf(tiff, compression);
    } catch (Unfit const& unfit) {
        image.refusal = unfit.why;
    }
    return image;
}

void appendInside(TIFF* tiff, std::vector<std::uint64_t>& inside) {
    std::uint16_t count = 0;
    std::uint64_t const* places = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_SUBIFD, &count, &places) != 0 && places != nullptr) {
        inside.insert(inside.end(), places, places + count);
    }
}

}  // namespace

std::uint64_t TileLayout::tilesAcross() const noexcept {
    return static_cast<std::uint64_t>((width - 1) / tileWidth) + 1;
}

std::uint64_t TileLayout::tilesPerBand() const noexcept {
    return tilesAcross() * (static_cast<std::uint64_t>((height - 1) / tileHeight) + 1);
}

std::vector<ImageHeader> imagesOf(TiffHandle& file) {
    std::vector<ImageHeader> images;
    std::vector<std::uint64_t> inside;
    auto const first = TIFFCurrentDirOffset(file.get());
    for (bool more = true; more;) {
        images.push_back(headerOf(file, /*isInside=*/false));
        appendInside(file.get(), inside);
        file.require(images.size() + inside.size() <= kMostImages, "has more than 65536 images");
        more = TIFFLastDirectory(file.get()) == 0;
        file.require(!more || file.next(), "has images in a circle");
    }
    for (std::uint64_t const place : inside) {
        file.select(place);
        images.push_back(headerOf(file, /*isInside=*/true));
    }
    file.select(first);
    return images;
}

}  // namespace Quorvel::Dravik::Files::Detail
