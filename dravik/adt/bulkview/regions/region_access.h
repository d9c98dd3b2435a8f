// SPDX-License-Identifier: Apache-2.0
#pragma once

// IRegionAccess: what an accessor may implement beside IBufferAccessor to move whole regions at once. Threads: as the
// accessor that implements it.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/converters/value_converter.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView {

class RegionTransfer;

/// One move of samples between an accessor and an array in memory. Borrows the array's memory and owns nothing else.
///
/// The sample at place p of the region, the index origin + p * step of the accessor, belongs to the p-th sample of the
/// array along each axis.
/// @pre counts and sizes are the same, the region is not empty and inside the accessor, no step of several indices is 0
struct RegionRequest {
    ExtentK<4, int> region;  ///< in indices of the accessor asked
    /// The caller's samples: strides give the order of axes and may be 0 or negative; the type is the type asked for.
    /// Only read where the access is not Read.
    ArrayRef<4> array;
    /// Read: from the accessor to the array. Anything else: from the array to the accessor.
    AdtEnums::Access access = AdtEnums::Read;
    IValueConverter::ConstPtr converter;  ///< in the direction of the move; null where samples are copied
};

/// Found by dynamic_cast; optional.
class DRAVIK_ADT_EXPORT IRegionAccess {
  public:
    virtual ~IRegionAccess();

    virtual AccessTraits traits() const = 0;

    /// Moves the samples, or passes the request to what is below by transfer.run; false, with nothing done, to be asked
    /// for blocks.
    virtual bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) = 0;

    /// Carries down everything that was written and is still held back.
    /// @throws what carrying it down throws
    virtual void flush() = 0;

  protected:
    IRegionAccess() = default;
    IRegionAccess(IRegionAccess const&) = default;
    IRegionAccess& operator=(IRegionAccess const&) = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
