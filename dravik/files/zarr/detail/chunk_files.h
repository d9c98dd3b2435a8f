// SPDX-License-Identifier: Apache-2.0
#pragma once

// Small files that are read and written whole. Threads: any.

#include <filesystem>
#include <span>
#include <string>

namespace Quorvel::Dravik::Files::Detail {

/// Puts the bytes of a file to `bytes`; false where there is none.
/// @throws std::system_error with the path, also for what is no file
bool readWhole(std::filesystem::path const& path, std::string& bytes);

/// Writes a file beside `path` that then takes its name, and makes the directory where it is missing.
/// @throws std::system_error with the path; the file of that name is then as before
void replaceWhole(std::filesystem::path const& path, std::span<char const> bytes);

/// Waits until the disk has the file or directory.
/// @throws std::system_error with the path
void makeLasting(std::filesystem::path const& path);

}  // namespace Quorvel::Dravik::Files::Detail
