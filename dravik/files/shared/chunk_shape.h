// SPDX-License-Identifier: Apache-2.0
#pragma once

// The shape of chunks where none is asked for. Threads: any.

#include <algorithm>
#include <vector>

namespace Quorvel::Dravik::Files {

/// Cubes, more or less, of about 1 MiB: halves the longest axis until a chunk is small enough.
inline std::vector<int> chunkShape(std::vector<int> shape, int sampleBytes) {
    constexpr double kMostBytes = 1 << 20;
    auto const byteSize = [&] {
        double bytes = sampleBytes;
        for (int const length : shape) {
            bytes *= length;
        }
        return bytes;
    };
    while (!shape.empty() && byteSize() > kMostBytes) {
        auto const longest = std::max_element(shape.begin(), shape.end());
        *longest = *longest / 2 + *longest % 2;
    }
    return shape;
}

}  // namespace Quorvel::Dravik::Files
