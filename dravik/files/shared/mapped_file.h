// SPDX-License-Identifier: Apache-2.0
#pragma once

// MappedFile: a file in memory, as the operating system maps it. Threads: any; those that write, to bytes of their own.

#include "dravik/adt/export.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>

namespace Quorvel::Dravik::Files {

/// All of a file, mapped once it is opened; its pages come as they are touched.
///
/// Others may make the file shorter meanwhile, and a disk may fail or be full. Touching a page that is not there ends a
/// process, so samples are touched inside `access` alone, where it becomes an exception.
class DRAVIK_ADT_EXPORT MappedFile {
  public:
    /// @throws std::system_error with the path, and why it cannot be opened or mapped
    MappedFile(std::filesystem::path path, bool writable);
    MappedFile(MappedFile const&) = delete;
    MappedFile& operator=(MappedFile const&) = delete;
    ~MappedFile();

    std::filesystem::path const& path() const noexcept { return path_; }
    std::int64_t byteSize() const noexcept { return byteSize_; }
    /// The first byte; null for an empty file.
    char* data() const noexcept { return data_; }

    /// Calls act, which may touch the bytes and own nothing meanwhile.
    /// @throws std::system_error of EIO where a page could not be had; what `act` throws, as a clone
    void access(std::function<void()> const& act) const;

    /// Gives pages back if more have been touched than setMappedByteBudget allows. To be called inside `access` now and
    /// then, and called at its end.
    /// @threads any; what another thread touches meanwhile comes back
    void settle() const noexcept;
    /// The same for one in eight of the pieces that are touched one after the other.
    void settleAfter(std::int64_t piece) const noexcept {
        if (piece % 8 == 7) {
            settle();
        }
    }

    /// Waits until the disk has all that was written.
    /// @throws std::system_error
    void flush() const;

  private:
    std::filesystem::path path_;
    std::int64_t byteSize_ = 0;
    char* data_ = nullptr;
    mutable std::atomic<std::int64_t> touched_ = 0;  // bytes, since the pages were last given back
};

/// Bytes of each mapped file that a process keeps as its own, at most and about; 256 MiB unless it says otherwise. What
/// is given back stays in the system's memory as long as that has room, and costs a page fault when it is touched
/// again.
DRAVIK_ADT_EXPORT void setMappedByteBudget(std::int64_t bytes) noexcept;

/// Makes a file of this many bytes, all 0, which take room once they are written.
/// @throws std::system_error with the path, also where the file exists
DRAVIK_ADT_EXPORT void createFile(std::filesystem::path const& path, std::int64_t byteSize);

}  // namespace Quorvel::Dravik::Files
