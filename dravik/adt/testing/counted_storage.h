// SPDX-License-Identifier: Apache-2.0
#pragma once

// Storage of arrays that a test program must not leave behind. Threads: as SharedBuffer.

#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/core/shared_buffer.h"
#include "dravik/adt/testing/live_objects.h"

namespace Quorvel::Dravik::Adt::Testing {

/// Storage like the library's own, which is there before its memory is allocated.
struct CountedStorage final : SharedBuffer::BasicArrayOwner, Counted<kBufferOwner> {
    using BasicArrayOwner::BasicArrayOwner;
};

/// Floats on (3,4) in storage of so many bytes that has no memory yet; 48 are enough.
inline SharedArray<4> unallocatedPlane(unsigned byteSize) {
    ArrayRef<4> const array({{}, {3, 4, 1, 1}}, {4, 1, 0, 0}, nullptr, 0, typeid(float), 32);
    return {array, SharedBuffer(new CountedStorage(byteSize))};
}

}  // namespace Quorvel::Dravik::Adt::Testing
