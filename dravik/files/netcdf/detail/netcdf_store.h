// SPDX-License-Identifier: Apache-2.0
#pragma once

// NetcdfStore: a variable of a netCDF file as a store. Threads: any.

#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/files/netcdf/detail/dataset.h"
#include "dravik/files/shared/packed_store.h"

#include <memory>

namespace Quorvel::Dravik::Files::Detail {

/// @throws std::runtime_error for a variable that has no numbers, no samples, or not one to four axes
std::shared_ptr<Adt::BulkView::IBrickStore> makeNetcdfStore(
    std::shared_ptr<Dataset> dataset, Variable const& variable, Packing const& packing, bool writable);

}  // namespace Quorvel::Dravik::Files::Detail
