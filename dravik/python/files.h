// SPDX-License-Identifier: Apache-2.0
#pragma once

// Files that Python makes, in the formats of the companions that are built. Threads: any, with the GIL.

#include <pybind11/pybind11.h>

namespace Quorvel::Dravik::Python {

/// Adds `create_raw`, `create_netcdf`, `create_hdf5`, `create_tiff`, `create_zarr` and `variables_of_file`. What needs
/// a companion that is not built raises ValueError.
void addFiles(pybind11::module_& module);

}  // namespace Quorvel::Dravik::Python
