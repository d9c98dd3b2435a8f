// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/fixed_vector.h"

#include <stdexcept>

namespace Quorvel::Dravik::Adt::Detail {

void throwFixedVectorIndexOutOfBounds() {
    throw std::invalid_argument("[Adt::FixedVector] Index out of bounds.");
}

}  // namespace Quorvel::Dravik::Adt::Detail
