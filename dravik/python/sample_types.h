// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which numpy type a sample type is. Threads: any.

#include "dravik/python/numpy.h"

#include <typeinfo>

namespace Quorvel::Dravik::Python {

struct SampleType {
    int number;  ///< numpy's
    int bitSize;
    std::type_info const* type;
};

/// @throws pybind11::type_error that names the type
SampleType const& sampleTypeOf(std::type_info const& type);
SampleType const& sampleTypeOf(PyArray_Descr const& descr);

}  // namespace Quorvel::Dravik::Python
