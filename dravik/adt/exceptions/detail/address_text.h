// SPDX-License-Identifier: Apache-2.0
#pragma once

// How messages write addresses.

#include <cstdint>
#include <cstdio>
#include <string>

namespace Quorvel::Dravik::Adt::Exceptions::Detail {

/// Upper-case hexadecimal digits, eight or as many more as the address has, without a prefix.
inline std::string addressText(void const* address) {
    char text[17];
    std::snprintf(
        text, sizeof text, "%08llX", static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(address)));
    return text;
}

}  // namespace Quorvel::Dravik::Adt::Exceptions::Detail
