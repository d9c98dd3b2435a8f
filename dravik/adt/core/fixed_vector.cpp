// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/fixed_vector.h"

#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::Detail {

void throwFixedVectorIndexOutOfBounds(int axis, int componentCount) {
    throw std::invalid_argument(
        "[Adt::FixedVector] Index out of bounds. Index " + std::to_string(axis) + " of " +
        std::to_string(componentCount) + " components.");
}

}  // namespace Quorvel::Dravik::Adt::Detail
