// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/detail/run_kernels.h"

#include <hwy/detect_targets.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Quorvel::Dravik::Adt::Converters::Detail {

// Each in its own compilation of vector_kernels.cpp.
namespace N_AVX3 {
InstructionSet const& instructionSet() noexcept;
}
namespace N_AVX2 {
InstructionSet const& instructionSet() noexcept;
}
namespace N_SSE4 {
InstructionSet const& instructionSet() noexcept;
}

namespace {

struct SetList {
    std::array<InstructionSet const*, 4> sets{};
    std::size_t count = 0;

    void add(InstructionSet const& set) { sets[count++] = &set; }
};

SetList setsOfThisProcessor() noexcept {
    SetList list;
#if HWY_ARCH_X86
    __builtin_cpu_init();  // a static initialiser may ask before the runtime's own has run
    bool const sse4 =
        __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("aes");
    bool const avx2 = sse4 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                      __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("fma");
    bool const avx3 = avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
                      __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw");
#if HWY_TARGETS & HWY_AVX3
    if (avx3) {
        list.add(N_AVX3::instructionSet());
    }
#endif
#if HWY_TARGETS & HWY_AVX2
    if (avx2) {
        list.add(N_AVX2::instructionSet());
    }
#endif
#if HWY_TARGETS & HWY_SSE4
    if (sse4) {
        list.add(N_SSE4::instructionSet());
    }
#endif
#endif
    list.add(referenceSet());
    return list;
}

// The magnitudes of a 16-bit type stay below 2^16, those of an 8-bit one below 2^8 (-2^15 and -2^7 included). Of int
// the fused form takes none above 2^24.
int bitsOf(SampleType in) noexcept {
    return in <= SampleType::Char ? 8 : in < SampleType::Int ? 16 : 24;
}

// Finite values other than 0 are odd multiples of a power of two below another one: 2^low divides x, and |x| < 2^high.
struct BitSpan {
    explicit BitSpan(float x) noexcept {
        float fraction = std::frexp(x, &high);
        low = high;
        while (fraction != std::trunc(fraction)) {
            fraction *= 2;
            --low;
        }
    }
    int low;
    int high;
};

// Whether scale * x + offset, for every integer x of type `in` that the fused form takes, has no more bits than a
// double: then rounding it to double and on to float is the same as rounding it to float at once.
bool sumsAreExact(SampleType in, Linear const& linear) noexcept {
    constexpr int kDoubleBits = 53;
    BitSpan const scale(linear.scale);
    BitSpan const offset(linear.offset);
    int const high = std::max(scale.high + bitsOf(in), offset.high) + 1;
    return high - std::min(scale.low, offset.low) <= kDoubleBits;
}

// Whether the fused form gives the bits of the double one, and soon enough.
bool fusedServes(SampleType in, SampleType out, Linear const& linear) noexcept {
    if (in != SampleType::Float) {
        return linear.scale == 0 || linear.offset == 0 || sumsAreExact(in, linear);
    }
    if (out == SampleType::Float) {
        return linear.offset == 0;  // the product of two floats is exact in double
    }
    // Right for every offset. But the results that have to be looked at twice, because they lie next to a tie, grow in
    // number with it.
    constexpr float kLargestGuarded = 1024;
    return std::abs(linear.offset) <= kLargestGuarded;
}

}  // namespace

std::span<InstructionSet const* const> instructionSets() noexcept {
    static SetList const list = setsOfThisProcessor();
    return {list.sets.data(), list.count};
}

RowCopies const& rowCopies() noexcept {
    static RowCopies const& fastest = instructionSets().front()->rows;
    return fastest;
}

RunFunction scaledRun(InstructionSet const& set, SampleType in, SampleType out, Linear const& linear) noexcept {
    if (!std::isfinite(linear.scale) || !std::isfinite(linear.offset)) {
        // Which of several NaNs survives is up to the order of operands; there is only one order in the reference.
        return referenceSet().scaled(in, out);
    }
    RunFunction const fused = set.fused(in, out);
    return fused != nullptr && fusedServes(in, out, linear) ? fused : set.scaled(in, out);
}

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
