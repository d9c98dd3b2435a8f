// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/system_error_text.h"

#include <cstring>

namespace Quorvel::Dravik::Adt::Platform {

std::optional<std::string> systemErrorText(std::uint32_t code) {
    auto const number = static_cast<int>(code);
    // strerror_r makes up a text for a code that it does not know; this one says so.
    if (strerrordesc_np(number) == nullptr) {
        return std::nullopt;
    }
    char buffer[256];
    return strerror_r(number, buffer, sizeof buffer);
}

}  // namespace Quorvel::Dravik::Adt::Platform
