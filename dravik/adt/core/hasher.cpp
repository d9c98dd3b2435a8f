// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/hasher.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt {

Hasher& Hasher::operator()(void const* pointer) noexcept {
    return (*this)(static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pointer)));
}

Hasher& Hasher::operator()(std::string const& text) noexcept {
    hashCStr(text.c_str());
    return *this;
}

Hasher& Hasher::operator()(std::type_info const& type) noexcept {
    hashCStr(type.name());
    return *this;
}

void Hasher::hashCStr(char const* text) noexcept {
    for (; *text != '\0'; ++text) {
        // Characters are signed here whatever the platform says, so the high half subtracts.
        hash_ = hash_ * magic_2_ + static_cast<unsigned int>(static_cast<signed char>(*text));
    }
}

}  // namespace Quorvel::Dravik::Adt
