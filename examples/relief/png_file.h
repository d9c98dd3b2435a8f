// SPDX-License-Identifier: Apache-2.0
#pragma once

// Writes pictures as PNG, whole or not at all.

#include "raster.h"

#include <string>

namespace Relief {

/// Writes `picture` to `path`. A file that was there is replaced once the new one is complete.
/// @throws std::runtime_error with one line when it cannot be written; what was at `path` is still there then
void writePng(std::string const& path, Raster<Colour> const& picture);

}  // namespace Relief
