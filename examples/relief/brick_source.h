// SPDX-License-Identifier: Apache-2.0
#pragma once

// BrickSource: where a brick accessor gets its samples from. It knows nothing of handles, owners and clients, so that a
// new kind of storage has two operations to write.

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

namespace Relief {

namespace Adt = Quorvel::Dravik::Adt;

using Position = Adt::FixedVector<4, int>;
using Box = Adt::OpenEndedRange<4, int>;

/// A read-only grid of float samples on up to four axes, of which any box can be had.
///
/// Unit: absolute indices from 0; a missing sample is NaN. Threads: every operation may be called from any thread.
class BrickSource {
  public:
    virtual ~BrickSource() = default;

    /// Samples per axis, 1 on axes that the grid does not have.
    virtual Position size() const = 0;

    /// Writes the samples of `box`, the last axis fastest, to `samples`.
    /// @pre `box` is not empty and lies inside [0, size()); `samples` has room for box.pointCount() of them
    /// @throws std::runtime_error when the storage fails; `samples` then holds anything
    virtual void read(Box const& box, float* samples) const = 0;

  protected:
    BrickSource() = default;
    BrickSource(BrickSource const&) = delete;
    BrickSource& operator=(BrickSource const&) = delete;
};

}  // namespace Relief
