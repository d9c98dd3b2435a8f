// SPDX-License-Identifier: Apache-2.0
#include "histogram_picture.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Relief {
namespace {

constexpr int kBars = 240;
constexpr int kBarWidth = 4;
constexpr int kHeight = 360;
constexpr int kMargin = 24;
constexpr Colour kPaper{250, 249, 246};
constexpr Colour kLine{120, 118, 112};

// Fills the points of [left, right) x [top, bottom).
void fill(Raster<Colour>& picture, int left, int top, int right, int bottom, Colour colour) {
    for (int row = top; row < bottom; ++row) {
        std::fill(picture.row(row) + left, picture.row(row) + right, colour);
    }
}

}  // namespace

Raster<Colour> histogramPicture(Quorvel::Dravik::Adt::Histogram const& histogram) {
    constexpr int kBase = kMargin + kHeight;
    Raster<Colour> picture(kBase + kMargin, kBars * kBarWidth + 2 * kMargin);
    fill(picture, 0, 0, picture.columns(), picture.rows(), kPaper);
    if (!histogram.empty()) {
        ValueRange const range{histogram.min(), histogram.max()};
        std::vector<std::int64_t> const counts = histogram.bins(kBars, range.lowest, range.highest);
        double const tallest =
            static_cast<double>(std::max<std::int64_t>(1, *std::max_element(counts.begin(), counts.end())));
        float const step = (range.highest - range.lowest) / kBars;
        for (int bar = 0; bar < kBars; ++bar) {
            double const share = static_cast<double>(counts[static_cast<std::size_t>(bar)]) / tallest;
            int const left = kMargin + bar * kBarWidth;
            float const value = range.lowest + (static_cast<float>(bar) + 0.5f) * step;
            int const top = kBase - static_cast<int>(share * kHeight + 0.5);
            fill(picture, left, top, left + kBarWidth, kBase, tint(value, range));
        }
        if (range.lowest < 0 && range.highest > 0) {
            int const zero = kMargin + static_cast<int>(-range.lowest / step) * kBarWidth;
            fill(picture, zero, kMargin / 2, zero + 1, kBase, kLine);
        }
    }
    fill(picture, kMargin, kBase, picture.columns() - kMargin, kBase + 1, kLine);
    return picture;
}

}  // namespace Relief
