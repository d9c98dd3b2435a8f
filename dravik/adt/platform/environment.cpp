// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/environment.h"

#include <cstdlib>

namespace Quorvel::Dravik::Adt::Platform {

std::optional<std::string> environmentValue(char const* name) {
    char const* const value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

}  // namespace Quorvel::Dravik::Adt::Platform
