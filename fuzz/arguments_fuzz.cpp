// SPDX-License-Identifier: Apache-2.0
// Arbitrary arguments, the ends of their types included, for what holds memory, counts, measures and scales: a result
// that a plain model confirms, or an error with a text; never undefined behaviour, and never a request for more memory
// than the arguments explain.

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/converters/scale_offset.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/logging/timer.h"
#include "dravik/adt/statistics/histogram.h"
#include "dravik/adt/testing/failing_allocator.h"
#include "dravik/adt/testing/manual_counter.h"

#include "input.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <exception>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

using BulkView::AdtEnums;
using BulkView::BufferHandle;
using Testing::RequestSize;
__extension__ typedef __int128 Wide;

constexpr std::size_t kMostGranted = 1 << 20;  // bytes
constexpr std::size_t kText = 1 << 12;         // bytes that the text of an error may take

/// Calls act(); whatever it throws has to say something, and it must not have asked for more than `explained` bytes at
/// once.
template <class Act>
bool succeeds(Wide explained, Act act) {
    RequestSize::largest() = 0;
    bool isDone = true;
    try {
        act();
    } catch (std::exception const& error) {
        require(error.what()[0] != '\0', "an error without a text");
        isDone = false;
    }
    require(RequestSize::largest() <= std::max<Wide>(explained, kText), "asked for too much", RequestSize::largest());
    return isDone;
}

template <class T>
T clamped(Wide value) {
    return static_cast<T>(std::clamp<Wide>(value, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

std::int64_t anyInt64(Input& input) {
    switch (input.between(0, 3)) {
    case 0:
        return std::numeric_limits<std::int64_t>::max() - input.between(0, 3);
    case 1:
        return std::numeric_limits<std::int64_t>::min() + input.between(0, 3);
    case 2:
        return input.between(-9, 9);
    default:
        return input.take<std::int64_t>();
    }
}

template <class Real, class Bits>
Real anyReal(Input& input) {
    using Limits = std::numeric_limits<Real>;
    switch (input.between(0, 9)) {
    case 0:
        return Limits::quiet_NaN();
    case 1:
        return input.flag() ? Limits::infinity() : -Limits::infinity();
    case 2:
        return input.flag() ? Limits::max() : Limits::lowest();
    case 3:
        return static_cast<Real>(input.between(-3, 3)) * Limits::denorm_min();
    case 4:
        return std::bit_cast<Real>(input.take<Bits>());
    default:
        return static_cast<Real>(input.between(-40, 40)) / 4;
    }
}
float anyFloat(Input& input) {
    return anyReal<float, std::uint32_t>(input);
}
double anyDouble(Input& input) {
    return anyReal<double, std::uint64_t>(input);
}

// Memory.

/// A block of two axes as its arguments describe it.
struct Block {
    explicit Block(Input& input) {
        for (int axis = 0; axis < 2; ++axis) {
            bool const isSmall = input.flag();
            range.min[axis] = isSmall ? input.between(-9, 9) : input.anyInt();
            range.max[axis] = isSmall ? range.min[axis] + input.between(-1, 9) : input.anyInt();
            strides[axis] = input.flag() ? input.between(-20, 20) : input.anyInt();
        }
        bitSize = input.flag() ? input.between(1, 64) : input.anyInt();
        offset = input.flag() ? input.between(0, 9) : input.anyInt();
    }

    Wide length(int axis) const { return std::max<Wide>(Wide{range.max[axis]} - range.min[axis], 0); }
    /// From the sample at range.min to the lowest or highest one.
    Wide reach(bool isUp) const {
        Wide sum = 0;
        for (int axis = 0; axis < 2; ++axis) {
            Wide const distance = std::max<Wide>(length(axis) - 1, 0) * strides[axis];
            sum += (distance > 0) == isUp ? distance : 0;
        }
        return sum;
    }
    Wide byteSize(Wide firstSample) const {
        return std::max<Wide>(((firstSample + reach(/*isUp=*/true) + 1) * bitSize + 7) / 8, 0);
    }

    OpenEndedRange<2, int> range;
    FixedVector<2, int> strides;
    int bitSize;
    int offset;
};

constexpr Wide kMostBytes = std::numeric_limits<std::uint32_t>::max();

void checkMake(Block const& block) {
    Wide const first = -block.reach(/*isUp=*/false);
    Wide const bytes = block.byteSize(first);
    bool const isPossible = block.bitSize > 0 && first <= std::numeric_limits<int>::max() && bytes <= kMostBytes;
    SharedArray<2> array;
    bool const isMade = succeeds(isPossible ? bytes + kText : Wide{0}, [&] {
        array = SharedArray<2>::Make(block.range, block.strides, typeid(void), block.bitSize);
    });
    require(isMade == (isPossible && bytes <= Wide{kMostGranted}), "made, or not", block.range, block.strides);
    if (isMade) {
        require(array.buffer().getBufferByteSize() == bytes, "another size", block.range, block.strides);
        require(array.bufferOffset() == first, "another place", block.range, block.strides);
        require(
            std::all_of(array.data(), array.data() + static_cast<std::size_t>(bytes), [](char c) { return c == 0; }),
            "not zero");
    }
}

void checkWrap(Block const& block, Input& input) {
    Wide const first = -block.reach(/*isUp=*/false);
    bool const isPossible = block.bitSize > 0 && first <= std::numeric_limits<int>::max();
    Wide const bytes = block.byteSize(first);
    std::size_t const given = input.flag() ? input.take<unsigned char>() : input.take<std::size_t>();
    char memory = 0;
    bool const isMade = succeeds(
        0, [&] { SharedArray<2>::Wrap(&memory, given, block.range, block.strides, typeid(void), block.bitSize); });
    require(isMade == (isPossible && bytes <= std::min<Wide>(given, kMostBytes)), "wrapped, or not", given);
}

void checkDense(OpenEndedRange<2, int> const& range) {
    FixedVector<2, int> strides;
    Wide const last = std::max<Wide>(Wide{range.max[1]} - range.min[1], 0);
    Wide const first = std::max<Wide>(Wide{range.max[0]} - range.min[0], 0);
    bool const isMade = succeeds(0, [&] { strides = SharedArray<2>::DenseStrides(range); });
    require(isMade == (last <= std::numeric_limits<int>::max() || first <= 1), "dense, or not", range);
    require(!isMade || (strides[1] == 1 && strides[0] == clamped<int>(last)), "strides", range, strides);
}

/// What the description of an array claims is believed; what it asks for is checked.
void checkAccessor(Block const& block, Input& input) {
    SharedArray<2> array(
        ArrayRef<2>(block.range, block.strides, nullptr, block.offset, typeid(void), block.bitSize), SharedBuffer());
    std::uint32_t const presentSize = input.flag() ? input.take<unsigned char>() : input.take<std::uint32_t>();
    bool const hasBuffer = input.flag();
    if (hasBuffer) {
        array.setBuffer(SharedBuffer(new SharedBuffer::BasicArrayOwner(presentSize)));
    }
    Wide const bytes = block.byteSize(block.offset);
    bool const isPossible = block.offset + block.reach(/*isUp=*/false) >= 0 && bytes <= kMostBytes;
    BulkView::Accessors::MemoryAccessor accessor(array);
    require(succeeds(0, [&] { accessor.getSize(); }) == hasBuffer, "a size of nothing");
    BufferHandle handle;
    accessor.getBuffer({}, AdtEnums::Read, handle);
    require(handle.isNull() && handle.access() == AdtEnums::Read, "memory out of nothing");
    Wide const wanted = hasBuffer ? Wide{presentSize} : bytes;
    auto const access = static_cast<AdtEnums::Access>(input.between(2, 4));
    bool const isLent = succeeds(isPossible ? wanted + kText : Wide{0}, [&] {
        accessor.getBuffer({input.anyInt(), 0, 0, 0}, access, handle);
    });
    bool const fits = bytes <= wanted;
    require(
        isLent == (isPossible && (!fits || std::max<Wide>(wanted, 1) <= Wide{kMostGranted})), "lent, or not", array,
        int{access}, bytes <= kMostBytes ? static_cast<std::int64_t>(bytes) : -1, presentSize, hasBuffer);
    require(!isLent || handle.isNull() == !fits, "memory that is too small", presentSize);
    require(handle.infoSnapshot().strides == FixedVector<4, int>(block.strides, 0), "strides");
}

void checkBuffer(Input& input) {
    SharedBuffer buffer;
    std::uint32_t size = 0;
    bool hasOwner = false;
    for (int steps = input.between(1, 6); steps > 0; --steps) {
        std::uint32_t const wanted = input.flag() ? input.take<unsigned char>() : input.take<std::uint32_t>();
        bool const allocates = input.flag();
        bool const creates = input.flag();
        bool const fits = hasOwner && wanted <= size;
        size = !fits && creates ? wanted : size;
        hasOwner = hasOwner || creates;
        char* memory = nullptr;
        bool const isAnswered =
            succeeds(Wide{size} + kText, [&] { memory = buffer.getBuffer(wanted, allocates, creates); });
        bool const isServed = fits || creates;
        require(isAnswered || (isServed && allocates && size > kMostGranted), "refused", wanted, size);
        require(memory == nullptr || isServed, "memory that is too small", wanted, size);
        require(memory != nullptr || !isServed || !allocates || size > kMostGranted, "no memory", wanted, size);
        require(buffer.getBufferByteSize() == (hasOwner ? size : 0), "another size", size);
    }
}

// Boxes.

void checkBoxes(Input& input) {
    OpenEndedRange<3, int> a;
    OpenEndedRange<3, int> b;
    Wide common = 1;
    for (int axis = 0; axis < 3; ++axis) {
        a.min[axis] = input.anyInt();
        a.max[axis] = input.anyInt();
        b.min[axis] = input.anyInt();
        b.max[axis] = input.anyInt();
        // Each factor is below 2^32, so the product of three stays below 2^96.
        common *= std::max<Wide>(Wide{std::min(a.max[axis], b.max[axis])} - std::max(a.min[axis], b.min[axis]), 0);
        auto const sum = a.min + b.max;
        require(
            static_cast<unsigned>(sum[axis]) == static_cast<unsigned>(a.min[axis]) + static_cast<unsigned>(b.max[axis]),
            "sum", a, b);
    }
    int const axis = input.anyInt();
    require(succeeds(0, [&] { static_cast<void>(a.min[axis]); }) == (0 <= axis && axis < 3), "axis", axis);
    auto shared = a;
    shared.intersect(b);
    require(shared.pointCount() == clamped<std::int64_t>(common), "points", a, b, shared);
    require(a.intersects(b) == (common > 0 && !a.isEmpty() && !b.isEmpty()), "intersects", a, b);
    require(common == 0 || (a.contains(shared.min) && b.contains(shared.min)), "contains", a, b, shared);
}

// Histograms.

Histogram anyHistogram(Input& input) {
    unsigned const resolution =
        input.between(0, 15) == 0 ? input.take<unsigned>() : static_cast<unsigned>(input.between(1, 40));
    switch (input.between(0, 3)) {
    case 0:
        return Histogram(Histogram::flexible, resolution);
    case 1:
        return Histogram(Histogram::flexible, anyFloat(input), anyFloat(input), resolution);
    case 2: {
        std::vector<std::int64_t> bins(static_cast<std::size_t>(input.between(0, 9)));
        std::generate(bins.begin(), bins.end(), [&] { return anyInt64(input); });
        float const low = anyFloat(input);
        return Histogram(
            Histogram::fixed, low, anyFloat(input), bins, anyFloat(input), anyFloat(input), anyFloat(input),
            anyFloat(input));
    }
    default:
        return Histogram(Histogram::fixed, anyFloat(input), anyFloat(input), resolution);
    }
}

// Counts given from elsewhere may be of any size: sums of them wrap.
std::uint64_t counted(Histogram const& histogram) {
    return static_cast<std::uint64_t>(histogram.nofSamples()) + static_cast<std::uint64_t>(histogram.underflows()) +
           static_cast<std::uint64_t>(histogram.overflows());
}

std::uint64_t countedInBins(Histogram const& histogram) {
    std::uint64_t count = 0;
    for (unsigned bin = 0; bin <= histogram.resolution(); ++bin) {
        count += static_cast<std::uint64_t>(histogram.nofSamples(bin));
    }
    return count;
}

void checkResampling(Histogram const& histogram, Input& input) {
    float const low = anyFloat(input);
    float const high = anyFloat(input);
    unsigned const few = static_cast<unsigned>(input.between(0, 50));
    auto const counts = histogram.bins(few, low, high);
    require(counts.size() == few, "another number of bins", few);
    auto const back = histogram.bins(few, high, low);
    require(counts == back, "ends the other way round", low, high);
    succeeds(Wide{8} * std::numeric_limits<unsigned>::max(), [&] { histogram.bins(input.take<unsigned>()); });
    int const borders = input.anyInt();
    succeeds(Wide{4} * std::max(borders, 0) + 4, [&] {
        auto const made = histogram.binBorders(borders, low, high);
        require(made.size() == static_cast<std::size_t>(std::max(Wide{borders} + 1, Wide{0})), "borders", borders);
    });
}

void checkHistograms(Input& input) {
    Histogram histogram;
    if (!succeeds(Wide{8} * std::numeric_limits<unsigned>::max(), [&] { histogram = anyHistogram(input); })) {
        return;
    }
    Histogram atOnce = histogram;
    std::uint64_t const before = counted(histogram);
    std::vector<float> samples(static_cast<std::size_t>(input.between(0, 200)));
    std::generate(samples.begin(), samples.end(), [&] { return anyFloat(input); });
    for (float const sample : samples) {
        histogram.add(sample);
    }
    atOnce.add(samples);
    require(atOnce == histogram, "one by one and at once", atOnce, histogram);
    auto const numbers = static_cast<std::uint32_t>(
        std::count_if(samples.begin(), samples.end(), [](float sample) { return !std::isnan(sample); }));
    require(counted(histogram) == before + numbers, "lost samples", histogram, before, numbers);
    require(countedInBins(histogram) == static_cast<std::uint64_t>(histogram.nofSamples()), "lost in bins", histogram);
    checkResampling(histogram, input);

    Histogram other = input.flag() ? histogram : atOnce;
    if (input.flag()) {
        succeeds(Wide{8} * std::numeric_limits<unsigned>::max(), [&] { other = anyHistogram(input); });
    }
    Histogram merged = histogram;
    if (succeeds(0, [&] { merged.merge(other); })) {
        require(counted(merged) == counted(histogram) + counted(other), "lost in merging", merged);
        require(
            countedInBins(merged) == static_cast<std::uint64_t>(merged.nofSamples()), "lost in merged bins", merged);
    } else {
        require(merged == histogram, "changed by a merge that was refused", merged);
    }
}

// Timers.

void checkTimer(Input& input) {
    std::int64_t const perSecond = anyInt64(input);
    std::int64_t const perLook = anyInt64(input);
    Testing::ManualCounter const counter(perSecond, perLook);
    int const skip = input.anyInt();
    Logging::Timer timer(/*enabled=*/true, "t", skip);
    Wide const frequency = perSecond == 0 ? 1 : Wide{perSecond};
    std::int64_t const passed = anyInt64(input);
    timer.start();
    Testing::ManualCounter::advance(passed);
    timer.stop();
    // As long as the counter does not pass its own end.
    constexpr std::int64_t kFew = 1 << 30;
    if (-kFew < passed && passed < kFew && 0 <= perLook && perLook < kFew) {
        Wide const last = Wide{passed} + perLook - Wide{perLook} * 9 / 10;
        require(timer.getLast() == static_cast<double>(last) / static_cast<double>(frequency), "last", perLook);
    }
    Wide count = 1;
    for (int steps = input.between(0, 9); steps > 0; --steps) {
        if (input.flag()) {
            int const calls = input.anyInt();
            timer.add(calls, anyDouble(input), anyDouble(input));
            count = clamped<int>(count + calls);
        } else {
            timer.start();
            Testing::ManualCounter::advance(anyInt64(input));
            timer.stop();
            count = clamped<int>(count + 1);
        }
        require(timer.getCount() == (count < skip ? 0 : clamped<int>(count - skip)), "count", skip, timer.getCount());
        require(timer.getSkip() == std::min<Wide>(skip, count), "skipped", skip, timer.getSkip());
    }
    require(timer.getFrequency() == static_cast<double>(frequency), "frequency", perSecond);
    require(timer.getValue()[0] != '\0', "no text");
    timer.reset();
    require(timer.getCount() == clamped<int>(std::max<Wide>(-Wide{skip}, 0)), "reset", skip);
}

// Numbers.

void checkScaleOffset(Input& input) {
    ScaleOffset const a(anyDouble(input), anyDouble(input));
    ScaleOffset const b(anyDouble(input), anyDouble(input));
    bool const isNumber = !std::isnan(a.getScale()) && !std::isnan(a.getOffset());
    require((a == a) == isNumber, "equal to itself", a);
    require((a == b) == (b == a), "equality goes both ways", a, b);
    double const x = anyDouble(input);
    static_cast<void>(ScaleOffset::getComposition(a, b).convertDouble(x));
    static_cast<void>(ScaleOffset::getDifference(a, b).getInverse().convertFloat(anyFloat(input)));
    ClosedRange<1, double> const source{anyDouble(input), anyDouble(input)};
    ClosedRange<1, double> const target{anyDouble(input), anyDouble(input)};
    ScaleOffset between;
    bool const isMade = succeeds(0, [&] { between = ScaleOffset::getRangeTransform(source, target); });
    bool const isTame = std::abs(source.min) < 1e3 && std::abs(source.max) < 1e3 && std::abs(target.min) < 1e3 &&
                        std::abs(target.max) < 1e3 && std::abs(source.max - source.min) > 0.1;
    if (isTame) {
        require(isMade, "refused", source, target);
        require(std::abs(between.convertDouble(source.min) - target.min) < 1e-6, "lower end", source, target, between);
        require(std::abs(between.convertDouble(source.max) - target.max) < 1e-3, "upper end", source, target, between);
    }
}

void checkHasher(Input& input) {
    Hasher hasher(input.take<unsigned>());
    auto expected = static_cast<std::uint64_t>(static_cast<unsigned>(static_cast<int>(hasher)));
    for (int steps = input.between(0, 9); steps > 0; --steps) {
        unsigned const value = input.take<unsigned>();
        if (input.flag()) {
            hasher(value);
            expected = (expected + value) * 0x9E3779B9u + 5;
        } else {
            std::string const text(static_cast<std::size_t>(value % 5), static_cast<char>(value >> 8));
            hasher(text);
            for (std::size_t at = 0; at < text.size() && text[at] != '\0'; ++at) {
                expected = expected * 5 + static_cast<std::uint64_t>(std::int64_t{static_cast<signed char>(text[at])});
            }
        }
        require(static_cast<unsigned>(static_cast<int>(hasher)) == static_cast<unsigned>(expected), "hash", value);
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    RequestSize::limit() = kMostGranted;
    switch (input.between(0, 5)) {
    case 0: {
        Block const block(input);
        checkMake(block);
        checkWrap(block, input);
        checkDense(block.range);
        checkAccessor(block, input);
        break;
    }
    case 1:
        checkBuffer(input);
        break;
    case 2:
        checkBoxes(input);
        checkScaleOffset(input);
        checkHasher(input);
        break;
    case 3:
        checkTimer(input);
        break;
    default:
        checkHistograms(input);
    }
    RequestSize::limit() = std::numeric_limits<std::size_t>::max();
    return 0;
}
