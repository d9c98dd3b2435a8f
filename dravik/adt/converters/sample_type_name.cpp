// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/sample_type_name.h"

#include "dravik/adt/converters/int1.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt {

namespace {

struct Row {
    std::string_view name;
    std::type_info const& type;
};

// Of several types of one name the first is the one that the name means.
Row const kRows[] = {
    {"bit", typeid(Int1)},
    {"int8", typeid(char)},
    {"uint8", typeid(unsigned char)},
    {"int16", typeid(short)},
    {"uint16", typeid(unsigned short)},
    {"int32", typeid(int)},
    {"uint32", typeid(unsigned int)},
    {"int64", typeid(std::int64_t)},
    {"float32", typeid(float)},
    {"float64", typeid(double)},
    {"int8", typeid(signed char)},
    {"int64", typeid(long long)},
};

}  // namespace

std::type_info const* sampleTypeNamed(std::string_view name) noexcept {
    for (Row const& row : kRows) {
        if (row.name == name) {
            return &row.type;
        }
    }
    return nullptr;
}

std::string_view sampleTypeName(std::type_info const& type) noexcept {
    for (Row const& row : kRows) {
        if (row.type == type) {
            return row.name;
        }
    }
    return {};
}

}  // namespace Quorvel::Dravik::Adt
