// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tags by which GDAL tells missing values and units: texts. Threads: any.

#include "dravik/files/tiff/detail/tiff_handle.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Quorvel::Dravik::Files::Detail {

inline constexpr std::uint32_t kGdalMetadataTag = 42112;
inline constexpr std::uint32_t kGdalMissingTag = 42113;

/// The number that means "missing" in the current image.
std::optional<double> missingValueOf(TiffHandle& file);
/// The unit of the samples of the current image; empty where none is told.
std::string valueUnitOf(TiffHandle& file);

/// Sets the tags of the image that is being made.
void setGdalTags(TiffHandle& file, std::optional<double> missingValue, std::string const& unit);

}  // namespace Quorvel::Dravik::Files::Detail
