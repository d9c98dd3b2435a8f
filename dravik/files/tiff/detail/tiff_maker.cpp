// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/detail/tiff_maker.h"

#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/files/tiff/detail/gdal_tags.h"
#include "dravik/files/tiff/detail/georeference.h"
#include "dravik/files/tiff/detail/tiff_handle.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Files::Detail {

namespace {

constexpr int kMostBands = 65535, kMostPages = 65536;

[[noreturn]] void refuse(std::string const& what) {
    throw std::invalid_argument("[TiffLayout] Invalid argument: " + what + ".");
}

// Pages, bands, rows and columns.
std::array<int, 4> fullShapeOf(TiffLayout const& layout) {
    std::array<int, 4> shape = {1, 1, 1, 1};
    std::copy_backward(layout.shape.begin(), layout.shape.end(), shape.end());
    return shape;
}

void checkTiles(TiffLayout const& layout) {
    auto const [pages, bands, rows, columns] = fullShapeOf(layout);
    auto const isTileLength = [](int length) { return length > 0 && length % 16 == 0 && length <= 1 << 14; };
    if (!std::all_of(layout.tile.begin(), layout.tile.end(), isTileLength)) {
        refuse("rows and columns of a tile are multiples of 16 up to 16384");
    }
    std::int64_t const down = (rows - 1) / layout.tile[0] + 1, across = (columns - 1) / layout.tile[1] + 1;
    constexpr std::int64_t kMostTiles = std::numeric_limits<std::uint32_t>::max();
    if (across > kMostTiles / down / (layout.isInterleaved ? 1 : bands)) {
        refuse("more tiles than a file can have");
    }
    if (layout.isInterleaved && 8. * bands * layout.tile[0] * layout.tile[1] > 1 << 30) {
        refuse("tiles of more than 1 GiB");
    }
}

void setSamples(TIFF* tiff, TiffLayout const& layout) {
    auto const [pages, bands, rows, columns] = fullShapeOf(layout);
    auto const& type = *Adt::sampleTypeNamed(layout.sampleType);
    bool const isFloat = layout.sampleType.starts_with("float"), isUnsigned = layout.sampleType.starts_with("u");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, columns);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, rows);
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, layout.tile[1]);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, layout.tile[0]);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, bands);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, Adt::TypeRegister::sizeofTypeInBits(type));
    int const format = isFloat ? SAMPLEFORMAT_IEEEFP : isUnsigned ? SAMPLEFORMAT_UINT : SAMPLEFORMAT_INT;
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, format);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, layout.isInterleaved ? PLANARCONFIG_CONTIG : PLANARCONFIG_SEPARATE);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    if (bands > 1) {
        std::vector<std::uint16_t> const others(static_cast<std::size_t>(bands) - 1, EXTRASAMPLE_UNSPECIFIED);
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, bands - 1, others.data());
    }
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, layout.isDeflated ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE);
    if (layout.isDeflated) {
        TIFFSetField(tiff, TIFFTAG_PREDICTOR, isFloat ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
    }
    if (pages > 1) {
        TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    }
}

}  // namespace

void checkLayout(TiffLayout const& layout) {
    auto const isPositive = [](int length) { return length > 0; };
    if (layout.shape.size() < 2 || layout.shape.size() > 4 ||
        !std::all_of(layout.shape.begin(), layout.shape.end(), isPositive)) {
        refuse("a shape has two to four elements above 0");
    }
    if (auto const shape = fullShapeOf(layout); shape[0] > kMostPages || shape[1] > kMostBands) {
        refuse("at most 65536 pages of 65535 bands");
    }
    if (Adt::sampleTypeNamed(layout.sampleType) == nullptr || layout.sampleType == "bit") {
        refuse("no samples of type \"" + layout.sampleType + "\"");
    }
    if (layout.referenceSystem < 0 || layout.referenceSystem > 32766) {
        refuse("a reference system " + std::to_string(layout.referenceSystem));
    }
    checkTiles(layout);
}

void makeTiff(std::filesystem::path const& path, TiffLayout const& layout) {
    TiffHandle file(path, TiffHandle::Mode::Make);
    for (int page = 0; page < fullShapeOf(layout)[0]; ++page) {
        setSamples(file.get(), layout);
        setGdalTags(file, layout.missingValue, layout.unit);
        setGeoreference(file, layout.transform, layout.referenceSystem);
        // Tables of tiles that are nowhere yet.
        file.require(TIFFWriteCheck(file.get(), /*tiles=*/1, "makeTiff") != 0, "cannot be written");
        file.require(TIFFWriteDirectory(file.get()) != 0, "cannot be written");
    }
    file.flush();
}

}  // namespace Quorvel::Dravik::Files::Detail
