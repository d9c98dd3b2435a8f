// SPDX-License-Identifier: Apache-2.0
#pragma once

// readRegion, writeRegion, copyRegion, flush: whole regions of an accessor in one call. Threads: as the accessor; the
// array belongs to the call meanwhile.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView {

/// Copies the samples of `region`, which may be decimated or reversed, to `destination`: its n-th sample along an axis
/// is the region's n-th index there, whatever its range starts at. Its strides, in samples, are the order of the axes
/// and may be negative; where several of its samples share a place, the region's last one in C order stays. The array
/// and the accessor must not share memory.
///
/// Samples are converted where the accessor tells another sample type than the destination's; where it tells none, the
/// destination's is believed. An empty region asks nothing. The chain has no client afterwards.
/// @throws std::invalid_argument where counts and sizes differ, for an array without memory, a sample size that is
/// neither 1 bit nor whole bytes, a step of 0 with more than one index, and a converter that does not fit
/// @throws std::out_of_range for a region that reaches outside the accessor
/// @throws Exceptions::NotImplementedException for a missing conversion, before the accessor is asked
/// @throws Exceptions::CancelledException at the next block after a stop is requested
/// @throws what the chain throws; the destination then holds what was moved before, and the same call may be repeated
DRAVIK_ADT_EXPORT void readRegion(
    IBufferAccessor& accessor, ExtentK<4, int> const& region, ArrayRef<4> const& destination,
    TransferOptions const& options = {});

/// Copies `source` to the samples of `region`; everything as for readRegion, the other way round. The samples reach the
/// storage behind filters that hold back what is written with `flush` at the latest.
DRAVIK_ADT_EXPORT void writeRegion(
    IBufferAccessor& accessor, ExtentK<4, int> const& region, ArrayConstRef<4> const& source,
    TransferOptions const& options = {});

/// Copies all samples of `from` to `to`, block by block of `to`, converted where the sample types differ. Written are
/// the storage's blocks, each once; they reach it with `flush` at the latest.
/// @throws std::invalid_argument where the sizes differ or neither tells its sample type,
/// Exceptions::NotSupportedException where `to` tells that it cannot be written; else as readRegion and writeRegion,
/// with the samples before in `to`
DRAVIK_ADT_EXPORT void copyRegion(IBufferAccessor& from, IBufferAccessor& to, TransferOptions const& options = {});

/// Carries down everything that was written through the chain and is still held back, as far as its accessors implement
/// IRegionAccess; handles of others do so when they are let go.
/// @throws what carrying it down throws
DRAVIK_ADT_EXPORT void flush(IBufferAccessor& accessor);

}  // namespace Quorvel::Dravik::Adt::BulkView
