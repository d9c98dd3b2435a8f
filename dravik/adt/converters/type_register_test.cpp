#include "dravik/adt/converters/type_register.h"

#include "dravik/adt/converters/int1.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

namespace Quorvel::Dravik::Adt {
namespace {

using testing::ThrowsMessage;

TEST(TypeRegister, KnowsTheStandardTypes) {
    struct Row {
        std::type_info const& type;
        int bits;
    };
    Row const rows[] = {
        {typeid(bool), 8},
        {typeid(char), 8},
        {typeid(unsigned char), 8},
        {typeid(short), 16},
        {typeid(unsigned short), 16},
        {typeid(int), 32},
        {typeid(unsigned), 32},
        {typeid(long long), 64},
        {typeid(unsigned long long), 64},
        {typeid(float), 32},
        {typeid(double), 64},
        {typeid(ClosedRange<1, int>), 64},
        {typeid(ClosedRange<1, float>), 64},
        {typeid(ClosedRange<1, double>), 128},
        {typeid(FixedVector<2, int>), 64},
        {typeid(FixedVector<3, int>), 96},
        {typeid(FixedVector<4, int>), 128},
        {typeid(OpenEndedRange<2, int>), 128},
        {typeid(OpenEndedRange<3, int>), 192},
        {typeid(OpenEndedRange<4, int>), 256},
        {typeid(Int1), 1},
    };
    for (Row const& row : rows) {
        EXPECT_TRUE(TypeRegister::isTypeRegisted(row.type)) << row.type.name();
        EXPECT_EQ(TypeRegister::sizeofTypeInBits(row.type), row.bits) << row.type.name();
    }
}

TEST(TypeRegister, DoesNotKnowTypesOfPlatformDependentWidth) {
    for (std::type_info const* const type : {&typeid(long), &typeid(unsigned long), &typeid(signed char)}) {
        EXPECT_FALSE(TypeRegister::isTypeRegisted(*type)) << type->name();
    }
    EXPECT_THAT(
        [] { TypeRegister::sizeofTypeInBits(typeid(long)); },
        ThrowsMessage<std::runtime_error>("[Adt::TypeRegister] Unknown type: long"));
}

TEST(TypeRegister, TakesATypeOfTheCallerOnceAndForAll) {
    struct Sample24 {};
    TypeRegister::registerPrimitiveType(typeid(Sample24), 24);
    TypeRegister::registerPrimitiveType(typeid(Sample24), 24);
    EXPECT_EQ(TypeRegister::sizeofTypeInBits(typeid(Sample24)), 24);
}

TEST(TypeRegister, RefusesInThisOrderAndStaysAsItWas) {
    constexpr char const* kSize = "[Adt::TypeRegister] bitsize must be greater than zero";
    constexpr char const* kVoid = "[Adt::TypeRegister] vt is void";
    constexpr char const* kOther = "[Adt::TypeRegister] type is already registered with a different bitsize.";
    class Newcomer {};
    struct Row {
        char const* name;
        std::type_info const& type;
        int bits;
        char const* message;
    };
    Row const rows[] = {
        {"ZeroBits", typeid(Newcomer), 0, kSize},   {"SizeBeforeKnownType", typeid(float), INT_MIN, kSize},
        {"SizeBeforeVoid", typeid(void), 0, kSize}, {"Void", typeid(void), 8, kVoid},
        {"AnotherSize", typeid(float), 64, kOther},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(
            [&] { TypeRegister::registerPrimitiveType(row.type, row.bits); },
            ThrowsMessage<std::invalid_argument>(row.message))
            << row.name;
    }
    EXPECT_EQ(TypeRegister::sizeofTypeInBits(typeid(float)), 32);
    EXPECT_FALSE(TypeRegister::isTypeRegisted(typeid(Newcomer))) << "a refused type must not leave an entry behind";
    EXPECT_FALSE(TypeRegister::isTypeRegisted(typeid(void)));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
