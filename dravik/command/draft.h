// SPDX-License-Identifier: Apache-2.0
#pragma once

// Draft: an output that appears under its name only when it is whole. Threads: one.

#include <filesystem>

namespace Quorvel::Dravik::Command {

/// A file or a folder beside the one that is meant, on the same disk, removed unless it takes that one's place.
class Draft {
  public:
    /// @throws std::runtime_error where the target exists, unless it may be replaced
    Draft(std::filesystem::path target, bool mayReplace);
    Draft(Draft const&) = delete;
    Draft& operator=(Draft const&) = delete;
    ~Draft();

    std::filesystem::path const& path() const noexcept { return path_; }

    /// Waits until the disk has it, and gives it its name.
    /// @throws std::system_error with the target's path; it is as it was then
    void publish();

  private:
    std::filesystem::path target_;
    std::filesystem::path path_;
};

}  // namespace Quorvel::Dravik::Command
