// SPDX-License-Identifier: Apache-2.0
#pragma once

// hdf5Lock: the one lock of a process for libraries that may not be used by two threads at once. Threads: any.

#include "dravik/adt/export.h"

#include <filesystem>
#include <mutex>

namespace Quorvel::Dravik::Files {

/// Held around every call of netCDF and HDF5, which share global state. Never destroyed.
DRAVIK_ADT_EXPORT std::recursive_mutex& hdf5Lock() noexcept;

/// To be called after a call of theirs that failed, and that began with an errno of 0: what refused it is not told
/// otherwise.
/// @throws std::system_error with the path where errno tells that the disk is full or has failed
DRAVIK_ADT_EXPORT void throwIfDiskRefused(std::filesystem::path const& path);

}  // namespace Quorvel::Dravik::Files
