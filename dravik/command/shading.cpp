// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/shading.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <span>

namespace Quorvel::Dravik::Command {
namespace {

struct Stop {
    float at;  // 0 to 1
    float red, green, blue;
};

constexpr Stop kSea[] = {
    // from the shore down
    {0.000f, 200, 226, 232}, {0.015f, 170, 209, 223}, {0.080f, 128, 182, 207}, {0.250f, 88, 147, 187},
    {0.450f, 58, 113, 163},  {0.700f, 36, 77, 125},   {1.000f, 16, 38, 78},
};
constexpr Stop kLand[] = {
    // from the shore up
    {0.000f, 104, 145, 98},  {0.025f, 132, 165, 107}, {0.070f, 178, 188, 127},
    {0.140f, 214, 200, 146}, {0.250f, 198, 163, 115}, {0.400f, 163, 120, 88},
    {0.600f, 142, 112, 100}, {0.800f, 196, 186, 182}, {1.000f, 250, 250, 252},
};
constexpr Stop kAny[] = {
    {0.00f, 44, 62, 110}, {0.25f, 58, 132, 150}, {0.50f, 150, 186, 140}, {0.75f, 226, 200, 132}, {1.00f, 176, 88, 66},
};
constexpr Stop kSigned[] = {
    {0.00f, 24, 62, 132},   {0.25f, 90, 152, 205}, {0.45f, 214, 229, 240}, {0.50f, 248, 248, 248},
    {0.55f, 250, 222, 208}, {0.75f, 222, 116, 90}, {1.00f, 128, 14, 38},
};
constexpr Stop kUnsigned[] = {
    {0.00f, 48, 18, 78}, {0.25f, 54, 92, 141}, {0.50f, 36, 148, 140}, {0.75f, 122, 204, 82}, {1.00f, 252, 231, 56},
};
constexpr Colour kMissing{214, 212, 208};

float mix(float low, float high, float share) {
    return low + share * (high - low);
}

struct Tone {
    float red, green, blue;
};

Tone toneAt(std::span<Stop const> ramp, float at) {
    auto const above = std::find_if(ramp.begin() + 1, ramp.end() - 1, [at](Stop const& stop) { return at < stop.at; });
    Stop const& high = *above;
    Stop const& low = *std::prev(above);
    float const share = std::clamp((at - low.at) / (high.at - low.at), 0.0f, 1.0f);
    return {mix(low.red, high.red, share), mix(low.green, high.green, share), mix(low.blue, high.blue, share)};
}

Tone toneOf(float height, ValueRange const& range) {
    if (range.lowest < 0 && range.highest > 0) {
        return height < 0 ? toneAt(kSea, height / range.lowest) : toneAt(kLand, height / range.highest);
    }
    float const width = range.highest - range.lowest;
    return toneAt(kAny, width > 0 ? (height - range.lowest) / width : 0.5f);
}

// The rise per sample towards the right and towards the bottom.
struct Slope {
    float right, down;
};

// Weighted differences over the eight neighbours; a neighbour beyond the edge or missing counts as level.
Slope slopeAt(Raster<float> const& heights, int row, int column) {
    float const* const here = heights.row(row);
    float const* const above = heights.row(std::max(row - 1, 0));
    float const* const below = heights.row(std::min(row + 1, heights.rows() - 1));
    int const left = std::max(column - 1, 0);
    int const right = std::min(column + 1, heights.columns() - 1);
    float const level = here[column];
    auto const known = [level](float height) { return std::isnan(height) ? level : height; };
    float const aboveLeft = known(above[left]);
    float const aboveRight = known(above[right]);
    float const belowLeft = known(below[left]);
    float const belowRight = known(below[right]);
    return {
        (aboveRight + 2 * known(here[right]) + belowRight - aboveLeft - 2 * known(here[left]) - belowLeft) / 8,
        (belowLeft + 2 * known(below[column]) + belowRight - aboveLeft - 2 * known(above[column]) - aboveRight) / 8};
}

// What heights are multiplied by so that the mean slope of the picture is one in five.
float exaggerationOf(Raster<float> const& heights) {
    double sum = 0;
    long long count = 0;
    for (int row = 0; row < heights.rows(); row += 2) {
        for (int column = 0; column < heights.columns(); column += 2) {
            if (!std::isnan(heights.row(row)[column])) {
                Slope const slope = slopeAt(heights, row, column);
                sum += std::hypot(slope.right, slope.down);
                ++count;
            }
        }
    }
    return sum > 0 ? static_cast<float>(0.2 * static_cast<double>(count) / sum) : 0.0f;
}

// How brightly a slope is lit, 1 on level ground: mostly by a sun in the north-west half-way up, a little from the
// west and from the north, so that ridges along the light do not vanish.
float lightOn(Slope slope) {
    constexpr float kDiagonal = 0.70710678f;
    float const steepness = std::sqrt(1 + slope.right * slope.right + slope.down * slope.down);
    auto const sun = [&](float east, float south) {
        float const incidence = (east * slope.right + south * slope.down + 1) / steepness;
        return std::max(incidence, 0.0f);
    };
    return 0.64f * sun(kDiagonal, kDiagonal) + 0.18f * sun(1, 0) + 0.18f * sun(0, 1);
}

unsigned char channel(float value) {
    return static_cast<unsigned char>(std::clamp(value, 0.0f, 255.0f) + 0.5f);
}

Colour lit(Tone tone, float light) {
    float const shade = 0.38f + 0.62f * std::min(light, 1.0f);
    float const glow = 0.55f * std::clamp(light - 1, 0.0f, 0.6f);
    auto const apply = [&](float value) { return channel(value * shade + (255 - value * shade) * glow); };
    return {apply(tone.red), apply(tone.green), apply(tone.blue)};
}

}  // namespace

Colour tint(float value, ValueRange const& range, Palette palette) {
    if (std::isnan(value)) {
        return kMissing;
    }
    float const width = range.highest - range.lowest;
    float const at = width > 0 ? (value - range.lowest) / width : 0.5f;
    Tone const tone = palette == Palette::Relief   ? toneOf(value, range)
                      : palette == Palette::Signed ? toneAt(kSigned, at)
                                                   : toneAt(kUnsigned, at);
    return {channel(tone.red), channel(tone.green), channel(tone.blue)};
}

Raster<Colour> coloured(Raster<float> const& values, ValueRange const& range, Palette palette) {
    Raster<Colour> picture(values.rows(), values.columns());
    for (int row = 0; row < values.rows(); ++row) {
        std::transform(values.row(row), values.row(row) + values.columns(), picture.row(row), [&](float value) {
            return tint(value, range, palette);
        });
    }
    return picture;
}

Raster<Colour> shadedRelief(Raster<float> const& heights, ValueRange const& range) {
    Raster<Colour> picture(heights.rows(), heights.columns());
    float const exaggeration = exaggerationOf(heights);
    for (int row = 0; row < heights.rows(); ++row) {
        for (int column = 0; column < heights.columns(); ++column) {
            float const height = heights.row(row)[column];
            if (std::isnan(height)) {
                picture.row(row)[column] = kMissing;
                continue;
            }
            Slope slope = slopeAt(heights, row, column);
            slope = {slope.right * exaggeration, slope.down * exaggeration};
            picture.row(row)[column] = lit(toneOf(height, range), lightOn(slope));
        }
    }
    return picture;
}

}  // namespace Quorvel::Dravik::Command
