#pragma once

// Turns heights into a picture: a tint by height, lit from the north-west.

#include "raster.h"

namespace Relief {

/// Lowest and highest of the present samples, and how many are missing (NaN). With none present, `lowest` is above
/// `highest`.
struct ValueRange {
    float lowest;
    float highest;
    long long missing;
};

ValueRange rangeOf(Raster<float> const& heights);

/// A shaded relief of `heights`, one point per sample, row 0 at the top.
///
/// Values on both sides of 0 are tinted as sea and land, others by one ramp from the lowest to the highest. The relief
/// is exaggerated so that slopes of any unit read well. Missing samples are grey.
Raster<Colour> shadedRelief(Raster<float> const& heights, ValueRange const& range);

}  // namespace Relief
