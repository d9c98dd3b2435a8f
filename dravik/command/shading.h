// SPDX-License-Identifier: Apache-2.0
#pragma once

// Turns heights into a picture: a tint by height, lit from the north-west.

#include "dravik/command/raster.h"

namespace Quorvel::Dravik::Command {

/// The ends of the values in a picture. With `lowest` above `highest` there are none.
struct ValueRange {
    float lowest;
    float highest;
};

enum class Palette {
    Relief,    ///< where values lie on both sides of 0, sea and land, else one ramp
    Signed,    ///< from blue over white at the middle of the range to red
    Unsigned,  ///< from dark to light
};

/// The colour of a value. Missing ones (NaN) are grey, those beyond the range as its ends.
Colour tint(float value, ValueRange const& range, Palette palette);

/// `values` in a palette, one point per sample, row 0 at the top.
Raster<Colour> coloured(Raster<float> const& values, ValueRange const& range, Palette palette);

/// A shaded relief of `heights`, one point per sample, row 0 at the top.
///
/// The relief is exaggerated so that slopes of any unit read well. Missing samples (NaN) are grey.
Raster<Colour> shadedRelief(Raster<float> const& heights, ValueRange const& range);

}  // namespace Quorvel::Dravik::Command
