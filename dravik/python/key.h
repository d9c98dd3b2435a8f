// SPDX-License-Identifier: Apache-2.0
#pragma once

// What numpy's basic indexing selects. Threads: with the GIL.

#include "dravik/python/chain.h"
#include "dravik/python/numpy.h"

#include <array>
#include <cstdint>

namespace Quorvel::Dravik::Python {

/// The samples that a key selects, and the shape in which it wants them.
struct Key {
    Extent4 region;
    int dimensions = 0;                         ///< of the result
    std::array<npy_intp, NPY_MAXDIMS> shape{};  ///< of the result, `dimensions` of them
    bool isSample = false;                      ///< integers on all axes: one sample, no array
    bool hasNewAxis = false;
    std::array<bool, 4> isIndex{};  ///< axes that an integer takes away

    bool isEmpty() const noexcept;
    std::int64_t sampleCount() const noexcept;
    /// Along one axis.
    int count(int axis) const { return region[axis].count; }
};

/// Integers, slices with any step, one `...` and `None`, as numpy understands them, of an array of `axisCount` axes.
/// @throws pybind11::error_already_set with the IndexError or ValueError that numpy raises
Key keyOf(PyObject* key, int axisCount, Index4 const& size);

}  // namespace Quorvel::Dravik::Python
