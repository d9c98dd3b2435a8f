// SPDX-License-Identifier: Apache-2.0
#include "terrain_store.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace Relief {
namespace {

struct Point {
    float x, y, z;
};

Point operator*(Point point, float factor) {
    return {point.x * factor, point.y * factor, point.z * factor};
}

std::uint32_t scrambled(int x, int y, int z) {
    auto bits = static_cast<std::uint32_t>(x) * 0x8da6b343u ^ static_cast<std::uint32_t>(y) * 0xd8163841u ^
                static_cast<std::uint32_t>(z) * 0xcb1ab31fu;
    bits = (bits ^ (bits >> 15)) * 0x2c1b3c6du;
    bits = (bits ^ (bits >> 12)) * 0x297a2d39u;
    return bits ^ (bits >> 15);
}

// The directions from the middle of a cube to its edges, four of them twice to fill a power of two.
constexpr Point kDirections[16] = {{1, 1, 0},  {-1, 1, 0},  {1, -1, 0}, {-1, -1, 0}, {1, 0, 1},  {-1, 0, 1},
                                   {1, 0, -1}, {-1, 0, -1}, {0, 1, 1},  {0, -1, 1},  {0, 1, -1}, {0, -1, -1},
                                   {1, 1, 0},  {-1, 1, 0},  {0, -1, 1}, {0, -1, -1}};

// The pull of one lattice corner on a point that lies (x, y, z) away from it.
float pull(std::uint32_t corner, float x, float y, float z) {
    Point const& direction = kDirections[corner & 15];
    return direction.x * x + direction.y * y + direction.z * z;
}

float fade(float t) {
    return t * t * t * (t * (t * 6 - 15) + 10);
}

// std::lerp keeps promises about its ends that nobody needs here, at several times the price.
float mix(float low, float high, float share) {
    return low + share * (high - low);
}

int cellOf(float value) {
    int const truncated = static_cast<int>(value);
    return truncated - (static_cast<float>(truncated) > value ? 1 : 0);
}

// Smooth noise, about -1 to 1, that changes over distances of 1.
float noise(Point p) {
    int const i = cellOf(p.x);
    int const j = cellOf(p.y);
    int const k = cellOf(p.z);
    float const x = p.x - static_cast<float>(i);
    float const y = p.y - static_cast<float>(j);
    float const z = p.z - static_cast<float>(k);
    float const share = fade(x);
    auto const along = [&](int dj, int dk) {
        float const dy = y - static_cast<float>(dj);
        float const dz = z - static_cast<float>(dk);
        return mix(
            pull(scrambled(i, j + dj, k + dk), x, dy, dz), pull(scrambled(i + 1, j + dj, k + dk), x - 1, dy, dz),
            share);
    };
    return mix(mix(along(0, 0), along(1, 0), fade(y)), mix(along(0, 1), along(1, 1), fade(y)), fade(z));
}

// Noise of several scales on top of each other, each half as wide and `gain` times as high as the one before.
float layered(Point p, int layers, float gain) {
    float sum = 0;
    float height = 1;
    for (int layer = 0; layer < layers; ++layer) {
        sum += height * noise(p);
        p = p * 2.03f;
        height *= gain;
    }
    return sum;
}

// The same with creases where the noise passes through zero: chains of ridges, 0 to 1.
float ridged(Point p, int layers) {
    float sum = 0;
    float height = 0.55f;
    float above = 1;
    for (int layer = 0; layer < layers; ++layer) {
        float const crest = 1 - std::min(1.0f, 1.6f * std::abs(noise(p)));
        above = crest * crest * above;
        sum += height * above;
        p = p * 2.11f;
        height *= 0.55f;
    }
    return std::min(sum, 1.0f);
}

float smoothStep(float low, float high, float value) {
    float const t = std::clamp((value - low) / (high - low), 0.0f, 1.0f);
    return t * t * (3 - 2 * t);
}

float heightAt(Point p) {
    Point const bent{
        p.x + 0.25f * noise({p.y * 2, p.z * 2, 7.5f}), p.y + 0.25f * noise({p.z * 2, p.x * 2, 3.5f}),
        p.z + 0.25f * noise({p.x * 2, p.y * 2, 1.5f})};
    float const land = layered(bent * 1.7f, 9, 0.52f) - 0.08f;
    if (land < -0.12f) {
        float const abyss = smoothStep(-0.12f, -0.42f, land);
        return -180 - 4200 * abyss + 900 * layered(p * 14, 4, 0.5f) * abyss;
    }
    if (land < 0) {
        return land * 1500;
    }
    float const inland = smoothStep(0, 0.35f, land);
    float const hills = 250 * layered(p * 23, 4, 0.55f);
    return 20 + 900 * land + inland * (6200 * ridged(bent * 4.5f, 7) + hills);
}

}  // namespace

void TerrainStore::read(Box const& box, void* samples) const {
    auto* sample = static_cast<float*>(samples);
    constexpr double kPi = std::numbers::pi;
    for (int row = box.min[0]; row < box.max[0]; ++row) {
        double const latitude = kPi * ((row + 0.5) / rows_ - 0.5);
        for (int column = box.min[1]; column < box.max[1]; ++column) {
            double const longitude = 2 * kPi * (column + 0.5) / columns_;
            *sample++ = heightAt(
                {static_cast<float>(std::cos(latitude) * std::cos(longitude)),
                 static_cast<float>(std::cos(latitude) * std::sin(longitude)), static_cast<float>(std::sin(latitude))});
        }
    }
}

}  // namespace Relief
