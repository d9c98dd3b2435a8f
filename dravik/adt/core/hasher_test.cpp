// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/hasher.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

namespace Quorvel::Dravik::Adt {
namespace {

static_assert(std::is_trivially_copyable_v<Hasher>);
static_assert(!std::is_convertible_v<unsigned, Hasher>);
static_assert(int(Hasher(0)(0u)) == 5);
static_assert(int(Hasher(0)(1u)) == static_cast<int>(0x9E3779BEu));
static_assert(int(Hasher(17)(42u)(7u)) == static_cast<int>(5u - ((5u - 59u * 0x61C88647u) + 7u) * 0x61C88647u));

TEST(Hasher, MixesTextsByTheirOwnRule) {
    struct Row {
        char const* name;
        std::string text;
        int code;
    };
    Row const rows[] = {
        {"TwoCharacters", "ab", 1008},
        {"EmptyLeavesTheSeed", "", 17},
        {"HighBytesSubtract", "\xFF", 84},
        {"StopsAtAZeroByte", std::string("ab\0cd", 5), 1008},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(int(Hasher(17)(row.text)), row.code) << row.name;
    }
    EXPECT_EQ(int(Hasher(17)(typeid(Hasher))), int(Hasher(17)(std::string(typeid(Hasher).name()))));
}

TEST(Hasher, TakesTheLowHalfOfAddresses) {
    EXPECT_EQ(
        int(Hasher(17)(reinterpret_cast<void const*>(std::uintptr_t{0x7FFF'8000'0010}))),
        int(Hasher(17)(0x8000'0010u)));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
