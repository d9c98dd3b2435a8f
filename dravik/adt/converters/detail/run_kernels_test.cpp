// SPDX-License-Identifier: Apache-2.0
// Every instruction set that this machine can run against the reference, and the reference against the C library.

#include "dravik/adt/converters/detail/run_kernels.h"

#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters::Detail {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// ---- The rules once more, through the C library.

template <class S>
double numberOf(S sample) {
    return std::is_same_v<S, char> ? static_cast<double>(static_cast<signed char>(sample))
                                   : static_cast<double>(sample);
}

// Of types that are there for storage, through numbers of 64 bits and an exponent, which hold all of them.
template <class D, class S>
D modelOfStorage(S sample) {
    auto const value = static_cast<long double>(sample);
    if constexpr (std::is_floating_point_v<D>) {
        return static_cast<D>(value);
    } else {
        using Limits = std::numeric_limits<std::conditional_t<std::is_same_v<D, char>, signed char, D>>;
        long double const whole = std::isnan(value) ? 0 : std::nearbyint(value);
        return static_cast<D>(std::clamp<long double>(whole, Limits::min(), Limits::max()));
    }
}

// Null: without scaling.
template <class D, class S>
D model(S sample, Linear const* linear) {
    if constexpr (convertsStorage(sampleTypeOf<S>(), sampleTypeOf<D>())) {
        return modelOfStorage<D>(valueOf(sample));
    }
    double value = numberOf(sample);
    if (linear != nullptr) {
        double const product = static_cast<double>(linear->scale) * value;
        value = static_cast<double>(static_cast<float>(product + static_cast<double>(linear->offset)));
    }
    if constexpr (std::is_same_v<D, float>) {
        return static_cast<float>(value);
    } else {
        using Limits = std::numeric_limits<std::conditional_t<std::is_same_v<D, char>, signed char, D>>;
        double const whole = std::nearbyint(value);
        double const known = whole >= -0x1p31 && whole < 0x1p31 ? whole : -0x1p31;
        return static_cast<D>(static_cast<int>(std::fmin(std::fmax(known, Limits::min()), Limits::max())));
    }
}

// ---- Inputs.

// All there are.
template <class S>
std::vector<S> inputs(Testing::Random&) {
    std::vector<S> values(std::size_t{1} << (8 * sizeof(S)));
    std::iota(values.begin(), values.end(), std::numeric_limits<S>::min());
    return values;
}

// Every number of bits, with the ends of the narrower ranges and what lies beside them.
template <class Unsigned>
std::vector<std::make_signed_t<Unsigned>> integers(Testing::Random& random) {
    std::vector<std::make_signed_t<Unsigned>> values;
    for (std::size_t bits = 0; bits < 8 * sizeof(Unsigned); ++bits) {
        Unsigned const power = Unsigned{1} << bits;
        for (Unsigned const near : {power - 1, power, power + 1, 1 - power, 0 - power, ~power}) {
            values.push_back(static_cast<std::make_signed_t<Unsigned>>(near));
        }
        for (int k = 0; k < 50; ++k) {
            auto const within = static_cast<std::make_signed_t<Unsigned>>((power - 1) | power >> 1);
            values.push_back(random.between<std::make_signed_t<Unsigned>>(0, within) * random.oneOf({-1, 1}));
        }
    }
    return values;
}

template <>
std::vector<int> inputs(Testing::Random& random) {
    return integers<unsigned int>(random);
}

template <>
std::vector<std::int64_t> inputs(Testing::Random& random) {
    return integers<std::uint64_t>(random);
}

template <>
std::vector<unsigned int> inputs(Testing::Random& random) {
    auto const values = inputs<int>(random);
    return {values.begin(), values.end()};
}

// Every exponent of both signs, the ties between small integers, the ends of the integer ranges, NaNs with payloads.
template <>
std::vector<float> inputs(Testing::Random& random) {
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
    for (float const end : {0.0f, 32767.f, 65535.f, 0x1p22f, 0x1p23f, 0x1p24f, 0x1p31f}) {
        float const reach = end == 0 ? 300 : 1.5f;
        for (float beside = -reach; beside <= reach; beside += 0.5f) {
            addWithNeighbours(end + beside);
            addWithNeighbours(beside - end);
        }
    }
    return values;
}

// Those, what lies beside them, and the ends of the wide integers.
template <>
std::vector<double> inputs(Testing::Random& random) {
    std::vector<double> values;
    auto const addWithNeighbours = [&](double value) {
        for (double const near : {value, std::nextafter(value, 1e300), std::nextafter(value, -1e300)}) {
            values.push_back(near);
        }
    };
    for (float const value : inputs<float>(random)) {
        addWithNeighbours(static_cast<double>(value));
    }
    for (double const end : {0x1p32, 0x1p52, 0x1p53, 0x1p63, 0x1p64, 1e300}) {
        for (double const beside : {-1.5, -1.0, -0.5, 0.0, 0.5, 1.5}) {
            addWithNeighbours(end + beside);
            addWithNeighbours(beside - end);
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

template <class S, class D>
std::vector<D> converted(RunFunction run, std::vector<S> const& in, Linear const& linear) {
    std::vector<D> out(in.size());
    run(in.data(), out.data(), static_cast<std::ptrdiff_t>(in.size()), linear);
    return out;
}

// Which of its functions a set gives for a pair; null where there is none.
using Form = RunFunction (*)(InstructionSet const& set, SampleType in, SampleType out, Linear const& linear);
constexpr Form kBasic = [](InstructionSet const& set, SampleType in, SampleType out, Linear const&) {
    return set.basic(in, out);
};
constexpr Form kScaled = [](InstructionSet const& set, SampleType in, SampleType out, Linear const&) {
    return set.scaled(in, out);
};
constexpr Form kFastest = scaledRun;

template <class S, class D>
void check(Form form, std::vector<S> const& in, Linear const& linear) {
    constexpr SampleType kIn = sampleTypeOf<S>(), kOut = sampleTypeOf<D>();
    RunFunction const reference = form(referenceSet(), kIn, kOut, linear);
    if (reference == nullptr) {
        return;
    }
    SCOPED_TRACE(testing::Message() << typeid(D).name() << " = " << linear.scale << " * x + " << linear.offset);
    auto const expected = converted<S, D>(reference, in, linear);
    for (std::size_t k = 0; k < in.size(); ++k) {
        D const right = model<D>(in[k], form == kBasic ? nullptr : &linear);
        bool const bothNaN = expected[k] != expected[k] && right != right;
        ASSERT_TRUE(expected[k] == right || bothNaN) << +in[k] << " became " << +expected[k] << ", not " << +right;
    }
    for (InstructionSet const* const set : instructionSets()) {
        RunFunction const run = form(*set, kIn, kOut, linear);
        if (run == nullptr && convertsStorage(kIn, kOut)) {
            continue;  // left to the reference
        }
        auto const actual = converted<S, D>(run, in, linear);
        for (std::size_t k = 0; k < in.size(); ++k) {
            ASSERT_EQ(std::memcmp(&actual[k], &expected[k], sizeof(D)), 0)
                << set->name << ": " << +in[k] << " became " << +actual[k] << " instead of " << +expected[k];
        }
    }
}

template <class S, class... D>
void checkAll(Form form, std::vector<S> const& in, Linear const& linear, TypeList<D...>) {
    (check<S, D>(form, in, linear), ...);
}

template <class S>
class RunKernels : public testing::Test {};
using AllTypes =
    testing::Types<unsigned char, char, unsigned short, short, int, float, unsigned int, std::int64_t, double>;
TYPED_TEST_SUITE(RunKernels, AllTypes);

TYPED_TEST(RunKernels, ConvertEveryValueLikeTheReference) {
    Testing::Random random;
    std::vector<TypeParam> const all = inputs<TypeParam>(random);
    checkAll(kBasic, all, {}, SampleTypes());
    if constexpr (!isStorageType(sampleTypeOf<TypeParam>())) {  // the others are not scaled
        for (Linear const& linear : transforms(random)) {
            std::vector<TypeParam> in = all;
            if constexpr (sizeof(TypeParam) == 4) {
                addTiesOf(linear, random, in);
            }
            checkAll(kFastest, in, linear, SampleTypes());
            if (this->HasFailure()) {
                return;
            }
        }
    }
}

// The values themselves do not matter here, so one bit pattern serves all types.
constexpr int kLargest = 257;
constexpr Linear kLinear{0.37f, -3};

// Runs of every length beside those of the reference, in memory that begins at odd addresses.
void checkPair(
    Testing::Random& random, std::vector<unsigned char> const& noise, RunFunction run, RunFunction reference,
    int inBytes, int outBytes) {
    for (int count = 1; count <= kLargest; ++count) {
        // The input ends where its allocation does.
        std::vector<unsigned char> const in(noise.begin(), noise.begin() + 1 + count * inBytes);
        std::vector<unsigned char> actual = noise;
        std::vector<unsigned char> expected = noise;
        run(in.data() + 1, actual.data() + 3, count, kLinear);
        reference(in.data() + 1, expected.data() + 3, count, kLinear);
        if (outBytes <= inBytes) {
            int const lead = random.oneOf({0, 2, 4, 8, 62, 64, 66, 200});
            run(actual.data() + lead, actual.data(), count, kLinear);
            reference(expected.data() + lead, expected.data(), count, kLinear);
        }
        ASSERT_EQ(actual, expected) << count << " values";
    }
}

TEST(RunKernelShapes, EveryLengthTouchesNothingElse) {
    Testing::Random random;
    std::vector<unsigned char> noise(8 * kLargest + 264);
    std::generate(noise.begin(), noise.end(), [&] { return random.between<unsigned char>(0, 255); });
    constexpr int kBytes[] = {1, 1, 2, 2, 4, 4, 4, 8, 8};
    for (InstructionSet const* const set : instructionSets()) {
        for (std::size_t word = 0; word < set->swap.size(); ++word) {
            SCOPED_TRACE(testing::Message() << set->name << " swaps " << (2 << word) << " bytes");
            checkPair(random, noise, set->swap[word], referenceSet().swap[word], 2 << word, 2 << word);
        }
        for (int pair = 0; pair < kSampleTypeCount * kSampleTypeCount; ++pair) {
            auto const in = static_cast<SampleType>(pair / kSampleTypeCount);
            auto const out = static_cast<SampleType>(pair % kSampleTypeCount);
            SCOPED_TRACE(testing::Message() << set->name << ", pair " << pair);
            for (Form const form : {kBasic, kScaled, kFastest}) {
                RunFunction const run = form(*set, in, out, kLinear);
                bool const mayBeLeft = set != &referenceSet() && convertsStorage(in, out) && run == nullptr;
                ASSERT_EQ(
                    run != nullptr || mayBeLeft, form == kBasic || mayBeLeft ? converts(in, out) : scales(in, out));
                if (run != nullptr) {
                    checkPair(
                        random, noise, run, form(referenceSet(), in, out, kLinear), kBytes[static_cast<int>(in)],
                        kBytes[static_cast<int>(out)]);
                }
            }
        }
    }
}

// Two rows of each length up to a few vectors, in memory that ends with the last sample that may be touched.
void checkRows(RowsFunction copy, std::int64_t stride, std::int64_t bytes) {
    for (std::int64_t count = 1; count < 300; ++count) {
        std::int64_t const reach = ((count - 1) * std::abs(stride) + 1) * bytes;
        std::vector<char> in(static_cast<std::size_t>(2 * reach)), out(static_cast<std::size_t>(2 * count * bytes));
        std::iota(in.begin(), in.end(), char{1});
        auto expected = out;
        std::int64_t const first = stride < 0 ? reach - bytes : 0;
        for (std::int64_t at = 0; at < 2 * count; ++at) {
            std::int64_t const from = at / count * reach + first + at % count * stride * bytes;
            std::memcpy(
                &expected[static_cast<std::size_t>(at * bytes)], &in[static_cast<std::size_t>(from)],
                static_cast<std::size_t>(bytes));
        }
        copy(in.data() + first, reach, out.data(), count * bytes, count, 2);
        ASSERT_EQ(out, expected) << count << " samples of " << bytes << " bytes, every " << stride;
    }
}

TEST(RowCopies, TouchTheirSamplesAlone) {
    for (InstructionSet const* const set : instructionSets()) {
        SCOPED_TRACE(set->name);
        auto const& [plain, reversed, everySecond, everyThird, transposed] = set->rows;
        for (std::size_t size = 0; size < 4; ++size) {
            for (auto const& [copy, stride] :
                 {std::pair{plain[size], 1}, {reversed[size], -1}, {everySecond[size], 2}, {everyThird[size], 3}}) {
                ASSERT_TRUE(copy != nullptr || stride == 3 || set == &referenceSet()) << "every " << stride;
                if (copy != nullptr) {
                    checkRows(copy, stride, 1 << size);
                }
            }
            ASSERT_EQ(transposed[size] == nullptr, set == &referenceSet());
        }
    }
}

struct Rectangles {
    std::int64_t rows, columns, planes;
    std::int64_t gap;   // bytes between rows
    std::int64_t lead;  // bytes before the first sample of the target, from an address that is aligned
};

// The source ends with its last sample; a frame around the target must stay.
void checkTransposed(TransposeFunction transpose, Rectangles const& shape, std::int64_t bytes) {
    auto const& [rows, columns, planes, gap, lead] = shape;
    std::int64_t const inRow = columns * bytes + gap, outRow = rows * bytes + gap;
    std::vector<char> in(static_cast<std::size_t>(inRow * rows * planes - gap));
    for (std::size_t at = 0; at < in.size(); ++at) {
        in[at] = static_cast<char>(at * 2654435761U >> 13);
    }
    std::vector<char> out(static_cast<std::size_t>(outRow * columns * planes + lead + 64), 'x');
    auto expected = out;
    std::size_t const first =
        (64 - reinterpret_cast<std::uintptr_t>(out.data()) % 64) % 64 + static_cast<std::size_t>(lead);
    for (std::int64_t at = 0; at < rows * columns * planes; ++at) {
        std::int64_t const plane = at / columns / rows, row = at / columns % rows, column = at % columns;
        std::int64_t const to = (plane * columns + column) * outRow + row * bytes;
        std::memcpy(
            &expected[first + static_cast<std::size_t>(to)],
            &in[static_cast<std::size_t>((plane * rows + row) * inRow + column * bytes)],
            static_cast<std::size_t>(bytes));
    }
    transpose({in.data(), inRow, inRow * rows, &out[first], outRow, outRow * columns, rows, columns, planes});
    ASSERT_TRUE(out == expected) << rows << " x " << columns << " x " << planes << " of " << bytes << " bytes, gap "
                                 << gap << ", lead " << lead;
}

TEST(Transposes, MoveEverySampleOfAnyShape) {
    Testing::Random random;
    for (InstructionSet const* const set : instructionSets()) {
        SCOPED_TRACE(set->name);
        for (std::size_t size = 0; set != &referenceSet() && size < 4; ++size) {
            std::int64_t const bytes = 1 << size;
            auto const check = [&](Rectangles const& shape) {
                checkTransposed(set->rows.transposed[size], shape, bytes);
            };
            for (int round = 0; round < 60; ++round) {
                auto const side = [&] { return random.oneOf<std::int64_t>({1, 3, 15, 16, 17, 63, 64, 65, 128, 200}); };
                check(
                    {side(), side(), random.between<std::int64_t>(1, 3), random.oneOf<std::int64_t>({0, 1, 8}),
                     random.between<std::int64_t>(0, 63)});
            }
            // Large enough to pass the caches by.
            check({1024, 1100, 2, 0, 0});
            check({1024, 1099, 2, 0, 16});
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters::Detail
