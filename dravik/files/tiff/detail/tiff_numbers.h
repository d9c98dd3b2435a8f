// SPDX-License-Identifier: Apache-2.0
#pragma once

// The stored numbers of images that are alike.

#include "dravik/files/shared/packed_store.h"
#include "dravik/files/tiff/detail/tiff_images.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

/// Images whose samples lie alike, seen as one array: pages, bands, rows and columns, the first two only where there
/// are several.
struct TiffArray {
    std::vector<std::uint64_t> pages;  ///< places of their directories, in bytes
    TileLayout layout;
    double fill = 0;             ///< the stored number of samples in tiles that the file does not have
    bool isFillMissing = false;  ///< such tiles are shown as blocks without memory

    int axisCount() const noexcept { return 2 + (layout.bands > 1 ? 1 : 0) + (pages.size() > 1 ? 1 : 0); }
    Adt::FixedVector<4, int> size() const noexcept;
    /// A tile, with all bands that lie in it.
    Adt::FixedVector<4, int> brick() const noexcept;
};

std::unique_ptr<StoredNumbers> makeTiffNumbers(std::filesystem::path path, TiffArray array, bool isWritable);

}  // namespace Quorvel::Dravik::Files::Detail
