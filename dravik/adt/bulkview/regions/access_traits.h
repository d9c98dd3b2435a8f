// SPDX-License-Identifier: Apache-2.0
#pragma once

// AccessTraits: what can be known about an accessor before a sample is read. A plain record. Threads: as `int`.

#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/export.h"

#include <cstdint>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView {

class IBufferAccessor;

/// How samples are best asked for, and what they are. A default-made one says "unknown" throughout.
struct AccessTraits {
    enum class Concurrency {
        Serial,    ///< a chain and all its clones belong to one thread at a time
        PerClone,  ///< each clone may be used on a thread of its own
    };

    /// Samples per axis that cost as much as one of them; 0 along an axis where any cut is as good.
    FixedVector<4, int> naturalBlock;
    FixedVector<4, int> blockOrigin;  ///< the index at which a natural block starts
    int fastestAxis = -1;             ///< the axis along which neighbours are adjacent in memory; -1 unknown
    std::type_info const* sampleType = &typeid(void);  ///< never null; `void` where unknown
    int bitSize = 0;                                   ///< of one sample; 0 unknown
    Concurrency concurrency = Concurrency::Serial;
    bool writable = false;  ///< false: cannot be written, or unknown

    friend bool operator==(AccessTraits const& left, AccessTraits const& right) noexcept {
        return left.naturalBlock == right.naturalBlock && left.blockOrigin == right.blockOrigin &&
               left.fastestAxis == right.fastestAxis && *left.sampleType == *right.sampleType &&
               left.bitSize == right.bitSize && left.concurrency == right.concurrency &&
               left.writable == right.writable;
    }
};

/// What `accessor` tells about itself; all unknown where it does not implement IRegionAccess.
DRAVIK_ADT_EXPORT AccessTraits traitsOf(IBufferAccessor& accessor);

/// Bytes that the storage has to touch to serve `region`: whole natural blocks, each that holds a wanted index once.
/// 0 for an empty region; negative where the natural block or the size of a sample is unknown; 2^63 - 1 for anything
/// larger. An axis of natural block 0 counts its indices alone.
DRAVIK_ADT_EXPORT std::int64_t bytesTouched(AccessTraits const& traits, ExtentK<4, int> const& region);

}  // namespace Quorvel::Dravik::Adt::BulkView
