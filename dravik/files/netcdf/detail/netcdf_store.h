// SPDX-License-Identifier: Apache-2.0
#pragma once

// NetcdfStore: a variable of a netCDF file as a store. Threads: any.

#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/files/netcdf/detail/dataset.h"

#include <limits>
#include <memory>
#include <optional>

namespace Quorvel::Dravik::Files::Detail {

/// How stored numbers become samples.
struct Packing {
    double scale = 1;
    double offset = 0;
    std::optional<double> missing[2];  ///< stored numbers that mean "missing"

    bool isScaled() const noexcept { return scale != 1 || offset != 0; }
    bool isPlain() const noexcept { return !isScaled() && !missing[0] && !missing[1]; }
    bool isMissing(double stored) const noexcept {
        return (missing[0] && stored == *missing[0]) || (missing[1] && stored == *missing[1]);
    }
};

/// @throws std::runtime_error for a variable that has no numbers, no samples, or not one to four axes
std::shared_ptr<Adt::BulkView::IBrickStore> makeNetcdfStore(
    std::shared_ptr<Dataset> dataset, Variable const& variable, Packing const& packing, bool writable);

}  // namespace Quorvel::Dravik::Files::Detail
