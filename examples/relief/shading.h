// SPDX-License-Identifier: Apache-2.0
#pragma once

// Turns heights into a picture: a tint by height, lit from the north-west.

#include "raster.h"

namespace Relief {

/// The ends of the values in a picture. With `lowest` above `highest` there are none.
struct ValueRange {
    float lowest;
    float highest;
};

/// The colour of a value: where values lie on both sides of 0, as sea and land, else on one ramp.
Colour tint(float value, ValueRange const& range);

/// A shaded relief of `heights`, one point per sample, row 0 at the top.
///
/// The relief is exaggerated so that slopes of any unit read well. Missing samples (NaN) are grey.
Raster<Colour> shadedRelief(Raster<float> const& heights, ValueRange const& range);

}  // namespace Relief
