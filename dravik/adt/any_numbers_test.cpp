// SPDX-License-Identifier: Apache-2.0
// Whatever counts, measures and maps, with any numbers of its type, against arithmetic in 128 bits: the result, or an
// error with a text, and never a request for more memory than the numbers explain.

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/array_view_converter.h"
#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/statistics/histogram.h"

#include "dravik/adt/testing/failing_allocator.h"
#include "dravik/adt/testing/lending_accessor.h"
#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numeric>
#include <optional>

namespace Quorvel::Dravik::Adt {
namespace {

using BulkDef::View::ArraySubsetDef;
using BulkView::AdtEnums;
using BulkView::BufferHandle;
using Extent = ExtentImpl<int>;
using Testing::Random;
using Testing::RequestSize;
__extension__ typedef __int128 Wide;

constexpr Wide kMostBytes = UINT32_MAX;
constexpr std::size_t kMostGranted = 1 << 20;  // bytes
constexpr std::size_t kText = 1 << 12;         // bytes that the text of an error may take

// Takes `law` through many rounds, under a limit of memory.
template <class Law>
void holds(Law law) {
    RequestSize::limit() = kMostGranted;
    std::shared_ptr<void> const atEnd(nullptr, [](void*) { RequestSize::limit() = SIZE_MAX; });
    Random random;
    for (int round = 0; round < 20000 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE(round);
        law(random);
    }
}

// Whether act() runs through without asking for more than `explained` bytes at once.
template <class Act>
bool succeeds(Wide explained, Act act) {
    RequestSize::largest() = 0;
    bool isDone = true;
    try {
        act();
    } catch (std::exception const& error) {
        EXPECT_STRNE(error.what(), "");
        isDone = false;
    }
    EXPECT_TRUE(Wide(RequestSize::largest()) <= std::max<Wide>(explained, kText)) << RequestSize::largest() << " bytes";
    return isDone;
}

bool isInt(Wide value) {
    return INT_MIN <= value && value <= INT_MAX;
}

Wide indexAt(Extent const& extent, Wide place) {
    return extent.origin + place * extent.step;
}

// The place of an index, if the extent has it.
std::optional<Wide> placeOf(Extent const& extent, Wide index) {
    Wide const step = extent.step == 0 ? 1 : extent.step;
    Wide const place = (index - extent.origin) / step;
    bool const isThere =
        place * step + extent.origin == index && place >= 0 && place < extent.count && (extent.step != 0 || place == 0);
    return isThere ? std::optional(place) : std::nullopt;
}

// Whether every index is an int, and no two are the same.
bool isProper(Extent const& extent) {
    return extent.count <= 0 || (isInt(indexAt(extent, extent.count - 1)) && (extent.step != 0 || extent.count == 1));
}

// Any, or with all indices in int.
Extent anyExtent(Random& random) {
    int const step = random.chance(50) ? random.between(-3, 3) : random.anyInt();
    if (random.chance(30)) {
        return {random.anyInt(), step, random.anyInt()};
    }
    Wide const most = INT_MAX / std::max<Wide>(step < 0 ? -Wide{step} : step, 1);
    int const count = static_cast<int>(random.chance(50) ? std::min<Wide>(most, 9) : most) - random.between(0, 3);
    return {step < 0 ? INT_MAX - random.between(0, 9) : random.between(-9, 0), step, std::max(count, 0)};
}

// A place near one of the ends of a count of at least one.
int somePlace(Random& random, int count) {
    int const near = std::min(random.between(0, 3), count - 1);
    return random.chance(50) ? near : count - 1 - near;
}

void intersectExactly(Extent const& a, Extent const& b, Random& random) {
    Extent const common = a.intersection(b);
    SCOPED_TRACE(testing::Message() << a << " and " << b << " share " << common);
    EXPECT_GE(common.count, 0);
    EXPECT_TRUE(common.count < 2 || (a.step < 0) == (common.step < 0)) << "direction";
    Wide const stepA = a.step == 0 ? 1 : a.step, stepB = b.step == 0 ? 1 : b.step;
    Wide const multiple = stepA / std::gcd(static_cast<std::int64_t>(stepA), static_cast<std::int64_t>(stepB)) * stepB;
    // A common step that leaves int keeps one index.
    bool const isCut = common.count == 1 && !isInt((multiple < 0) == (a.step < 0) ? multiple : -multiple);
    for (Extent const& side : {common, a, b}) {
        for (int round = 0; round < 4 && side.count > 0; ++round) {
            Wide const index = indexAt(side, somePlace(random, side.count));
            bool const isShared = placeOf(a, index) && placeOf(b, index) && isInt(index);
            if (!isShared || !isCut) {
                EXPECT_EQ(placeOf(common, index).has_value(), isShared) << std::int64_t(index);
            }
        }
    }
}

TEST(AnyNumbers, RelateExtents) {
    holds([](Random& random) {
        Extent const a = anyExtent(random), b = anyExtent(random);
        intersectExactly(a, b, random);
        intersectExactly(b, a, random);
        bool const isInside = a.contains(b);
        EXPECT_EQ(b.relativeTo(a).count, isInside ? std::max(b.count, 0) : 0) << a << b;
        EXPECT_TRUE(!isInside || b.count <= 0 || placeOf(a, indexAt(b, somePlace(random, b.count)))) << a << b;
        EXPECT_EQ(a.reversed().isEmpty(), a.isEmpty()) << a;
        int const value = random.anyInt();
        int const place = a.nearestIndex(value);
        auto const distance = [&](Wide at) { return std::abs(static_cast<std::int64_t>(indexAt(a, at) - value)); };
        EXPECT_EQ(place, a.count <= 0 ? -1 : std::clamp(place, 0, a.count - 1)) << a;
        if (a.count > 0 && a.step != 0) {
            EXPECT_LE(distance(place), distance(std::max(place - 1, 0))) << a << value;
            EXPECT_LE(distance(place), distance(std::min(place + 1, a.count - 1))) << a << value;
        }
    });
}

// A block of two axes as its numbers describe it.
struct Block {
    explicit Block(Random& random) {
        for (int axis = 0; axis < 2; ++axis) {
            bool const isSmall = random.chance(50);
            range.min[axis] = random.anyInt();
            range.max[axis] =
                isSmall ? static_cast<int>(std::min(Wide{range.min[axis]} + 5, Wide{INT_MAX})) : random.anyInt();
            strides[axis] = isSmall ? random.between(-20, 20) : random.anyInt();
            (strides[axis] < 0 ? low : high) +=
                std::max<Wide>(Wide{range.max[axis]} - range.min[axis] - 1, 0) * strides[axis];
        }
        bitSize = random.chance(70) ? random.between(1, 64) : random.anyInt();
    }
    // Of a buffer in which the sample at range.min lies at `first`.
    Wide byteSize(Wide first) const { return std::max<Wide>(((first + high + 1) * bitSize + 7) / 8, 0); }
    bool fitsFrom(Wide first) const { return first + low >= 0 && isInt(first) && byteSize(first) <= kMostBytes; }

    OpenEndedRange<2, int> range;
    FixedVector<2, int> strides;
    int bitSize;
    Wide low = 0, high = 0;  // from the sample at range.min to the lowest and the highest one
};

TEST(AnyNumbers, MakeArrays) {
    holds([](Random& random) {
        Block const block(random);
        SCOPED_TRACE(testing::Message() << block.range << block.strides << block.bitSize);
        ArrayConstRef<2> const described(block.range, block.strides, nullptr, 0, typeid(void), block.bitSize);
        Wide const origin = -Wide{block.range.min[0]} * block.strides[0] - Wide{block.range.min[1]} * block.strides[1];
        EXPECT_EQ(static_cast<std::uint64_t>(origin), static_cast<std::uint64_t>(described.originOffset()));
        constexpr Wide kFar = INT64_MAX / 512;
        if (-kFar < block.low && block.high < kFar) {
            EXPECT_EQ(described.linearBounds().min[0], static_cast<std::int64_t>(block.low));
            EXPECT_EQ(described.linearBounds().max[0], static_cast<std::int64_t>(block.high + 1));
        }
        Wide const bytes = block.byteSize(-block.low);
        bool const isPossible = block.bitSize > 0 && block.fitsFrom(-block.low);
        SharedArray<2> array;
        bool const isMade = succeeds(isPossible ? bytes + kText : Wide{0}, [&] {
            array = SharedArray<2>::Make(block.range, block.strides, typeid(void), block.bitSize);
        });
        EXPECT_EQ(isMade, isPossible && bytes <= kMostGranted);
        EXPECT_TRUE(!isMade || array.buffer().getBufferByteSize() == bytes);
        EXPECT_TRUE(!isMade || array.bufferOffset() == -block.low);
        std::size_t const given =
            random.chance(50) ? random.between(0u, 255u) : random.between<std::size_t>(0, SIZE_MAX);
        char memory = 0;
        bool const isWrapped = succeeds(
            0, [&] { SharedArray<2>::Wrap(&memory, given, block.range, block.strides, typeid(void), block.bitSize); });
        EXPECT_EQ(isWrapped, isPossible && (block.range.isEmpty() || bytes <= given)) << given;
    });
}

TEST(AnyNumbers, LendArrays) {
    holds([](Random& random) {
        Block const block(random);
        int const first = random.chance(50) ? random.between(0, 9) : random.anyInt();
        SharedArray<2> array(
            ArrayRef<2>(block.range, block.strides, nullptr, first, typeid(void), block.bitSize), SharedBuffer());
        std::uint32_t const present = random.chance(50) ? random.between(0u, 255u) : random.between(0u, UINT32_MAX);
        bool const hasBuffer = random.chance(50);
        if (hasBuffer) {
            array.setBuffer(SharedBuffer(new SharedBuffer::BasicArrayOwner(present)));
        }
        Wide const bytes = block.byteSize(first);
        Wide const wanted = hasBuffer ? Wide{present} : bytes;
        bool const isPossible = first + block.low >= 0 && bytes <= kMostBytes;
        BulkView::Accessors::MemoryAccessor accessor(array);
        EXPECT_EQ(succeeds(0, [&] { accessor.getSize(); }), hasBuffer);
        BufferHandle handle;
        bool const isLent = succeeds(isPossible ? wanted + kText : Wide{0}, [&] {
            accessor.getBuffer(
                {random.anyInt(), 0, 0, 0}, random.oneOf({AdtEnums::Write, AdtEnums::ReadWrite}), handle);
        });
        EXPECT_EQ(isLent, isPossible && (bytes > wanted || wanted <= kMostGranted)) << array << present << hasBuffer;
        EXPECT_TRUE(!isLent || handle.isNull() == (bytes > wanted)) << array << present << hasBuffer;
    });
}

TEST(AnyNumbers, IntersectBoxes) {
    holds([](Random& random) {
        OpenEndedRange<3, int> a, b;
        Wide common = 1;
        for (int axis = 0; axis < 3; ++axis) {
            for (int* bound : {&a.min[axis], &a.max[axis], &b.min[axis], &b.max[axis]}) {
                *bound = random.anyInt();
            }
            // Each factor is below 2^32, so the product of three stays below 2^96.
            common *= std::max<Wide>(Wide{std::min(a.max[axis], b.max[axis])} - std::max(a.min[axis], b.min[axis]), 0);
        }
        auto shared = a;
        shared.intersect(b);
        EXPECT_EQ(shared.pointCount(), static_cast<std::int64_t>(std::min<Wide>(common, INT64_MAX))) << a << b;
        EXPECT_EQ(a.intersects(b), common > 0) << a << b;
        EXPECT_EQ(a.contains(shared.min) && b.contains(shared.min), common > 0) << a << b << shared;
    });
}

TEST(AnyNumbers, MapThroughSubsets) {
    holds([](Random& random) {
        Extent const seen = anyExtent(random), wanted = anyExtent(random);
        ArraySubsetDef<1> const view{ExtentK<1, int>(seen)};
        Extent const inTarget = view.viewToTargetAxisExtent({0, wanted}).second;
        Extent const inView = view.targetToViewAxisExtent({0, wanted}).second;
        if (!isProper(seen) || !isProper(wanted)) {
            return;
        }
        SCOPED_TRACE(testing::Message() << wanted << " of " << seen << " is " << inTarget << ", seen as " << inView);
        EXPECT_TRUE(seen.count > 0 || (inTarget.isEmpty() && inView.isEmpty()));
        if (!inTarget.isEmpty()) {
            // Steps that leave int wrap, and so do the indices that they lead to.
            auto const place = placeOf(seen, static_cast<int>(indexAt(inTarget, somePlace(random, inTarget.count))));
            EXPECT_TRUE(place) << "a target index out of nowhere";
            EXPECT_TRUE(placeOf(wanted, *place)) << "a target index out of nowhere";
        }
        if (!inView.isEmpty()) {
            Wide const at = indexAt(inView, somePlace(random, inView.count));
            EXPECT_GE(at, 0) << "not wanted";
            EXPECT_LT(at, seen.count) << "not wanted";
            EXPECT_TRUE(placeOf(wanted, indexAt(seen, at))) << "not wanted";
        }
        if (!wanted.isEmpty()) {
            Wide const index = indexAt(wanted, somePlace(random, wanted.count));
            bool const isMapped = inTarget.count < 2 || isInt(indexAt(inTarget, inTarget.count - 1));
            bool const isInView = index >= 0 && index < seen.count && isMapped;
            EXPECT_TRUE(!isInView || placeOf(inTarget, indexAt(seen, index))) << "lost in the target";
            auto const place = placeOf(seen, index);
            EXPECT_TRUE(!place || inView.count == 1 || placeOf(inView, *place)) << "lost in the view";
        }
    });
}

using Block4 = BufferHandle::ArrayInfo;

Wide positionIn(Block4 const& block, auto const& indexAlong) {
    Wide position = block.offset;
    for (int axis = 0; axis < 4; ++axis) {
        position += (indexAlong(axis) - block.range.min[axis]) * block.strides[axis];
    }
    return position;
}

// What is shown of a block lies in the subset and in the block, and its last sample where the block has it.
void areSamplesOf(Block4 const& block, Block4 const& shown, ExtentK<4, int> const& subset) {
    for (int axis = 0; axis < 4 && !shown.range.isEmpty(); ++axis) {
        EXPECT_GE(shown.range.min[axis], 0) << shown;
        EXPECT_LE(shown.range.max[axis], subset[axis].count) << shown;
        auto const here = [&](int along) { return Wide{shown.range.max[along]} - 1; };
        auto const below = [&](int along) { return indexAt(subset[along], here(along)); };
        EXPECT_LE(block.range.min[axis], below(axis)) << shown;
        EXPECT_LT(below(axis), block.range.max[axis]) << shown;
        EXPECT_TRUE(positionIn(shown, here) == positionIn(block, below)) << shown;
    }
}

// A subset of a target that lends one block, whatever is asked: each sample stays at its position.
TEST(AnyNumbers, RelabelBlocks) {
    holds([](Random& random) {
        ExtentK<4, int> subset;
        FixedVector<4, int> size, asked;
        Block4 block;
        bool isInside = true;
        for (int axis = 0; axis < 4; ++axis) {
            size[axis] = random.chance(50) ? random.between(1, 9) : random.anyInt();
            subset[axis] = random.chance(60) ? Extent{0, 1, std::max(size[axis], 1)} : anyExtent(random);
            bool const isWhole = random.chance(70);
            block.range.min[axis] = isWhole ? 0 : random.anyInt();
            block.range.max[axis] = isWhole ? size[axis] : random.anyInt();
            block.strides[axis] = random.chance(70) ? random.between(-9, 9) : random.anyInt();
            Wide const last = indexAt(subset[axis], Wide{subset[axis].count} - 1);
            isInside = isInside && isProper(subset[axis]) && subset[axis].count > 0 && subset[axis].origin >= 0 &&
                       subset[axis].origin < size[axis] && last >= 0 && last < size[axis];
            asked[axis] = isInside ? somePlace(random, subset[axis].count) : 0;
        }
        SCOPED_TRACE(testing::Message() << subset << " of " << size << ", lent " << block);
        auto const lend = [&](FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
            EXPECT_TRUE((OpenEndedRange<4, int>::OfSize(size).contains(position))) << position;
            handle.update(nullptr, block, access);
        };
        std::unique_ptr<BulkView::IBufferAccessor> filter;
        bool const isMade = succeeds(kText, [&] {
            auto target = std::make_unique<Testing::LendingAccessor>(size, lend);
            filter = BulkView::Filters::SubsetFilter::MakeSubset(std::move(target), subset);
        });
        EXPECT_EQ(isMade, isInside);
        BufferHandle handle;
        bool const isSubset = dynamic_cast<BulkView::Filters::SubsetFilter*>(filter.get()) != nullptr;
        if (!isSubset || !succeeds(0, [&] { filter->getBuffer(asked, AdtEnums::Read, handle); })) {
            return;  // the whole of a target is shown by the target itself
        }
        areSamplesOf(block, handle.infoSnapshot(), subset);
    });
}

float anyFloat(Random& random) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    float const small = static_cast<float>(random.between(-40, 40)) / 4;
    return random.oneOf(
        {small, small, small, NAN, kInfinity, -kInfinity, FLT_MAX, -FLT_MAX, small * FLT_TRUE_MIN,
         std::bit_cast<float>(random.between(0u, UINT32_MAX))});
}

TEST(AnyNumbers, AreAllCountedInHistograms) {
    holds([](Random& random) {
        unsigned const resolution = static_cast<unsigned>(random.between(1, 40));
        auto const kind = random.chance(50);
        float const low = anyFloat(random), high = anyFloat(random);
        Histogram histogram = kind ? Histogram(Histogram::fixed, low, high, resolution)
                                   : Histogram(Histogram::flexible, low, high, resolution);
        Histogram atOnce = histogram;
        std::vector<float> samples(random.between<std::size_t>(0, 40));
        std::generate(samples.begin(), samples.end(), [&] { return anyFloat(random); });
        std::for_each(samples.begin(), samples.end(), [&](float sample) { histogram.add(sample); });
        atOnce.add(samples);
        EXPECT_EQ(atOnce, histogram);
        auto const counted = [](Histogram const& h) { return h.nofSamples() + h.underflows() + h.overflows(); };
        auto const isNumber = [](float sample) { return !std::isnan(sample); };
        EXPECT_EQ(counted(histogram), std::count_if(samples.begin(), samples.end(), isNumber)) << histogram;
        std::int64_t inBins = 0;
        for (unsigned bin = 0; bin <= histogram.resolution(); ++bin) {
            inBins += histogram.nofSamples(bin);
        }
        EXPECT_EQ(inBins, histogram.nofSamples()) << histogram;
        EXPECT_EQ(histogram.bins(7, low, high), histogram.bins(7, high, low)) << histogram;
        Histogram merged = histogram;
        merged.merge(atOnce);
        EXPECT_EQ(counted(merged), 2 * counted(histogram)) << merged;
    });
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
