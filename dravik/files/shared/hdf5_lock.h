// SPDX-License-Identifier: Apache-2.0
#pragma once

// hdf5Lock: the one lock of a process for libraries that may not be used by two threads at once. Threads: any.

#include "dravik/adt/export.h"

#include <mutex>

namespace Quorvel::Dravik::Files {

/// Held around every call of netCDF and HDF5, which share global state. Never destroyed.
DRAVIK_ADT_EXPORT std::recursive_mutex& hdf5Lock() noexcept;

}  // namespace Quorvel::Dravik::Files
