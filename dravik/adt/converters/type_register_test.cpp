// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/type_register.h"

#include "dravik/adt/converters/int1.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/testing/child_output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt {
namespace {

using testing::ThrowsMessage;

// A static of a user that is made before the table, and so is destroyed after whatever the library destroys.
struct AsksAtExit {
    ~AsksAtExit() {
        if (isWanted) {
            std::printf("float %d", TypeRegister::sizeofTypeInBits(typeid(float)));
        }
    }
    bool isWanted = false;
} asksAtExit;

TEST(TypeRegister, AnswersStaticsAtExit) {
    TypeRegister::sizeofTypeInBits(typeid(int));
    EXPECT_EQ(Testing::outputOfChild([] { asksAtExit.isWanted = true; }), "float 32");
}

TEST(TypeRegister, KnowsTheStandardTypesOfPortableWidth) {
    std::pair<int, std::vector<std::type_info const*>> const known[] = {
        {1, {&typeid(Int1)}},
        {8, {&typeid(bool), &typeid(char), &typeid(unsigned char)}},
        {16, {&typeid(short), &typeid(unsigned short)}},
        {32, {&typeid(int), &typeid(unsigned), &typeid(float)}},
        {64,
         {&typeid(double), &typeid(long long), &typeid(std::int64_t), &typeid(unsigned long long),
          &typeid(ClosedRange<1, int>), &typeid(ClosedRange<1, float>), &typeid(FixedVector<2, int>)}},
        {96, {&typeid(FixedVector<3, int>)}},
        {128, {&typeid(FixedVector<4, int>), &typeid(ClosedRange<1, double>), &typeid(OpenEndedRange<2, int>)}},
        {192, {&typeid(OpenEndedRange<3, int>)}},
        {256, {&typeid(OpenEndedRange<4, int>)}},
    };
    for (auto const& [bits, types] : known) {
        for (std::type_info const* const type : types) {
            EXPECT_TRUE(TypeRegister::isTypeRegisted(*type)) << type->name();
            EXPECT_EQ(TypeRegister::sizeofTypeInBits(*type), bits) << type->name();
        }
    }
    for (std::type_info const* const type : {&typeid(unsigned long), &typeid(signed char)}) {
        EXPECT_FALSE(TypeRegister::isTypeRegisted(*type)) << type->name();
    }
    EXPECT_THAT(
        [] { TypeRegister::sizeofTypeInBits(typeid(signed char)); },
        ThrowsMessage<std::runtime_error>("[Adt::TypeRegister] Unknown type: signed char"));
}

TEST(TypeRegister, TakesACallersTypeOnce) {
    class Newcomer {};
    struct Row {
        char const* name;
        std::type_info const& type;
        int bits;
        char const* message;
    };
    Row const rows[] = {
        {"ZeroBits", typeid(Newcomer), 0, "bitsize must be greater than zero"},
        {"SizeBeforeKnownType", typeid(float), INT_MIN, "bitsize must be greater than zero"},
        {"SizeBeforeVoid", typeid(void), 0, "bitsize must be greater than zero"},
        {"Void", typeid(void), 8, "vt is void"},
        {"AnotherSize", typeid(float), 64, "type is already registered with a different bitsize."},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(
            [&] { TypeRegister::registerPrimitiveType(row.type, row.bits); },
            ThrowsMessage<std::invalid_argument>(std::string("[Adt::TypeRegister] ") + row.message))
            << row.name;
    }
    EXPECT_FALSE(TypeRegister::isTypeRegisted(typeid(void)));
    EXPECT_FALSE(TypeRegister::isTypeRegisted(typeid(Newcomer))) << "a refused type must not leave an entry behind";
    TypeRegister::registerPrimitiveType(typeid(Newcomer), 24);
    TypeRegister::registerPrimitiveType(typeid(Newcomer), 24);
    EXPECT_EQ(TypeRegister::sizeofTypeInBits(typeid(Newcomer)), 24);
    EXPECT_EQ(TypeRegister::sizeofTypeInBits(typeid(float)), 32);
}

TEST(SampleTypeName, LeadsBackToItsType) {
    for (char const* const name :
         {"bit", "int8", "uint8", "int16", "uint16", "int32", "uint32", "int64", "float32", "float64"}) {
        auto const* const type = sampleTypeNamed(name);
        ASSERT_NE(type, nullptr) << name;
        EXPECT_EQ(sampleTypeName(*type), name);
    }
    EXPECT_EQ(sampleTypeNamed("float"), nullptr);
    EXPECT_EQ(sampleTypeName(typeid(void)), "");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
