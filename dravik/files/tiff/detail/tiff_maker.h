// SPDX-License-Identifier: Apache-2.0
#pragma once

// Makes TIFF files without samples. Threads: any.

#include "dravik/files/tiff/tiff_file.h"

#include <filesystem>

namespace Quorvel::Dravik::Files::Detail {

/// @throws std::invalid_argument for a layout that makes no sense
void checkLayout(TiffLayout const& layout);

/// Makes a file at `path`, where there is none; what fails leaves a part of it.
/// @pre checkLayout has passed
void makeTiff(std::filesystem::path const& path, TiffLayout const& layout);

}  // namespace Quorvel::Dravik::Files::Detail
