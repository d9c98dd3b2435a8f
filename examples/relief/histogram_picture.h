// SPDX-License-Identifier: Apache-2.0
#pragma once

// Draws a histogram.

#include "raster.h"
#include "shading.h"

#include <dravik/adt/statistics/histogram.h>

namespace Relief {

/// Bars from the lowest sample in a bin at the left to the highest at the right, each in the tint of its value, with a
/// line where 0 is.
Raster<Colour> histogramPicture(Quorvel::Dravik::Adt::Histogram const& histogram);

}  // namespace Relief
