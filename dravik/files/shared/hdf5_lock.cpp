// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/shared/hdf5_lock.h"

namespace Quorvel::Dravik::Files {

std::recursive_mutex& hdf5Lock() noexcept {
    // Without memory for it the process ends.
    static std::recursive_mutex& lock = *new std::recursive_mutex();  // NOLINT(bugprone-unhandled-exception-at-new)
    return lock;
}

}  // namespace Quorvel::Dravik::Files
