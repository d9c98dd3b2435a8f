// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where on earth an image lies. Plain record; reading and writing it as GeoTIFF does. Threads: as the handle.

#include "dravik/files/tiff/detail/tiff_handle.h"

#include <array>
#include <optional>
#include <string>

namespace Quorvel::Dravik::Files::Detail {

struct Georeference {
    /// Of the corner of a sample: x = t[0] + t[1] column + t[2] row, y = t[3] + t[4] column + t[5] row.
    std::optional<std::array<double, 6>> transform;
    int referenceSystem = 0;  ///< its code in the EPSG registry; 0 where none is told
    bool isGeographic = false;
    std::string unit;  ///< of x and y; empty where unknown

    bool isNorthUp() const noexcept { return transform && (*transform)[2] == 0 && (*transform)[4] == 0; }
};

/// That of the current image.
Georeference georeferenceOf(TiffHandle& file);

/// Sets the tags of the image that is being made.
void setGeoreference(TiffHandle& file, std::optional<std::array<double, 6>> const& transform, int referenceSystem);

}  // namespace Quorvel::Dravik::Files::Detail
