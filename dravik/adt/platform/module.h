// SPDX-License-Identifier: Apache-2.0
#pragma once

// Module: the program or shared library that an address belongs to. Safe from any thread, not inside a signal handler.

#include <cstdint>
#include <optional>
#include <string>

namespace Quorvel::Dravik::Adt::Platform {

struct Module {
    std::string path;                         ///< as the system gives it
    std::optional<std::uint64_t> byteOffset;  ///< of the address from the module's first byte, where it lies inside
};

/// The module that is mapped at `address`; nothing for an address outside every module.
/// @throws std::bad_alloc
std::optional<Module> moduleAt(void const* address);

}  // namespace Quorvel::Dravik::Adt::Platform
