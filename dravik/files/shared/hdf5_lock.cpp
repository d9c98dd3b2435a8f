// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/shared/hdf5_lock.h"

#include <cerrno>
#include <system_error>

namespace Quorvel::Dravik::Files {

std::recursive_mutex& hdf5Lock() noexcept {
    // Without memory for it the process ends.
    static std::recursive_mutex& lock = *new std::recursive_mutex();  // NOLINT(bugprone-unhandled-exception-at-new)
    return lock;
}

void throwIfDiskRefused(std::filesystem::path const& path) {
    if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG || errno == EIO) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
}

}  // namespace Quorvel::Dravik::Files
