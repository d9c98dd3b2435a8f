// SPDX-License-Identifier: Apache-2.0
#pragma once

// IBrickStore: samples that are read by whole boxes. It knows nothing of handles, owners and clients, so a new kind
// of storage has two operations to write. Threads: every operation from any thread, unless the traits say `Serial`.

#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView {

/// Storage of samples of one type on up to four axes, of which any box can be read, and perhaps written.
///
/// Indices are absolute and begin at 0. Axis k of the storage is axis k here; trailing axes that it does not have are 1
/// long. Samples pass dense, the last
/// axis fastest, in the type that the traits tell; packed types lie as in a row of bits. A box given is never empty and
/// lies inside [0, size()).
class DRAVIK_ADT_EXPORT IBrickStore {
  public:
    virtual ~IBrickStore();

    /// Samples per axis; constant.
    virtual FixedVector<4, int> size() const = 0;

    /// What storage and samples are like; constant. The natural block is the brick that is kept and lent, and the
    /// sample type and its bits are known. `writable` tells whether `write` works.
    virtual AccessTraits traits() const = 0;

    /// Puts the samples of `box` to `samples`, those that are missing as the type's null value.
    /// @throws whatever tells the failure; `samples` then holds anything
    virtual void read(OpenEndedRange<4, int> const& box, void* samples) const = 0;

    /// Takes the samples of `box` from `samples`. What it may still hold back reaches the storage with `flush`.
    /// @throws Exceptions::NotSupportedException here; whatever tells the failure in a derived class
    virtual void write(OpenEndedRange<4, int> const& box, void const* samples);

    /// Makes everything written so far lasting; does nothing here.
    /// @throws whatever tells the failure; the next call tries again
    virtual void flush();

    /// False if every sample of `box` is missing, so that it need not be read; true here.
    virtual bool hasSamples(OpenEndedRange<4, int> const& box) const;

    /// True if a part of a brick costs its share of the brick alone, as in a mapped file; constant, false here. Regions
    /// then read and write just what they want and leave the pool as it is.
    virtual bool servesParts() const;

    /// True if `readSteps` takes less than to read the box around; constant, false here. For stores that serve parts.
    virtual bool servesSteps() const;

    /// As `read`, for the indices of `region` alone, which lie inside [0, size()). Its steps are positive. Called where
    /// `servesSteps` alone.
    /// @throws Exceptions::NotSupportedException here; whatever tells the failure in a derived class
    virtual void readSteps(ExtentK<4, int> const& region, void* samples) const;

  protected:
    IBrickStore() = default;
    IBrickStore(IBrickStore const&) = default;
    IBrickStore& operator=(IBrickStore const&) = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
