// Every instruction set that this machine can run against the reference, and the reference against the C library.

#include "dravik/adt/converters/detail/run_kernels.h"

#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters::Detail {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// ---- The rules once more, through the C library.

template <class D, class T>
D narrowed(T value) {
    if constexpr (std::is_same_v<D, float>) {
        return static_cast<float>(value);
    } else {
        using Limits = std::numeric_limits<std::conditional_t<std::is_same_v<D, char>, signed char, D>>;
        double whole = std::nearbyint(static_cast<double>(value));
        if (!(whole >= -0x1p31 && whole < 0x1p31)) {
            whole = -0x1p31;
        }
        return static_cast<D>(static_cast<int>(std::fmin(std::fmax(whole, Limits::min()), Limits::max())));
    }
}

template <class S>
double numberOf(S sample) {
    return std::is_same_v<S, char> ? static_cast<double>(static_cast<signed char>(sample))
                                   : static_cast<double>(sample);
}

template <class D, class S>
D modelBasic(S sample) {
    return narrowed<D>(std::is_same_v<S, float> ? static_cast<float>(sample) : numberOf(sample));
}

template <class D, class S>
D modelScaled(S sample, Linear const& linear) {
    double const product = static_cast<double>(linear.scale) * numberOf(sample);
    return narrowed<D>(static_cast<float>(product + static_cast<double>(linear.offset)));
}

// ---- Inputs.

template <class S>
std::vector<S> allValues() {
    std::vector<S> values(std::size_t{1} << (8 * sizeof(S)));
    std::iota(values.begin(), values.end(), std::numeric_limits<S>::min());
    return values;
}

// Every number of bits, with the ends of the narrower ranges and what lies beside them.
std::vector<int> stratifiedInts(Testing::Random& random) {
    std::vector<int> values;
    for (int bits = 0; bits < 32; ++bits) {
        std::uint32_t const power = 1u << bits;
        for (std::uint32_t const near : {power - 1, power, power + 1}) {
            values.push_back(static_cast<int>(near));
            values.push_back(static_cast<int>(0u - near));
        }
        for (int k = 0; k < 50; ++k) {
            values.push_back(random.between(0, static_cast<int>((power - 1) | power >> 1)) * random.oneOf({-1, 1}));
        }
    }
    return values;
}

// Every exponent of both signs, the ties between small integers, the ends of the integer ranges, NaNs with payloads.
std::vector<float> stratifiedFloats(Testing::Random& random) {
    std::vector<float> values;
    for (std::uint32_t head = 0; head < 512; ++head) {
        std::vector<std::uint32_t> tails{0, 1, 0x3fffff, 0x400000, 0x400001, 0x7fffff};
        for (int k = 0; k < 24; ++k) {
            tails.push_back(random.between(0u, 0x7fffffu));
        }
        for (std::uint32_t const tail : tails) {
            values.push_back(std::bit_cast<float>(head << 23 | tail));
        }
    }
    auto const addWithNeighbours = [&](float value) {
        values.push_back(value);
        values.push_back(std::nextafter(value, kInfinity));
        values.push_back(std::nextafter(value, -kInfinity));
    };
    for (int k = -300; k <= 300; ++k) {
        addWithNeighbours(static_cast<float>(k) + 0.5f);
    }
    for (float const end : {32767.f, 32768.f, 65535.f, 65536.f, 0x1p22f, 0x1p23f, 0x1p24f, 0x1p31f}) {
        for (float const beside : {-1.0f, -0.5f, 0.0f, 0.5f, 1.0f}) {
            addWithNeighbours(end + beside);
            addWithNeighbours(-end + beside);
        }
    }
    return values;
}

// What a transform takes next to ties: those of the integers, at the ends of the ranges and within, and those of floats
// beside them, which only products that are exact reach.
void addTiesOf(Linear const& linear, Testing::Random& random, std::vector<float>& values) {
    for (int k = 0; k < 1500; ++k) {
        double const tie = random.between(-200, 300) * random.oneOf({1, 1, 219}) + random.oneOf({0.5, 0.5, 0.0});
        auto const tieOfFloats = tie + std::ldexp(random.oneOf({1.0, -1.0}), std::ilogb(std::abs(tie) + 0.25) - 24);
        auto value = static_cast<float>((tie - static_cast<double>(linear.offset)) / static_cast<double>(linear.scale));
        values.push_back(static_cast<float>(tieOfFloats / static_cast<double>(linear.scale)));
        for (int ulps = random.between(0, 2); ulps > 0; --ulps) {
            value = std::nextafter(value, random.chance(50) ? kInfinity : -kInfinity);
        }
        values.push_back(value);
    }
}

// Where product and offset cancel, and what is lost in rounding the product shows.
void addTiesOf(Linear const& linear, Testing::Random&, std::vector<int>& values) {
    double const root = -static_cast<double>(linear.offset) / static_cast<double>(linear.scale);
    if (std::abs(root) < 0x1p31 - 64) {
        for (int beside = -64; beside <= 64; ++beside) {
            values.push_back(static_cast<int>(root) + beside);
        }
    }
}

std::vector<Linear> transforms(Testing::Random& random) {
    std::vector<Linear> all{
        {2, 1},
        {0.5f, 0},  // ties
        {-0.5f, 0.5f},
        {0.1f, -7},  // sums that single precision without a fused step gets wrong
        {1.0f / 3, 127.5f},
        {0x1p-24f, 2.5f},  // just above a tie
        {3, 0x1p-70f},     // ties of floats that only the offset decides, and a double does not hold it
        {-7, -0x1p-70f},
        {80581 * 0x1p-54f, 1},             // for x = 13325 by 2^-54 above a tie of floats, too little for a double
        {80581 * 0x1p-52f, 2 - 0x1p-23f},  // the same where the sum has a bit more than either
        {673, 0x1p-30f},                   // for x = 24929
        {0x1.6cb93ap-1f, -1.5e9f},         // products of int that a double has to round, then little is left of them
        {1e-3f, 1e6f},
        {3e7f, -12.25f},    // beyond 32 bits
        {1e38f, 1e38f},     // beyond float
        {-1e-40f, 1e-45f},  // denormal
        {0, 3.5f},
        {-0.0f, -0.0f},
        {-1, 1023.75f},
        {1, 1.5e5f},
        {kInfinity, 0},
        {1, -kInfinity},
        {kNaN, 1},
        {1, kNaN},
    };
    for (int k = 0; k < 10; ++k) {
        auto const draw = [&](int exponent) {
            auto const mantissa = static_cast<float>(random.between(1 << 23, 1 << 24)) * random.oneOf({1.0f, -1.0f});
            return std::ldexp(mantissa, exponent - 23);
        };
        all.push_back({draw(random.between(-20, 8)), draw(random.between(-30, 25))});
    }
    return all;
}

// ---- Comparison.

template <class D>
bool sameBits(D left, D right) {
    return std::memcmp(&left, &right, sizeof(D)) == 0;
}

template <class D>
bool sameValue(D left, D right) {
    if constexpr (std::is_same_v<D, float>) {
        return sameBits(left, right) || (std::isnan(left) && std::isnan(right));
    } else {
        return left == right;
    }
}

template <class S, class D>
std::vector<D> converted(RunFunction run, std::vector<S> const& in, Linear const& linear) {
    std::vector<D> out(in.size());
    run(in.data(), out.data(), static_cast<std::ptrdiff_t>(in.size()), linear);
    return out;
}

template <class S, class D>
void expectSameBits(
    char const* set, RunFunction run, std::vector<S> const& in, std::vector<D> const& expected, Linear const& linear) {
    std::vector<D> const actual = converted<S, D>(run, in, linear);
    for (std::size_t k = 0; k < in.size(); ++k) {
        ASSERT_TRUE(sameBits(actual[k], expected[k]))
            << set << ": " << +in[k] << " became " << +actual[k] << " instead of " << +expected[k];
    }
}

template <class S, class D>
void checkBasic(std::vector<S> const& in) {
    SampleType const from = sampleTypeOf<S>();
    SampleType const to = sampleTypeOf<D>();
    if (!widens(from, to) && !narrows(from, to)) {
        return;
    }
    std::vector<D> const expected = converted<S, D>(referenceSet().basic(from, to), in, {});
    for (std::size_t k = 0; k < in.size(); ++k) {
        ASSERT_EQ(expected[k], (modelBasic<D>(in[k]))) << +in[k];
    }
    for (InstructionSet const* const set : instructionSets()) {
        expectSameBits(set->name, set->basic(from, to), in, expected, {});
    }
}

template <class S, class D>
void checkScaled(std::vector<S> const& in, Linear const& linear) {
    SampleType const from = sampleTypeOf<S>();
    SampleType const to = sampleTypeOf<D>();
    if (to != SampleType::Float && !scalesToInteger(from, to)) {
        return;
    }
    SCOPED_TRACE(std::to_string(linear.scale) + " * x + " + std::to_string(linear.offset));
    std::vector<D> const expected = converted<S, D>(referenceSet().scaled(from, to), in, linear);
    for (std::size_t k = 0; k < in.size(); ++k) {
        ASSERT_TRUE(sameValue(expected[k], modelScaled<D>(in[k], linear))) << +in[k] << ", not " << +expected[k];
    }
    for (InstructionSet const* const set : instructionSets()) {
        expectSameBits(set->name, scaledRun(*set, from, to, linear), in, expected, linear);
        if (std::isfinite(linear.scale) && std::isfinite(linear.offset)) {
            expectSameBits(set->name, set->scaled(from, to), in, expected, linear);
        }
    }
}

template <class S>
void checkAllOutputs(std::vector<S> const& in, Linear const* linear) {
    auto const check = [&]<class D>(D) {
        SCOPED_TRACE(typeid(D).name());
        if (linear != nullptr) {
            checkScaled<S, D>(in, *linear);
        } else {
            checkBasic<S, D>(in);
        }
    };
    check(static_cast<unsigned char>(0));
    check(static_cast<char>(0));
    check(static_cast<unsigned short>(0));
    check(static_cast<short>(0));
    check(0);
    check(0.0f);
}

template <class S>
class RunKernels : public testing::Test {
  protected:
    static std::vector<S> inputs(Testing::Random& random) {
        if constexpr (std::is_same_v<S, float>) {
            return stratifiedFloats(random);
        } else if constexpr (std::is_same_v<S, int>) {
            return stratifiedInts(random);
        } else {
            return allValues<S>();
        }
    }
};

using SampleTypes = testing::Types<unsigned char, char, unsigned short, short, int, float>;
TYPED_TEST_SUITE(RunKernels, SampleTypes);

TYPED_TEST(RunKernels, ConvertEveryValueLikeTheReference) {
    Testing::Random random;
    checkAllOutputs<TypeParam>(this->inputs(random), nullptr);
}

TYPED_TEST(RunKernels, ScaleEveryValueLikeTheReference) {
    Testing::Random random;
    std::vector<TypeParam> const all = this->inputs(random);
    for (Linear const& linear : transforms(random)) {
        std::vector<TypeParam> in = all;
        if constexpr (sizeof(TypeParam) == 4) {
            addTiesOf(linear, random, in);
        }
        checkAllOutputs<TypeParam>(in, &linear);
        if (this->HasFailure()) {
            return;
        }
    }
}

// The values themselves do not matter here, so one bit pattern serves all types.
TEST(RunKernelShapes, EveryLengthAtOddAddressesTouchesNothingElse) {
    Testing::Random random;
    constexpr int kLargest = 257;
    std::vector<unsigned char> noise(4 * kLargest + 64);
    for (unsigned char& byte : noise) {
        byte = random.between<unsigned char>(0, 255);
    }
    constexpr int kBytes[] = {1, 1, 2, 2, 4, 4};
    Linear const linear{0.37f, -3};
    auto const check = [&](RunFunction run, RunFunction reference, int inBytes) {
        for (int count = 1; run != nullptr && count <= kLargest; ++count) {
            // The input ends where its allocation does.
            std::vector<unsigned char> const in(noise.begin(), noise.begin() + 1 + count * inBytes);
            std::vector<unsigned char> actual = noise;
            std::vector<unsigned char> expected = noise;
            run(in.data() + 1, actual.data() + 3, count, linear);
            reference(in.data() + 1, expected.data() + 3, count, linear);
            ASSERT_EQ(actual, expected) << count << " values";
        }
    };
    for (InstructionSet const* const set : instructionSets()) {
        for (int in = 0; in < kSampleTypeCount; ++in) {
            for (int out = 0; out < kSampleTypeCount; ++out) {
                auto const from = static_cast<SampleType>(in);
                auto const to = static_cast<SampleType>(out);
                SCOPED_TRACE(std::string(set->name) + ", " + std::to_string(in) + " to " + std::to_string(out));
                check(set->basic(from, to), referenceSet().basic(from, to), kBytes[in]);
                check(set->scaled(from, to), referenceSet().scaled(from, to), kBytes[in]);
            }
        }
    }
}

TEST(RunKernelShapes, WriteBehindTheirOwnReading) {
    Testing::Random random;
    for (InstructionSet const* const set : instructionSets()) {
        for (int const lead : {0, 2, 4, 8, 62, 64, 66, 200}) {
            std::vector<short> values(1000);
            for (short& value : values) {
                value = random.between<short>(-300, 300);
            }
            std::vector<short> expected = values;
            Linear const linear{0.5f, 1};
            auto const run = [&](InstructionSet const& by, std::vector<short>& buffer) {
                auto* const bytes = reinterpret_cast<unsigned char*>(buffer.data());
                scaledRun(by, SampleType::Short, SampleType::Short, linear)(bytes + lead, bytes, 800, linear);
                by.basic(SampleType::Short, SampleType::UnsignedChar)(bytes + lead, bytes, 700, linear);
            };
            run(*set, values);
            run(referenceSet(), expected);
            ASSERT_EQ(values, expected) << set->name << ", " << lead << " bytes behind";
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters::Detail
