#include "dravik/adt/converters/value_converter_factory.h"

#include "dravik/adt/converters/int1.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using Exceptions::NotImplementedException;
using testing::ThrowsMessage;
using Factory = ValueConverterFactory;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

std::type_info const* const kTypes[] = {&typeid(unsigned char), &typeid(char), &typeid(unsigned short),
                                        &typeid(short),         &typeid(int),  &typeid(float)};
constexpr char const* kNames[] = {"unsigned char", "char", "unsigned short", "short", "int", "float"};

std::string missing(char const* kind, int in, int out) {
    return std::string("Not implemented: ValueConverterFactory: Missing ") + kind + " conversion from '" + kNames[in] +
           "' to '" + kNames[out] + "'.";
}

// Rows: input type, columns: output type. '=': null, '-': missing, else there is one.
void expectSelection(char const* const (&table)[6], char const* kind, ScaleOffset const* transform) {
    auto const get = [&](int in, int out) {
        return transform == nullptr ? Factory::getTypeConverter(*kTypes[in], *kTypes[out])
                                    : Factory::getTypeConverter(*kTypes[in], *kTypes[out], *transform, true);
    };
    for (int in = 0; in < 6; ++in) {
        for (int out = 0; out < 6; ++out) {
            SCOPED_TRACE(missing(kind, in, out));
            switch (table[in][out]) {
            case '=':
                EXPECT_EQ(get(in, out), nullptr);
                break;
            case '-':
                EXPECT_THAT([&] { get(in, out); }, ThrowsMessage<NotImplementedException>(missing(kind, in, out)));
                break;
            default:
                EXPECT_EQ(get(in, out)->getInputType(), *kTypes[in]);
                EXPECT_EQ(get(in, out)->getOutputType(), *kTypes[out]);
                EXPECT_NE(get(in, out), get(in, out)) << "a new one on every call";
            }
        }
    }
}

TEST(ValueConverterFactory, KnowsThesePairs) {
    expectSelection({"=B-PPP", "B=-PPP", "BB=BPP", "BBB=PP", "BBBB=P", "BBBB-="}, "basic", nullptr);
    ScaleOffset const doubled(2, 0);
    expectSelection({"DDDDDF", "DDDDDF", "DDDDDF", "DDDDDF", "DDDD-F", "DDDD-F"}, "scaled", &doubled);
}

TEST(ValueConverterFactory, MissesPairsWithAnotherType) {
    EXPECT_EQ(Factory::getTypeConverter(typeid(double), typeid(double)), nullptr) << "equal types need no conversion";
    EXPECT_THAT(
        [] { Factory::getTypeConverter(typeid(float), typeid(double)); },
        ThrowsMessage<NotImplementedException>(
            "Not implemented: ValueConverterFactory: Missing basic conversion from 'float' to 'double'."));
    EXPECT_THAT(
        [] { Factory::getTypeConverter(typeid(double), typeid(double), ScaleOffset(2, 0), true); },
        ThrowsMessage<NotImplementedException>(
            "Not implemented: ValueConverterFactory: Missing scaled conversion from 'double' to 'double'."));
}

TEST(ValueConverterFactory, LeavesOutATransformNearTheIdentity) {
    for (ScaleOffset const& identity : {ScaleOffset(), ScaleOffset(1.00000001, 1e-9)}) {
        auto const get = [&](std::type_info const& in, std::type_info const& out, bool copyIfSame) {
            return Factory::getTypeConverter(in, out, identity, copyIfSame);
        };
        EXPECT_EQ(get(typeid(float), typeid(float), false), nullptr);
        EXPECT_EQ(get(typeid(float), typeid(float), true), Factory::getCopyConverter(32));
        EXPECT_EQ(get(typeid(Int1), typeid(Int1), true), Factory::getCopyConverter(1));
        // With the holes of the conversion without scaling, where the scaled one would have had a converter.
        EXPECT_THAT(
            [&] { get(typeid(unsigned char), typeid(unsigned short), true); },
            ThrowsMessage<NotImplementedException>(missing("basic", 0, 2)));
        EXPECT_THAT(
            [&] { get(typeid(long), typeid(long), true); },
            ThrowsMessage<std::runtime_error>("[Adt::TypeRegister] Unknown type: long"));
    }
}

TEST(ValueConverterFactory, CopiesBySizeAlone) {
    struct Row {
        int bits;
        std::type_info const& type;
    };
    for (Row const& row :
         {Row{1, typeid(Int1)}, Row{8, typeid(char)}, Row{16, typeid(short)}, Row{32, typeid(float)},
          Row{64, typeid(double)}}) {
        EXPECT_EQ(Factory::getCopyConverter(row.bits)->getInputType(), row.type) << row.bits;
        EXPECT_EQ(Factory::getCopyConverter(row.bits)->getOutputType(), row.type) << row.bits;
        EXPECT_EQ(&Factory::getCopyConverterRef(row.bits), Factory::getCopyConverter(row.bits).get()) << row.bits;
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

// One value through a converter of the factory, alone and as a run.
template <class D, class S>
void expectConversion(char const* name, ScaleOffset const& transform, S in, D expected) {
    auto const converter = Factory::getTypeConverter(typeid(S), typeid(D), transform, false);
    D one{};
    converter->convert(&in, &one);
    EXPECT_EQ(one, expected) << name;
    std::vector<S> const run(70, in);
    std::vector<D> converted(run.size());
    converter->convertContiguous(run.data(), 0, converted.data(), 0, static_cast<int>(run.size()));
    EXPECT_THAT(converted, testing::Each(expected)) << name;
}

TEST(NumberConversions, RoundToNearestEvenAndSaturate) {
    struct Row {
        char const* name;
        float in;
        unsigned char toUnsigned;
        signed char toSigned;
    };
    constexpr Row kRows[] = {
        {"TieGoesDownToEven", 2.5f, 2, 2},
        {"TieGoesUpToEven", 3.5f, 4, 4},
        {"NegativeTieGoesToEven", -2.5f, 0, -2},
        {"SmallNegative", -0.4f, 0, 0},
        {"ClampsBelowZero", -7.0f, 0, -7},
        {"ClampsAbove", 300.0f, 255, 127},
        {"ClampsAboveSigned", 200.0f, 200, 127},
        {"ClampsBelowSigned", -200.0f, 0, -128},
        {"LargestBelow2To31", 2147483520.0f, 255, 127},
        {"At2To31CountsAsLowest", 2147483648.0f, 0, -128},
        {"FarBeyondInt", 3e9f, 0, -128},
        {"NotANumber", kNaN, 0, -128},
        {"Infinity", kInfinity, 0, -128},
        {"MinusInfinity", -kInfinity, 0, -128},
    };
    for (Row const& row : kRows) {
        expectConversion<unsigned char>(row.name, ScaleOffset(), row.in, row.toUnsigned);
        expectConversion<char>(row.name, ScaleOffset(), row.in, static_cast<char>(row.toSigned));
    }
    expectConversion<unsigned short>("UnsignedTakesNoSign", ScaleOffset(), short{-5}, static_cast<unsigned short>(0));
    expectConversion<short>("BeyondShort", ScaleOffset(), static_cast<unsigned short>(40000), short{32767});
    expectConversion<short>("SignedChar", ScaleOffset(), static_cast<char>(-1), short{-1});
    expectConversion<float>("IntegerTieToEven", ScaleOffset(), 16777217, 16777216.0f);
}

TEST(NumberConversions, ScaleInDoubleAndRoundToFloatFirst) {
    using U8 = unsigned char;
    expectConversion<U8>("Plain", {2, 1}, U8{100}, U8{201});
    expectConversion<U8>("Saturates", {2, 1}, U8{200}, U8{255});
    expectConversion<U8>("TieDown", {0.5, 0}, U8{5}, U8{2});
    expectConversion<U8>("TieUp", {0.5, 0}, U8{7}, U8{4});
    expectConversion<float>("SumInDouble", {0.1, -7}, U8{70}, 1.04308128e-07f);
    // 2.5 + 2^-24 is closer to 3 than to 2, but it is a float first, and that is 2.5.
    expectConversion<short>("RoundsToFloatBeforeToInteger", {0x1p-24, 2.5}, short{1}, short{2});
    expectConversion<int>("BeyondIntIsLowest", {0x1p30, 0}, short{2}, INT_MIN);
    expectConversion<int>("WithinInt", {0x1p30, 0}, short{-2}, INT_MIN);
    expectConversion<U8>("BeyondIntIsZero", {0x1p30, 0}, short{2}, U8{0});
    expectConversion<float>("InfinityPasses", {2, 1}, -kInfinity, -kInfinity);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters
