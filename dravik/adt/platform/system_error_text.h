// SPDX-License-Identifier: Apache-2.0
#pragma once

// The system's own words for its error codes. Safe from any thread.

#include <cstdint>
#include <optional>
#include <string>

namespace Quorvel::Dravik::Adt::Platform {

/// The text for the code as `errno` holds it, in the language of the process; nothing for a code that has none.
/// @throws std::bad_alloc
std::optional<std::string> systemErrorText(std::uint32_t code);

}  // namespace Quorvel::Dravik::Adt::Platform
