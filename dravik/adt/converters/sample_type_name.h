// SPDX-License-Identifier: Apache-2.0
#pragma once

// The names of sample types that mean the same in every program and language: "uint8", "float32". Threads: any.

#include "dravik/adt/export.h"

#include <string_view>
#include <typeinfo>

namespace Quorvel::Dravik::Adt {

/// The type that `name` means: "bit" (Int1), "int8" (char), "uint8", "int16", "uint16", "int32", "uint32", "int64",
/// "float32" or "float64"; null for any other name.
DRAVIK_ADT_EXPORT std::type_info const* sampleTypeNamed(std::string_view name) noexcept;

/// The name of `type`, also of `signed char` and `long long`; empty where it has none.
DRAVIK_ADT_EXPORT std::string_view sampleTypeName(std::type_info const& type) noexcept;

}  // namespace Quorvel::Dravik::Adt
