// SPDX-License-Identifier: Apache-2.0
// The conversions of runs in vector instructions. This file is compiled once per instruction set, each time in a
// namespace of its own; instruction_sets.cpp chooses among them.

#include "dravik/adt/converters/detail/run_kernels.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dravik/adt/converters/detail/vector_kernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

// Other processors have the reference.
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_SSE4

HWY_BEFORE_NAMESPACE();
namespace Quorvel::Dravik::Adt::Converters::Detail {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

template <class T>
using Tag = hn::ScalableTag<T>;
using FloatTag = Tag<float>;
using IntTag = Tag<std::int32_t>;
using DoubleTag = Tag<double>;
using Floats = hn::Vec<FloatTag>;
using Ints = hn::Vec<IntTag>;
using Shorts = hn::Vec<Tag<std::int16_t>>;

// `char` is computed as what it holds.
template <class T>
using Number = std::conditional_t<std::is_same_v<T, char>, std::int8_t, T>;

// ---- Rounding and saturation. The processor's own instructions follow the rule already; the portable operations do
// more than is wanted (they mend what a float beyond 32 bits becomes) or less at a time (they undo the order of every
// pack).

#if HWY_TARGET == HWY_AVX3
HWY_INLINE Ints nearestOrLowest(Floats v) {
    return Ints{_mm512_cvtps_epi32(v.raw)};
}
HWY_INLINE auto packed(Tag<std::int16_t>, Ints a, Ints b) {
    return _mm512_packs_epi32(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::uint16_t>, Ints a, Ints b) {
    return _mm512_packus_epi32(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::int8_t>, Shorts a, Shorts b) {
    return _mm512_packs_epi16(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::uint8_t>, Shorts a, Shorts b) {
    return _mm512_packus_epi16(a.raw, b.raw);
}
#elif HWY_TARGET == HWY_AVX2
HWY_INLINE Ints nearestOrLowest(Floats v) {
    return Ints{_mm256_cvtps_epi32(v.raw)};
}
HWY_INLINE auto packed(Tag<std::int16_t>, Ints a, Ints b) {
    return _mm256_packs_epi32(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::uint16_t>, Ints a, Ints b) {
    return _mm256_packus_epi32(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::int8_t>, Shorts a, Shorts b) {
    return _mm256_packs_epi16(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::uint8_t>, Shorts a, Shorts b) {
    return _mm256_packus_epi16(a.raw, b.raw);
}
#else
HWY_INLINE Ints nearestOrLowest(Floats v) {
    return Ints{_mm_cvtps_epi32(v.raw)};
}
HWY_INLINE auto packed(Tag<std::int16_t>, Ints a, Ints b) {
    return _mm_packs_epi32(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::uint16_t>, Ints a, Ints b) {
    return _mm_packus_epi32(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::int8_t>, Shorts a, Shorts b) {
    return _mm_packs_epi16(a.raw, b.raw);
}
HWY_INLINE auto packed(Tag<std::uint8_t>, Shorts a, Shorts b) {
    return _mm_packus_epi16(a.raw, b.raw);
}
#endif

// Packs work within blocks of 128 bits, so `kParts` packed vectors come out block by block. Where the 32-bit words go.
template <int kParts>
struct WordOrder {
    alignas(64) std::int32_t word[hn::MaxLanes(IntTag())];

    constexpr WordOrder() : word() {
        constexpr int kWords = static_cast<int>(hn::MaxLanes(IntTag()));
        constexpr int kWordsPerPart = 4 / kParts;
        for (int to = 0; to < kWords; ++to) {
            int const part = to / (kWords / kParts);
            int const block = to % (kWords / kParts) / kWordsPerPart;
            word[to] = 4 * block + kWordsPerPart * part + to % kWordsPerPart;
        }
    }
};

template <int kParts, class D, class Raw>
HWY_INLINE hn::Vec<D> inOrder(D d, Raw raw) {
    hn::Vec<D> const blocks{raw};
    if constexpr (hn::MaxLanes(IntTag()) == 4) {
        return blocks;
    } else {
        static constexpr WordOrder<kParts> kOrder;
        IntTag const words;
        return hn::BitCast(
            d, hn::TableLookupLanes(hn::BitCast(words, blocks), hn::SetTableIndices(words, kOrder.word)));
    }
}

template <class T>
HWY_INLINE hn::Vec<Tag<T>> saturated2(Ints a, Ints b) {
    return inOrder<2>(Tag<T>(), packed(Tag<T>(), a, b));
}

template <class T>
HWY_INLINE hn::Vec<Tag<T>> saturated2(Shorts a, Shorts b) {
    return inOrder<2>(Tag<T>(), packed(Tag<T>(), a, b));
}

template <class T>
HWY_INLINE hn::Vec<Tag<T>> saturated4(Ints a, Ints b, Ints c, Ints d) {
    Shorts const ab{packed(Tag<std::int16_t>(), a, b)};
    Shorts const cd{packed(Tag<std::int16_t>(), c, d)};
    return inOrder<4>(Tag<T>(), packed(Tag<T>(), ab, cd));
}

// ---- One vector in, one vector out.

// Lanes(wide) values of a type that may be narrower, widened without loss or to the nearest float.
template <class Wide, class S>
HWY_INLINE hn::Vec<Wide> loadWidened(Wide wide, S const* in) {
    using W = hn::TFromD<Wide>;
    auto const samples = hn::LoadU(hn::Rebind<S, Wide>(), in);
    if constexpr (std::is_same_v<S, W>) {
        return samples;
    } else if constexpr (std::is_same_v<W, float>) {
        hn::Rebind<std::int32_t, Wide> const ints;
        return hn::ConvertTo(wide, loadWidened(ints, in));
    } else if constexpr (std::is_same_v<W, double> && sizeof(S) < 4) {
        hn::Rebind<std::int32_t, Wide> const ints;
        return hn::PromoteTo(wide, hn::PromoteTo(ints, samples));
    } else {
        return hn::PromoteTo(wide, samples);
    }
}

// A vector of 32-bit integers: the samples, or what they round to.
template <class S>
HWY_INLINE Ints loadInts(S const* in) {
    if constexpr (std::is_same_v<S, float>) {
        return nearestOrLowest(hn::LoadU(FloatTag(), in));
    } else {
        return loadWidened(IntTag(), in);
    }
}

// ---- Steps: kValues values from `in` to `out`, more than one vector where the registers allow it; kTogether of them
// in a row as long as there are so many, where the step is so short that the loop around it would show.

constexpr std::size_t kFloatLanes = hn::MaxLanes(FloatTag());

template <class S, class D>
struct Widening {
    static constexpr std::size_t kVector = hn::MaxLanes(Tag<D>());
    static constexpr std::size_t kValues = 2 * kVector;
    static constexpr std::size_t kTogether = 4;

    explicit HWY_INLINE Widening(Linear const&) {}

    HWY_INLINE void operator()(S const* in, D* out) const {
        Tag<D> const wide;
        auto const first = loadWidened(wide, in);
        auto const second = loadWidened(wide, in + kVector);
        hn::StoreU(first, wide, out);
        hn::StoreU(second, wide, out + kVector);
    }
};

struct Demoting {
    static constexpr std::size_t kVector = hn::MaxLanes(DoubleTag());
    static constexpr std::size_t kValues = 2 * kVector;
    static constexpr std::size_t kTogether = 4;

    explicit HWY_INLINE Demoting(Linear const&) {}

    HWY_INLINE void operator()(double const* in, float* out) const {
        hn::Rebind<float, DoubleTag> const half;
        hn::StoreU(hn::DemoteTo(half, hn::LoadU(DoubleTag(), in)), half, out);
        hn::StoreU(hn::DemoteTo(half, hn::LoadU(DoubleTag(), in + kVector)), half, out + kVector);
    }
};

// The bytes of each Word turned round, by a table that every block of 128 bits shares.
template <class Word>
struct Swapping {
    static constexpr std::size_t kValues = hn::MaxLanes(Tag<Word>());
    static constexpr std::size_t kTogether = 4;

    explicit HWY_INLINE Swapping(Linear const&) : order_(hn::LoadDup128(Tag<std::uint8_t>(), kOrder)) {}

    HWY_INLINE void operator()(Word const* in, Word* out) const {
        auto const bytes = hn::BitCast(Tag<std::uint8_t>(), hn::LoadU(Tag<Word>(), in));
        hn::StoreU(hn::BitCast(Tag<Word>(), hn::TableLookupBytes(bytes, order_)), Tag<Word>(), out);
    }

  private:
    static constexpr std::uint8_t kLast = sizeof(Word) - 1;
    alignas(16) static constexpr std::uint8_t kOrder[16] = {
        0 ^ kLast, 1 ^ kLast, 2 ^ kLast,  3 ^ kLast,  4 ^ kLast,  5 ^ kLast,  6 ^ kLast,  7 ^ kLast,
        8 ^ kLast, 9 ^ kLast, 10 ^ kLast, 11 ^ kLast, 12 ^ kLast, 13 ^ kLast, 14 ^ kLast, 15 ^ kLast};

    hn::Vec<Tag<std::uint8_t>> order_;
};

// Stores four vectors of integers, or floats to be rounded, as what D can hold of them.
template <class D, class Load>
HWY_INLINE void storeSaturated(Load const& load, D* out) {
    Tag<D> const narrow;
    if constexpr (sizeof(D) == 1) {
        hn::StoreU(saturated4<D>(load(0), load(1), load(2), load(3)), narrow, out);
    } else {
        hn::StoreU(saturated2<D>(load(0), load(1)), narrow, out);
        hn::StoreU(saturated2<D>(load(2), load(3)), narrow, out + 2 * kFloatLanes);
    }
}

// 32-bit input to 8 or 16 bits.
template <class S, class D>
struct Narrowing {
    static constexpr std::size_t kValues = 4 * kFloatLanes;
    static constexpr std::size_t kTogether = 1;

    explicit HWY_INLINE Narrowing(Linear const&) {}

    HWY_INLINE void operator()(S const* in, D* out) const {
        storeSaturated([in](std::size_t vector) HWY_ATTR { return loadInts(in + vector * kFloatLanes); }, out);
    }
};

// 16-bit input to 8 bits.
template <class S, class D>
struct Halving {
    static constexpr std::size_t kVector = hn::MaxLanes(Tag<S>());
    static constexpr std::size_t kValues = 2 * kVector;
    static constexpr std::size_t kTogether = 4;

    explicit HWY_INLINE Halving(Linear const&) {}

    HWY_INLINE void operator()(S const* in, D* out) const {
        hn::StoreU(saturated2<D>(load(in), load(in + kVector)), Tag<D>(), out);
    }

    // Packs read their input as signed: what is too large for that is too large for D.
    static HWY_INLINE Shorts load(S const* in) {
        Tag<S> const samples;
        auto v = hn::LoadU(samples, in);
        if constexpr (std::is_unsigned_v<S>) {
            v = hn::Min(v, hn::Set(samples, static_cast<S>(std::numeric_limits<D>::max())));
        }
        return hn::BitCast(Tag<std::int16_t>(), v);
    }
};

// Signed to unsigned of the same width, or the other way: both keep what they share.
template <class S, class D>
struct Resigning {
    static constexpr std::size_t kValues = hn::MaxLanes(Tag<S>());
    static constexpr std::size_t kTogether = 4;

    explicit HWY_INLINE Resigning(Linear const&) {}

    HWY_INLINE void operator()(S const* in, D* out) const {
        Tag<S> const samples;
        auto v = hn::LoadU(samples, in);
        if constexpr (std::is_unsigned_v<S>) {
            v = hn::Min(v, hn::Set(samples, static_cast<S>(std::numeric_limits<D>::max())));
        } else {
            v = hn::Max(v, hn::Zero(samples));
        }
        hn::StoreU(hn::BitCast(Tag<D>(), v), Tag<D>(), out);
    }
};

// scale * x + offset in double, rounded to float: the rule as it stands.
template <class S>
class ScaledInDouble {
  public:
    explicit HWY_INLINE ScaledInDouble(Linear const& linear)
        : scale_(hn::Set(DoubleTag(), static_cast<double>(linear.scale))),
          offset_(hn::Set(DoubleTag(), static_cast<double>(linear.offset))) {}

    HWY_INLINE Floats operator()(S const* in) const {
        return hn::Combine(FloatTag(), half(in + hn::MaxLanes(DoubleTag())), half(in));
    }

  private:
    HWY_INLINE hn::Vec<hn::Rebind<float, DoubleTag>> half(S const* in) const {
        auto const x = loadWidened(DoubleTag(), in);
        // Only 32-bit integers make products that a double has to round; the others may be fused with the sum.
        auto const sum = std::is_same_v<S, std::int32_t> || !HWY_NATIVE_FMA ? hn::Add(hn::Mul(x, scale_), offset_)
                                                                            : hn::MulAdd(x, scale_, offset_);
        return hn::DemoteTo(hn::Rebind<float, DoubleTag>(), sum);
    }

    hn::Vec<DoubleTag> scale_;
    hn::Vec<DoubleTag> offset_;
};

// The same in single precision, with one rounding.
template <class S>
class ScaledFused {
  public:
    explicit HWY_INLINE ScaledFused(Linear const& linear)
        : scale_(hn::Set(FloatTag(), linear.scale)), offset_(hn::Set(FloatTag(), linear.offset)) {}

    HWY_INLINE Floats operator()(S const* in) const { return hn::MulAdd(loadWidened(FloatTag(), in), scale_, offset_); }

  private:
    Floats scale_;
    Floats offset_;
};

template <class S, class D, class Arithmetic>
struct Scaling {
    static constexpr std::size_t kValues = 4 * kFloatLanes;
    static constexpr std::size_t kTogether = 1;

    explicit HWY_INLINE Scaling(Linear const& linear) : scaled(linear) {}

    HWY_INLINE void operator()(S const* in, D* out) const {
        if constexpr (std::is_same_v<D, float>) {
            for (std::size_t k = 0; k < kValues; k += kFloatLanes) {
                hn::StoreU(scaled(in + k), FloatTag(), out + k);
            }
        } else if constexpr (std::is_same_v<D, std::int32_t>) {
            for (std::size_t k = 0; k < kValues; k += kFloatLanes) {
                hn::StoreU(nearestOrLowest(scaled(in + k)), IntTag(), out + k);
            }
        } else {
            storeSaturated(
                [&](std::size_t vector) HWY_ATTR { return nearestOrLowest(scaled(in + vector * kFloatLanes)); }, out);
        }
    }

    Arithmetic scaled;
};

// 32-bit integers in single precision as long as float has all of a step.
template <class D>
class ScalingWithinFloat {
  public:
    static constexpr std::size_t kValues = 4 * kFloatLanes;
    static constexpr std::size_t kTogether = 1;

    explicit HWY_INLINE ScalingWithinFloat(Linear const& linear) : fused_(linear), exact_(linear) {}

    HWY_INLINE void operator()(std::int32_t const* in, D* out) const {
        IntTag const ints;
        // From -2^24 to 2^24 - 1, moved up by 2^24, no bit but the lowest 25 is set.
        Ints bits = hn::Zero(ints);
        for (std::size_t k = 0; k < kValues; k += kFloatLanes) {
            bits = hn::Or(bits, hn::Add(hn::LoadU(ints, in + k), hn::Set(ints, 1 << 24)));
        }
        if (HWY_LIKELY(hn::AllTrue(ints, hn::Eq(hn::ShiftRight<25>(bits), hn::Zero(ints))))) {
            fused_(in, out);
        } else {
            exact_(in, out);
        }
    }

  private:
    Scaling<std::int32_t, D, ScaledFused<std::int32_t>> fused_;
    Scaling<std::int32_t, D, ScaledInDouble<std::int32_t>> exact_;
};

// Float to 8 or 16 bits without doubles. The double form rounds the sum to double and to float, by far less than the
// distance `guard`; so what two fused sums round to, one with a lower and one with a higher offset, encloses its
// result. Where they agree, and they do unless the sum lies next to a tie, that is the result. NaN, infinities and what
// is beyond 32 bits agree as well.
template <class D>
class GuardedScaling {
  public:
    static constexpr std::size_t kValues = 4 * kFloatLanes;
    static constexpr std::size_t kTogether = 1;

    explicit HWY_INLINE GuardedScaling(Linear const& linear)
        : exact_(linear),
          scale_(hn::Set(FloatTag(), linear.scale)),
          lower_(hn::Set(FloatTag(), linear.offset - guard(linear))),
          upper_(hn::Set(FloatTag(), linear.offset + guard(linear))) {}

    HWY_INLINE void operator()(float const* in, D* out) const {
        Ints differences = hn::Zero(IntTag());
        auto const enclosed = [&](std::size_t vector) HWY_ATTR {
            Floats const x = hn::LoadU(FloatTag(), in + vector * kFloatLanes);
            Ints const low = nearestOrLowest(hn::MulAdd(x, scale_, lower_));
            Ints const high = nearestOrLowest(hn::MulAdd(x, scale_, upper_));
            differences = hn::Or(differences, hn::Xor(low, high));
            return low;
        };
        Ints const results[4] = {enclosed(0), enclosed(1), enclosed(2), enclosed(3)};
        if (HWY_LIKELY(hn::AllTrue(IntTag(), hn::Eq(differences, hn::Zero(IntTag()))))) {
            storeSaturated([&](std::size_t vector) HWY_ATTR { return results[vector]; }, out);
        } else {
            exact_(in, out);
        }
    }

  private:
    // Beyond the half unit in the last place of a double of any sum that has an integer of 32 bits (2^-22), and beyond
    // what is lost when it is added to the offset.
    static HWY_INLINE float guard(Linear const& linear) {
        float const relative = (linear.offset < 0 ? -linear.offset : linear.offset) * 0x1p-22f;
        return relative < 0x1p-18f ? 0x1p-18f : relative;
    }

    Scaling<float, D, ScaledInDouble<float>> exact_;
    Floats scale_;
    Floats lower_;
    Floats upper_;
};

// ---- Runs and their tables.

// Whole steps, as many as there are; moves the pointers behind them and returns how many values are left.
template <class Step, class S, class D>
HWY_INLINE std::size_t runWholeSteps(Step const& step, S const*& source, D*& destination, std::size_t remaining) {
    if constexpr (Step::kTogether > 1) {
        constexpr std::size_t kRow = Step::kTogether * Step::kValues;
        for (; remaining >= kRow; remaining -= kRow) {
            for (std::size_t k = 0; k < kRow; k += Step::kValues) {
                step(source + k, destination + k);
            }
            source += kRow;
            destination += kRow;
        }
    }
    for (; remaining >= Step::kValues; remaining -= Step::kValues) {
        step(source, destination);
        source += Step::kValues;
        destination += Step::kValues;
    }
    return remaining;
}

// Shorter runs, those of strided conversions among them, are over before it pays.
constexpr std::size_t kStepsWorthAligning = 8;

// How many values lie before the first whole vector in memory, on the side that moves more bytes; less than a step.
template <class S, class D>
HWY_INLINE std::size_t valuesBeforeAligned(S const* source, D const* destination) {
    constexpr std::size_t kVectorBytes = hn::MaxLanes(Tag<std::uint8_t>());
    using Wider = std::conditional_t<(sizeof(S) > sizeof(D)), S, D>;
    auto const address = sizeof(S) > sizeof(D) ? reinterpret_cast<std::uintptr_t>(source)
                                               : reinterpret_cast<std::uintptr_t>(destination);
    return (0 - address) % kVectorBytes / sizeof(Wider);
}

template <class Step, class S, class D>
void runSteps(void const* in, void* out, std::ptrdiff_t count, Linear const& linear) {
    Step const step(linear);
    auto const* source = static_cast<S const*>(in);
    auto* destination = static_cast<D*>(out);
    auto remaining = static_cast<std::size_t>(count);
    bool const areApart =
        static_cast<void const*>(source + remaining) <= out || static_cast<void const*>(destination + remaining) <= in;
    if (areApart && remaining >= Step::kValues) {
        // What the first and the last step do once more, they do from the same input. An access that spans two lines
        // of the cache costs two.
        std::size_t const head = valuesBeforeAligned(source, destination);
        if (head != 0 && remaining >= kStepsWorthAligning * Step::kValues) {
            step(source, destination);
            source += head;
            destination += head;
            remaining -= head;
        }
        remaining = runWholeSteps(step, source, destination, remaining);
        if (remaining > 0) {
            std::size_t const back = Step::kValues - remaining;
            step(source - back, destination - back);
        }
        return;
    }
    remaining = runWholeSteps(step, source, destination, remaining);
    if (remaining > 0) {
        // The rest goes through a full step beside the buffers, of which nothing more may be touched.
        alignas(64) S restIn[Step::kValues] = {};
        alignas(64) D restOut[Step::kValues];
        std::memcpy(restIn, source, remaining * sizeof(S));
        step(restIn, restOut);
        std::memcpy(destination, restOut, remaining * sizeof(D));
    }
}

template <class Word>
constexpr RunFunction kSwap = runSteps<Swapping<Word>, Word, Word>;

template <class S, class D>
struct Basic {
    static constexpr SampleType kIn = sampleTypeOf<S>();
    static constexpr SampleType kOut = sampleTypeOf<D>();

    static constexpr RunFunction pick() {
        using In = Number<S>;
        using Out = Number<D>;
        if constexpr (widens(kIn, kOut) || (std::is_same_v<D, double> && !isStorageType(kIn))) {
            return runSteps<Widening<In, Out>, In, Out>;
        } else if constexpr (std::is_same_v<S, double> && std::is_same_v<D, float>) {
            return runSteps<Demoting, In, Out>;
        } else if constexpr (!narrows(kIn, kOut)) {
            return nullptr;
        } else if constexpr (sizeof(S) == sizeof(D)) {
            return runSteps<Resigning<In, Out>, In, Out>;
        } else if constexpr (sizeof(S) == 2) {
            return runSteps<Halving<In, Out>, In, Out>;
        } else {
            return runSteps<Narrowing<In, Out>, In, Out>;
        }
    }

    static constexpr RunFunction kEntry = pick();
};

template <class S, class D, template <class> class Arithmetic>
constexpr RunFunction pickScaling() {
    using In = Number<S>;
    using Out = Number<D>;
    if constexpr (scales(sampleTypeOf<S>(), sampleTypeOf<D>())) {
        return runSteps<Scaling<In, Out, Arithmetic<In>>, In, Out>;
    } else {
        return nullptr;
    }
}

template <class S, class D>
struct Scaled {
    static constexpr RunFunction kEntry = pickScaling<S, D, ScaledInDouble>();
};

template <class S, class D>
struct Fused {
    static constexpr RunFunction pick() {
        if constexpr (!HWY_NATIVE_FMA || pickScaling<S, D, ScaledInDouble>() == nullptr) {
            return nullptr;
        } else if constexpr (std::is_same_v<S, int>) {
            return runSteps<ScalingWithinFloat<Number<D>>, S, Number<D>>;
        } else if constexpr (std::is_same_v<S, float> && sizeof(D) < 4) {
            return runSteps<GuardedScaling<Number<D>>, S, Number<D>>;
        } else {
            return pickScaling<S, D, ScaledFused>();
        }
    }

    static constexpr RunFunction kEntry = pick();
};

}  // namespace

RowCopies const& rowCopies() noexcept;  // in vector_row_copies.cpp

InstructionSet const& instructionSet() noexcept {
    static InstructionSet const kSet{
        hwy::TargetName(HWY_TARGET),
        RunTable::Of<Basic>(),
        RunTable::Of<Scaled>(),
        RunTable::Of<Fused>(),
        {kSwap<std::uint16_t>, kSwap<std::uint32_t>, kSwap<std::uint64_t>},
        rowCopies()};
    return kSet;
}

}  // namespace HWY_NAMESPACE
}  // namespace Quorvel::Dravik::Adt::Converters::Detail
HWY_AFTER_NAMESPACE();

#endif
