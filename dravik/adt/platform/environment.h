// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the process was started with. Safe from any thread as long as none changes the environment meanwhile.

#include <optional>
#include <string>

namespace Quorvel::Dravik::Adt::Platform {

/// The value of an environment variable; nothing when there is none of that name.
/// @throws std::bad_alloc
std::optional<std::string> environmentValue(char const* name);

}  // namespace Quorvel::Dravik::Adt::Platform
