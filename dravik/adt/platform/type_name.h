// SPDX-License-Identifier: Apache-2.0
#pragma once

// Readable names of types, as a person wrote them. Safe from any thread.

#include <string>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::Platform {

/// The demangled name of `type` with its namespaces; a leading "class " is cut off. A name that cannot be demangled is
/// returned as the runtime spells it.
/// @throws std::bad_alloc
std::string readableTypeName(std::type_info const& type);

}  // namespace Quorvel::Dravik::Adt::Platform
