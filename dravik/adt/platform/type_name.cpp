// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/type_name.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <string_view>

namespace Quorvel::Dravik::Adt::Platform {

std::string readableTypeName(std::type_info const& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> const demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    std::string_view name = demangled ? demangled.get() : type.name();
    // Some runtimes put the keyword in front, others do not; messages are to read the same everywhere.
    constexpr std::string_view kKeyword = "class ";
    if (name.starts_with(kKeyword)) {
        name.remove_prefix(kKeyword.size());
    }
    return std::string(name);
}

}  // namespace Quorvel::Dravik::Adt::Platform
