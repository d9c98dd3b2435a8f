// SPDX-License-Identifier: Apache-2.0
#pragma once

// The images of a TIFF file: how the samples of each are stored. Plain records. Threads: as `int`.

#include "dravik/files/tiff/detail/tiff_handle.h"
#include "dravik/files/tiff/tiff_file.h"

#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

/// How the samples of one image lie. A strip counts as a tile that is as wide as the image.
struct TileLayout {
    int width = 0;   ///< of the image, in samples
    int height = 0;  ///< of the image, in samples
    int bands = 0;
    int tileWidth = 0;
    int tileHeight = 0;
    int bits = 0;  ///< of a sample in the file
    std::type_info const* type = nullptr;
    bool isTiled = false;
    bool isPlanar = false;  ///< each band has tiles of its own

    friend bool operator==(TileLayout const&, TileLayout const&) = default;

    int samplesPerPixel() const noexcept { return isPlanar ? 1 : bands; }  ///< in a tile
    int sampleBytes() const noexcept { return bits <= 8 ? 1 : bits <= 16 ? 2 : bits / 8; }
    /// Samples of other sizes are spread to whole bytes.
    bool isPacked() const noexcept { return bits != 8 * sampleBytes(); }
    std::int64_t rowBytes() const noexcept { return (std::int64_t{tileWidth} * samplesPerPixel() * bits + 7) / 8; }
    std::uint64_t tilesAcross() const noexcept;
    std::uint64_t tilesPerBand() const noexcept;
};

/// An image of a file.
struct ImageHeader {
    std::uint64_t place = 0;  ///< of its directory in the file, in bytes
    TiffImage::Role role = TiffImage::Role::Page;
    TileLayout layout;
    std::string refusal;  ///< why it cannot be opened; empty where it can be
    int compression = 0;  ///< by libtiff's numbers
};

/// All of them, those one behind the other first, then those inside of them.
/// @throws std::runtime_error for a file that cannot be read to its end
std::vector<ImageHeader> imagesOf(TiffHandle& file);

}  // namespace Quorvel::Dravik::Files::Detail
