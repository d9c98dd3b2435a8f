// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/value_converter_factory.h"

#include "dravik/adt/converters/byte_swap_converter.h"
#include "dravik/adt/converters/int1.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using Exceptions::NotImplementedException;
using testing::ThrowsMessage;
using Factory = ValueConverterFactory;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

std::type_info const* const kTypes[] = {&typeid(unsigned char), &typeid(char),         &typeid(unsigned short),
                                        &typeid(short),         &typeid(int),          &typeid(float),
                                        &typeid(double),        &typeid(unsigned int), &typeid(std::int64_t)};
constexpr char const* kNames[] = {"unsigned char", "char",   "unsigned short", "short", "int",
                                  "float",         "double", "unsigned int",   "long"};
constexpr int kTypeCount = 9;

std::string missing(char const* kind, int in, int out) {
    return std::string("Not implemented: ValueConverterFactory: Missing ") + kind + " conversion from '" + kNames[in] +
           "' to '" + kNames[out] + "'.";
}

using Get = IValueConverter::ConstPtr (*)(int in, int out);

// Rows: input type, columns: output type. '=': null, 'C': the copy converter, '-': missing, else a new one.
void expectSelection(char const* const (&table)[kTypeCount], char const* kind, Get get) {
    for (int in = 0; in < kTypeCount; ++in) {
        for (int out = 0; out < kTypeCount; ++out) {
            SCOPED_TRACE(missing(kind, in, out));
            if (table[in][out] == '-') {
                EXPECT_THAT([&] { get(in, out); }, ThrowsMessage<NotImplementedException>(missing(kind, in, out)));
            } else if (table[in][out] == '=') {
                EXPECT_EQ(get(in, out), nullptr);
            } else if (table[in][out] == 'C') {
                EXPECT_EQ(get(in, out), Factory::getCopyConverter(TypeRegister::sizeofTypeInBits(*kTypes[out])));
            } else {
                EXPECT_EQ(get(in, out)->getInputType(), *kTypes[in]);
                EXPECT_EQ(get(in, out)->getOutputType(), *kTypes[out]);
                EXPECT_NE(get(in, out), get(in, out));
            }
        }
    }
}

TEST(ValueConverterFactory, KnowsThesePairs) {
    expectSelection(
        {"=B-PPPS--", "B=-PPPS--", "BB=BPPS--", "BBB=PPS--", "BBBB=PS--", "BBBB-=SSS", "SSSSSS=SS", "-----SS=-",
         "-----SS-="},
        "basic", [](int in, int out) { return Factory::getTypeConverter(*kTypes[in], *kTypes[out]); });
    expectSelection(
        {"DDDDDF---", "DDDDDF---", "DDDDDF---", "DDDDDF---", "DDDD-F---", "DDDD-F---", "---------", "---------",
         "---------"},
        "scaled",
        [](int in, int out) { return Factory::getTypeConverter(*kTypes[in], *kTypes[out], ScaleOffset(2, 0), true); });
    static constexpr ScaleOffset kNearby(1.00000001, 1e-9);
    expectSelection(
        {"=B-PPPS--", "B=-PPPS--", "BB=BPPS--", "BBB=PPS--", "BBBB=PS--", "BBBB-=SSS", "SSSSSS=SS", "-----SS=-",
         "-----SS-="},
        "basic", [](int in, int out) { return Factory::getTypeConverter(*kTypes[in], *kTypes[out], kNearby, false); });
    expectSelection(
        {"CB-PPPS--", "BC-PPPS--", "BBCBPPS--", "BBBCPPS--", "BBBBCPS--", "BBBB-CSSS", "SSSSSSCSS", "-----SSC-",
         "-----SS-C"},
        "basic", [](int in, int out) { return Factory::getTypeConverter(*kTypes[in], *kTypes[out], kNearby, true); });
    EXPECT_EQ(Factory::getTypeConverter(typeid(Int1), typeid(Int1), kNearby, true), Factory::getCopyConverter(1));
    EXPECT_THAT(
        [] { Factory::getTypeConverter(typeid(void*), typeid(void*), kNearby, true); },
        ThrowsMessage<std::runtime_error>("[Adt::TypeRegister] Unknown type: void*"));
}

TEST(ValueConverterFactory, CopiesBySizeAlone) {
    std::pair<int, std::type_info const*> const sizes[] = {
        {1, &typeid(Int1)}, {8, &typeid(char)}, {16, &typeid(short)}, {32, &typeid(float)}, {64, &typeid(double)}};
    for (auto const& [bits, type] : sizes) {
        auto const copy = Factory::getCopyConverter(bits);
        EXPECT_EQ(copy->getInputType(), *type) << bits;
        EXPECT_EQ(copy->getOutputType(), *type) << bits;
        EXPECT_EQ(&Factory::getCopyConverterRef(bits), copy.get()) << bits;
    }
    for (int const bits : {0, 2, 24, 63}) {
        EXPECT_THAT(
            [&] { Factory::getCopyConverter(bits); },
            ThrowsMessage<std::invalid_argument>(
                "[ValueConverterFactory::getCopyConverter] Unsupported value type between 0 and 64."));
        EXPECT_THAT(
            [&] { Factory::getCopyConverterRef(bits); },
            ThrowsMessage<std::invalid_argument>(
                "[ValueConverterFactory::getCopyConverterRef] Unsupported value type between 0 and 64."));
    }
    for (int const bits : {65, -1, INT_MIN}) {
        EXPECT_THAT(
            [&] { Factory::getCopyConverter(bits); },
            ThrowsMessage<NotImplementedException>(
                "Not implemented: CopyConverter not yet implemented generically for all value type sizes."));
        EXPECT_THAT(
            [&] { Factory::getCopyConverterRef(bits); },
            ThrowsMessage<std::invalid_argument>(
                "[ValueConverterFactory] getCopyConverterRef only supported for value types sizes up to 64 bits."));
    }
}

template <class D, class S>
D converted(S in, ScaleOffset const& transform = {}) {
    D out{};
    Factory::getTypeConverter(typeid(S), typeid(D), transform, /*copyIfSame=*/false)->convert(&in, &out);
    return out;
}

TEST(NumberConversions, ScaleRoundToNearestEvenAndSaturate) {
    struct Row {
        char const* name;
        float in;
        unsigned char toUnsigned;
        signed char toSigned;
    };
    constexpr Row kRows[] = {
        {"TieGoesDownToEven", 2.5f, 2, 2},    {"TieGoesUpToEven", 3.5f, 4, 4},   {"SmallNegative", -0.4f, 0, 0},
        {"Below", -200.0f, 0, -128},          {"AboveSigned", 200.0f, 200, 127}, {"Above", 300.0f, 255, 127},
        {"BeyondIntIsLowest", 3e9f, 0, -128}, {"NotANumber", kNaN, 0, -128},     {"Infinity", kInfinity, 0, -128}};
    for (Row const& row : kRows) {
        EXPECT_EQ(converted<unsigned char>(row.in), row.toUnsigned) << row.name;
        EXPECT_EQ(converted<char>(row.in), static_cast<char>(row.toSigned)) << row.name;
    }
    EXPECT_EQ(converted<unsigned short>(short{-5}), 0);
    EXPECT_EQ(converted<short>(static_cast<unsigned short>(40000)), 32767);
    EXPECT_EQ(converted<short>(static_cast<char>(-1)), -1);
    EXPECT_EQ(converted<float>(16777217), 16777216.0f);
    using Byte = unsigned char;
    EXPECT_EQ(converted<Byte>(Byte{100}, {2, 1}), 201);
    EXPECT_EQ(converted<Byte>(Byte{200}, {2, 1}), 255);
    EXPECT_EQ(converted<Byte>(Byte{5}, {0.5, 0}), 2);
    EXPECT_EQ(converted<Byte>(Byte{7}, {0.5, 0}), 4);
    EXPECT_EQ(converted<float>(Byte{70}, {0.1, -7}), 1.04308128e-07f) << "narrowed first, then summed in double";
    EXPECT_EQ(converted<short>(short{1}, {0x1p-24, 2.5}), 2) << "rounded to float before to an integer";
    EXPECT_EQ(converted<int>(short{2}, {0x1p30, 0}), INT_MIN);
    EXPECT_EQ(converted<float>(-kInfinity, {2, 1}), -kInfinity);
    EXPECT_EQ(converted<short>(2.5), 2);
    EXPECT_EQ(converted<short>(1e300), 32767) << "beyond 32 bits as well";
    EXPECT_EQ(converted<char>(std::numeric_limits<double>::quiet_NaN()), 0);
    EXPECT_EQ(converted<unsigned int>(-1.0f), 0u);
    EXPECT_EQ(converted<std::int64_t>(kInfinity), INT64_MAX);
    EXPECT_EQ(converted<float>(1e300), kInfinity);
}

TEST(ByteSwapConverter, SwapsAloneAndBesideAnotherConversion) {
    auto const toFloat = Factory::getTypeConverter(typeid(short), typeid(float));
    auto const toShort = Factory::getTypeConverter(typeid(float), typeid(short));
    unsigned char const stored[] = {0x01, 0x02, 0xff, 0xfe};
    short swapped[2];
    ByteSwapConverter(typeid(short)).convertContiguous(stored, 0, swapped, 0, 2);
    EXPECT_THAT(swapped, testing::ElementsAre(0x0102, -2));
    float read[2];
    ByteSwapConverter::Before(toFloat)->convertContiguous(stored, 0, read, 0, 2);
    EXPECT_THAT(read, testing::ElementsAre(258.0f, -2.0f));
    unsigned char written[4];
    ByteSwapConverter::After(toShort)->convertStrided(read, 0, 1, written, 0, 1, 2);
    EXPECT_THAT(written, testing::ElementsAreArray(stored));
    std::uint64_t wide = 0;
    ByteSwapConverter(typeid(double)).convert("\1\2\3\4\5\6\7\10", &wide);
    EXPECT_EQ(wide, 0x0102030405060708u);
    EXPECT_THROW(ByteSwapConverter(typeid(char)), std::invalid_argument);
    EXPECT_THROW(ByteSwapConverter(typeid(std::string)), std::runtime_error);
    EXPECT_THROW(ByteSwapConverter::Before(nullptr), std::invalid_argument);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters
