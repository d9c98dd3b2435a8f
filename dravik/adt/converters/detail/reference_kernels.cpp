// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/detail/run_kernels.h"

#include <cstring>

namespace Quorvel::Dravik::Adt::Converters::Detail {

namespace {

// Through bytes: buffers need no alignment, and overlapping ones keep the order of reads and writes.
template <class S, class D, class Function>
void forEachValue(void const* in, void* out, std::ptrdiff_t count, Function const& function) {
    auto const* const source = static_cast<unsigned char const*>(in);
    auto* const destination = static_cast<unsigned char*>(out);
    for (std::ptrdiff_t k = 0; k < count; ++k) {
        S sample;
        std::memcpy(&sample, source + k * std::ptrdiff_t{sizeof(S)}, sizeof(S));
        D const result = function(sample);
        std::memcpy(destination + k * std::ptrdiff_t{sizeof(D)}, &result, sizeof(D));
    }
}

template <class S, class D>
void runBasic(void const* in, void* out, std::ptrdiff_t count, Linear const&) {
    forEachValue<S, D>(in, out, count, [](S sample) { return converted<D>(sample); });
}

template <class S, class D>
void runScaled(void const* in, void* out, std::ptrdiff_t count, Linear const& linear) {
    forEachValue<S, D>(in, out, count, [linear](S sample) { return scaled<D>(sample, linear); });
}

template <class S, class D>
struct Basic {
    static constexpr SampleType kIn = sampleTypeOf<S>();
    static constexpr SampleType kOut = sampleTypeOf<D>();
    static constexpr RunFunction pick() {
        if constexpr (converts(kIn, kOut)) {
            return runBasic<S, D>;
        } else {
            return nullptr;
        }
    }
    static constexpr RunFunction kEntry = pick();
};

template <class S, class D>
struct Scaled {
    static constexpr RunFunction pick() {
        if constexpr (scales(sampleTypeOf<S>(), sampleTypeOf<D>())) {
            return runScaled<S, D>;
        } else {
            return nullptr;
        }
    }
    static constexpr RunFunction kEntry = pick();
};

template <class Word>
void runSwapped(void const* in, void* out, std::ptrdiff_t count, Linear const&) {
    forEachValue<Word, Word>(in, out, count, swapped<Word>);
}

constexpr InstructionSet kReference{
    "reference",
    RunTable::Of<Basic>(),
    RunTable::Of<Scaled>(),
    RunTable(),
    {runSwapped<std::uint16_t>, runSwapped<std::uint32_t>, runSwapped<std::uint64_t>},
    RowCopies()};

}  // namespace

InstructionSet const& referenceSet() noexcept {
    return kReference;
}

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
