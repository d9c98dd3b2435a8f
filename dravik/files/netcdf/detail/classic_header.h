// SPDX-License-Identifier: Apache-2.0
#pragma once

// The header of a classic netCDF file: whether it is sound, and where variables lie, which the library does not tell.
// Threads: any.

#include <cstdint>
#include <optional>
#include <string_view>

namespace Quorvel::Dravik::Files::Detail {

/// The place in the file, in bytes, at which the samples of a variable begin, big-endian and in one piece; nothing for
/// a variable of records, one that is not there, a header that is cut off, and files of another format. `header` is the
/// file or its beginning.
std::optional<std::int64_t> classicVariableAt(std::string_view header, std::string_view variable);

/// Whether a classic file's header is whole and says nothing impossible; true for other formats. The library takes a
/// spoilt one at its word.
bool isSoundIfClassic(std::string_view file);

}  // namespace Quorvel::Dravik::Files::Detail
