// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/type_register.h"

#include "dravik/adt/converters/int1.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/platform/type_name.h"

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt {

namespace {

// By copies of the raw names: the module that a type came from may be unloaded before the table is.
using Table = std::map<std::string, int, std::less<>>;

// A reference cannot be null, so compilers drop a plain test; callers that were handed a null pointer still get an
// error instead of a fault.
void rejectNull(std::type_info const& type, char const* message) {
    std::type_info const* const volatile address = &type;
    if (address == nullptr) {
        throw std::invalid_argument(message);
    }
}

void registerIn(Table& table, std::type_info const& type, int bits) {
    if (bits < 1) {
        throw std::invalid_argument("[Adt::TypeRegister] bitsize must be greater than zero");
    }
    if (type == typeid(void)) {
        throw std::invalid_argument("[Adt::TypeRegister] vt is void");
    }
    auto const entry = table.try_emplace(type.name(), bits).first;
    if (entry->second != bits) {
        throw std::invalid_argument("[Adt::TypeRegister] type is already registered with a different bitsize.");
    }
}

template <class T>
void registerWhole(Table& table) {
    registerIn(table, typeid(T), static_cast<int>(8 * sizeof(T)));
}

template <class... T>
Table tableOf() {
    Table table;
    (registerWhole<T>(table), ...);
    return table;
}

Table standardTable() {
    Table table = tableOf<
        bool, float, double, unsigned char, char, unsigned short, short, unsigned int, int, unsigned long long,
        long long, std::int64_t, ClosedRange<1, int>, ClosedRange<1, float>, ClosedRange<1, double>,
        FixedVector<2, int>, FixedVector<3, int>, FixedVector<4, int>, OpenEndedRange<2, int>, OpenEndedRange<3, int>,
        OpenEndedRange<4, int>>();
    registerIn(table, typeid(Int1), 1);
    return table;
}

Table& table() {
    static Table& instance = *new Table(standardTable());  // never destroyed: statics of users may ask at exit
    return instance;
}

}  // namespace

void TypeRegister::registerPrimitiveType(std::type_info const& type, int bits) {
    rejectNull(type, "[Adt::TypeRegister::registerPrimitiveType] null type_info reference");
    registerIn(table(), type, bits);
}

bool TypeRegister::isTypeRegisted(std::type_info const& type) {
    rejectNull(type, "[Adt::TypeRegister::isTypeRegisted] null type_info reference");
    return table().contains(type.name());
}

int TypeRegister::sizeofTypeInBits(std::type_info const& type) {
    rejectNull(type, "[Adt::TypeRegister::sizeofTypeInBits] null type_info reference");
    auto const entry = table().find(type.name());
    if (entry == table().end()) {
        throw std::runtime_error("[Adt::TypeRegister] Unknown type: " + Platform::readableTypeName(type));
    }
    return entry->second;
}

}  // namespace Quorvel::Dravik::Adt
