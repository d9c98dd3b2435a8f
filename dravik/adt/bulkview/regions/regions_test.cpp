// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/region.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/regions/gather.h"
#include "dravik/adt/bulkview/regions/lent_blocks.h"
#include "dravik/adt/bulkview/regions/padding.h"
#include "dravik/adt/bulkview/regions/region_histogram.h"
#include "dravik/adt/converters/int1.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/cancelled_exception.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <thread>
#include <type_traits>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::BrickAccessor;
using Testing::BrickOptions;
using Testing::PlainArray;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Box = OpenEndedRange<4, int>;
using Extent1 = ExtentImpl<int>;
using Extent4 = ExtentK<4, int>;
using Index = FixedVector<4, int>;
using Index1 = FixedVector<1, int>;

Extent4 extentOf(Extent1 a, Extent1 b, Extent1 c, Extent1 d = {0, 1, 1}) {
    return {a, b, c, d};
}

Extent1 randomExtent(Testing::Random& random, int size) {
    int const step = random.oneOf({-3, -2, -1, 1, 1, 2, 3});
    int const origin = random.between(0, size - 1);
    int const room = (step > 0 ? size - 1 - origin : origin) / std::abs(step);
    return {origin, step, random.between(1, room + 1)};
}

Extent4 randomExtent(Testing::Random& random, Index const& size) {
    Extent4 extent;
    for (int axis = 0; axis < 4; ++axis) {
        extent[axis] = randomExtent(random, size[axis]);
    }
    return extent;
}

Index indexAt(Extent4 const& extent, Index place) {
    for (int axis = 0; axis < 4; ++axis) {
        place[axis] = extent[axis].origin + place[axis] * extent[axis].step;
    }
    return place;
}

// An array of T with axes in any order, padding and direction, in memory of which every byte is told apart.
template <class T>
struct Strided {
    Strided(Testing::Random& random, Extent4 const& extent) {
        int axes[] = {0, 1, 2, 3};
        std::shuffle(axes, axes + 4, random.engine());
        Index strides;
        int reach = random.oneOf({1, 1, 2, 3});
        int offset = random.between(0, 3);
        for (int const axis : axes) {
            int const count = extent[axis].count;
            bool const isBackwards = random.chance(30);
            strides[axis] = isBackwards ? -reach : reach;
            offset += isBackwards ? reach * (count - 1) : 0;
            reach = reach * count + (random.chance(30) ? random.between(1, 3) : 0);
            box.min[axis] = random.between(-2, 2);
            box.max[axis] = box.min[axis] + count;
        }
        memory.resize(static_cast<std::size_t>(reach + 4), static_cast<T>(99));
        ref = ArrayRef<4>(
            box, strides, reinterpret_cast<char*>(memory.data()), offset, typeid(T), static_cast<int>(8 * sizeof(T)));
    }
    T& at(Index const& place) { return memory.at(static_cast<std::size_t>(ref.position(box.min + place))); }

    Box box;
    std::vector<T> memory;
    ArrayRef<4> ref;
};

// Memory or bricks of any shape.
template <class T>
Accessor randomBottom(Testing::Random& random, Index const& size) {
    PlainArray<T> data(size);
    data.fill(random, 98);
    if (random.chance(40)) {
        auto const array = SharedArray<4>::Make<T>(data.box());
        std::copy(data.samples().begin(), data.samples().end(), reinterpret_cast<T*>(array.data()));
        return std::make_unique<Accessors::MemoryAccessor>(array);
    }
    BrickOptions options;
    options.fastestAxis = random.between(0, 3);
    options.padding = random.between(0, 2);
    options.backwards = random.chance(30);
    options.invalidatesEvery = random.oneOf({0, 0, 3});
    for (int& length : options.brickSize) {
        length = random.between(1, 6);
    }
    return std::make_unique<BrickAccessor<T>>(data, options);
}

template <class From, class To>
Accessor converted(Accessor chain) {
    using Converters::ValueConverterFactory;
    return Filters::ValueConvertFilter::Apply(
        std::move(chain), sizeof(To), ValueConverterFactory::getTypeConverter(typeid(From), typeid(To)),
        ValueConverterFactory::getTypeConverter(typeid(To), typeid(From)));
}

// 0 to 4 filters. One in two chains holds another type at its bottom, as far as that converts to T and back.
template <class T>
Accessor randomChain(Testing::Random& random) {
    using Stored = std::conditional_t<
        std::is_same_v<T, std::uint64_t>, T, std::conditional_t<std::is_same_v<T, double>, short, double>>;
    Index const size(random.between(1, 9), random.between(1, 9), random.between(1, 40), random.between(1, 5));
    int filters = random.between(0, 4);
    int const converting = std::is_same_v<T, Stored> ? 0 : random.between(0, filters);
    Accessor chain = converting > 0 ? randomBottom<Stored>(random, size) : randomBottom<T>(random, size);
    for (; filters > 0; --filters) {
        // Above a converter a cache would keep what nobody tells it about.
        int const kind = random.between(filters < converting ? 1 : 0, 2);
        if (filters == converting) {
            chain = converted<Stored, T>(std::move(chain));
        } else if (kind == 0) {
            chain = Filters::CacheFilter::Apply(std::move(chain), random.between(1, 99), -1, -1);
        } else if (kind == 1) {
            auto const extent = randomExtent(random, chain->getSize());
            chain = Filters::SubsetFilter::MakeSubset(std::move(chain), extent);
        } else {
            chain = Filters::ProxyFilter::MakeProxy(std::move(chain), nullptr);
        }
    }
    return chain;
}

// With helpers that are done before the caller begins, so that everything is left to them that may be.
TransferOptions randomOptions(Testing::Random& random) {
    TransferOptions options;
    options.workers = random.between(1, 3);
    options.executor = [](std::function<void()> const& task) { std::thread(task).join(); };
    return options;
}

template <class T>
T sampleOf(IBufferAccessor& accessor, Index const& index) {
    BufferHandle handle;
    std::uint64_t notices = 0;
    do {
        handle.reset(/*releaseOwner=*/true);
        notices = handle.notices();
        accessor.getBuffer(index, AdtEnums::Read, handle);
    } while (!handle.standsSince(notices));
    return static_cast<T const*>(handle.buffer())[handle.offset(index)];
}

// Points of any order, some of them twice.
template <class T>
void expectGathered(Testing::Random& random, IBufferAccessor& chain) {
    auto const size = chain.getSize();
    std::vector<Index> indices(static_cast<std::size_t>(random.between(0, 40)));
    for (Index& index : indices) {
        std::transform(size.begin(), size.end(), index.begin(), [&](int n) { return random.between(0, n - 1); });
    }
    int const count = static_cast<int>(indices.size());
    std::vector<T> samples(indices.size() * 2 + 1, T{99});
    gatherSamples(
        chain, indices,
        ArrayRef<1>(
            {Index1(5), Index1(5 + count)}, Index1(-2), reinterpret_cast<char*>(samples.data()), 2 * count, typeid(T),
            static_cast<int>(8 * sizeof(T))));
    for (std::size_t at = 0; at < indices.size(); ++at) {
        ASSERT_EQ(samples[2 * (indices.size() - at)], sampleOf<T>(chain, indices[at])) << indices[at];
        ASSERT_EQ(samples[2 * at + 1], T{99});
    }
}

// An index outside walks to the one it stands for, one step at a time.
int walked(int index, int size, Boundary boundary) {
    while (index < 0 || index >= size) {
        switch (boundary) {
        case Boundary::Constant:
            return -1;
        case Boundary::Nearest:
            index += index < 0 ? 1 : -1;
            break;
        case Boundary::Reflect:
            index = size == 1 ? 0 : index < 0 ? -index : 2 * (size - 1) - index;
            break;
        case Boundary::Wrap:
            index += index < 0 ? size : -size;
            break;
        }
    }
    return index;
}

template <class T>
void expectPadded(Testing::Random& random, IBufferAccessor& chain) {
    auto const boundary = random.oneOf({Boundary::Constant, Boundary::Nearest, Boundary::Reflect, Boundary::Wrap});
    auto const size = chain.getSize();
    Extent4 region;
    for (int axis = 0; axis < 4; ++axis) {
        region[axis] = {random.between(-8, size[axis] + 4), random.oneOf({-2, -1, 1, 1, 3}), random.between(1, 7)};
    }
    Strided<T> read(random, region);
    readPadded(chain, region, read.ref, boundary);
    Testing::forEachIndex({Index(), read.box.max - read.box.min}, [&](Index const& place) {
        auto index = indexAt(region, place);
        for (int axis = 0; axis < 4; ++axis) {
            index[axis] = walked(index[axis], size[axis], boundary);
        }
        bool const isInside = Box::OfSize(size).contains(index);
        EXPECT_EQ(read.at(place), isInside ? sampleOf<T>(chain, index) : T{99})
            << region << " of " << size << " at " << place << ", boundary " << static_cast<int>(boundary);
        return !testing::Test::HasFailure();
    });
}

// Blocks on loan show every sample of a box once.
template <class T>
void expectLent(Testing::Random& random, IBufferAccessor& chain) {
    PlainArray<int> seen(chain.getSize());
    Box range;
    for (int axis = 0; axis < 4; ++axis) {
        range.min[axis] = random.between(0, seen.size()[axis] - 1);
        range.max[axis] = random.between(range.min[axis], seen.size()[axis]);
    }
    PlainArray<T> expected(seen.size());
    Testing::forEachIndex(range, [&](Index const& at) { return expected.at(at) = sampleOf<T>(chain, at), true; });
    for (auto const& block : LentBlocks(chain, range, typeid(T), static_cast<int>(8 * sizeof(T)))) {
        auto const* const samples = reinterpret_cast<T const*>(block.samples.data());
        Testing::forEachIndex(block.box, [&](Index const& index) {
            EXPECT_EQ(samples[block.samples.position(index)], expected.at(index)) << index << " of " << range;
            return ++seen.at(index), !testing::Test::HasFailure();
        });
    }
    EXPECT_EQ(std::count(seen.samples().begin(), seen.samples().end(), 1), range.pointCount()) << range;
    EXPECT_EQ(
        std::count(seen.samples().begin(), seen.samples().end(), 0) + range.pointCount(), seen.box().pointCount());
}

// Reads a region, writes other samples to it, and finds both as the protocol shows them, sample by sample.
template <class T>
void expectRegionsAreTheirSamples(Testing::Random& random) {
    auto const chain = randomChain<T>(random);
    auto const options = randomOptions(random);
    auto const region = randomExtent(random, chain->getSize());
    SCOPED_TRACE(
        (std::ostringstream() << Adt::Detail::sampleTypeName(typeid(T)) << ' ' << region << " of " << chain->getSize())
            .str());
    Strided<T> read(random, region), expected = read, written(random, region);
    Box const places{Index(), read.box.max - read.box.min};
    expected.ref.setData(reinterpret_cast<char*>(expected.memory.data()));
    Testing::forEachIndex(places, [&](Index const& place) {
        expected.at(place) = sampleOf<T>(*chain, indexAt(region, place));
        return true;
    });
    readRegion(*chain, region, read.ref, options);
    ASSERT_EQ(read.memory, expected.memory) << "samples, and all beside them";

    expectGathered<T>(random, *chain);
    expectPadded<T>(random, *chain);
    expectLent<T>(random, *chain);
    std::generate(written.memory.begin(), written.memory.end(), [&] { return static_cast<T>(random.between(0, 98)); });
    PlainArray<T> after(chain->getSize());
    Testing::forEachIndex(after.box(), [&](Index const& index) {
        after.at(index) = sampleOf<T>(*chain, index);
        return true;
    });
    writeRegion(*chain, region, written.ref, options);
    flush(*chain);
    Testing::forEachIndex(places, [&](Index const& place) {
        after.at(indexAt(region, place)) = written.at(place);
        return true;
    });
    Testing::forEachIndex(after.box(), [&](Index const& index) {
        EXPECT_EQ(sampleOf<T>(*chain, index), after.at(index)) << index;
        return !testing::Test::HasFailure();
    });
}

template <class... Types>
void expectRegionsOfAllTypes(Testing::Random& random) {
    (expectRegionsAreTheirSamples<Types>(random), ...);
}

TEST(Regions, AreTheirSamplesThroughAnyChain) {
    Testing::Random random;
    for (int round = 0; round < 60 && !testing::Test::HasFailure(); ++round) {
        expectRegionsOfAllTypes<
            char, unsigned char, short, unsigned short, int, unsigned, std::int64_t, std::uint64_t, float, double>(
            random);
    }
}

// A cube as large as several tiles, from memory: every order of axes meets whole squares and what is left of them.
template <class T>
void expectTilesAreTheirSamples() {
    auto const box = Box::OfSize({3, 70, 131, 1});
    auto const array = SharedArray<4>::Make<T>(box);
    auto* const samples = reinterpret_cast<T*>(array.data());
    std::iota(samples, samples + box.pointCount(), T{});
    Accessors::MemoryAccessor accessor(array);
    for (int const step : {-2, -1, 1, 2}) {
        int const count = 131 / std::abs(step);
        Extent1 const last{step < 0 ? 130 : 0, step, count};
        Extent4 const region = extentOf({0, 1, 3}, {0, 1, 70}, last);
        for (Index const& strides :
             {Index(70 * count, 1, 70, 0), Index(1, 3, 210, 0), Index(70 * count, count, 1, 0)}) {
            std::vector<T> read(static_cast<std::size_t>(210 * count));
            ArrayRef<4> const ref(
                Box::OfSize({3, 70, count, 1}), strides, reinterpret_cast<char*>(read.data()), 0, typeid(T),
                static_cast<int>(8 * sizeof(T)));
            readRegion(accessor, region, ref);
            Testing::forEachIndex(ref.range(), [&](Index const& place) {
                EXPECT_EQ(
                    read[static_cast<std::size_t>(ref.position(place))],
                    samples[array.position(indexAt(region, place))])
                    << place << " step " << step << " strides " << strides << ", " << sizeof(T) << " bytes";
                return !testing::Test::HasFailure();
            });
        }
    }
}

TEST(Regions, AreTurnedInTiles) {
    expectTilesAreTheirSamples<unsigned char>();
    expectTilesAreTheirSamples<short>();
    expectTilesAreTheirSamples<int>();
    expectTilesAreTheirSamples<double>();
    expectTilesAreTheirSamples<long double>();
}

TEST(Regions, AskForEachWantedBrickOnce) {
    PlainArray<float> const data({12, 9, 20, 4});
    struct Row {
        char const* name;
        Extent4 region;
        int requests;
    };
    Row const rows[] = {
        {"Whole", Extent4(data.box()), 3 * 3 * 4 * 2},
        {"Backwards", extentOf({11, -1, 12}, {8, -1, 9}, {19, -1, 20}, {3, -1, 4}), 3 * 3 * 4 * 2},
        {"JumpsOverBricks", extentOf({0, 8, 2}, {1, 6, 2}, {0, 10, 2}, {0, 1, 1}), 2 * 2 * 2},
        {"Empty", extentOf({0, 1, 0}, {1, 6, 2}, {0, 10, 2}, {0, 1, 1}), 0},
    };
    for (Row const& row : rows) {
        BrickAccessor<float> bricks(data);
        Index size;
        std::transform(row.region.data(), row.region.data() + 4, size.begin(), [](auto const& a) { return a.count; });
        readRegion(bricks, row.region, SharedArray<4>::Make<float>(Box::OfSize(size)));
        EXPECT_EQ(bricks.requests(), row.requests) << row.name;
        EXPECT_EQ(bricks.client(), nullptr) << row.name;
    }
}

TEST(Regions, GatherEachBrickOnce) {
    PlainArray<float> data({12, 9, 20, 4});
    std::iota(data.samples().begin(), data.samples().end(), 0.0f);
    BrickAccessor<float> bricks(data);
    std::vector<Index> indices;
    Testing::forEachIndex(data.box(), [&](Index const& index) { return indices.push_back(index), true; });
    std::reverse(indices.begin(), indices.end());
    std::vector<float> samples(indices.size());
    ArrayRef<1> array(
        {Index1(0), Index1(static_cast<int>(indices.size()))}, Index1(1), reinterpret_cast<char*>(samples.data()), 0,
        typeid(float), 32);
    gatherSamples(bricks, indices, array);
    EXPECT_EQ(bricks.requests(), 3 * 3 * 4 * 2);
    EXPECT_TRUE(std::equal(samples.rbegin(), samples.rend(), data.samples().begin()));
    indices.back() = {0, 9, 0, 0};
    EXPECT_THROW(gatherSamples(bricks, indices, array), std::out_of_range);
    EXPECT_EQ(bricks.requests(), 3 * 3 * 4 * 2);
}

TEST(Regions, RefuseBeforeAnythingIsAsked) {
    PlainArray<float> const data({12, 9, 20, 4});
    BrickAccessor<float> bricks(data);
    auto const array = SharedArray<4>::Make<float>(Box::OfSize({2, 2, 2, 1}));
    auto const read = [&](Extent1 const& first, ArrayRef<4> const& to) {
        return [=, &bricks] { readRegion(bricks, extentOf(first, {0, 1, 2}, {0, 1, 2}, {0, 1, 1}), to); };
    };
    auto withoutMemory = ArrayRef<4>(array);
    withoutMemory.setData(nullptr);
    EXPECT_THAT(read({0, 1, 3}, array), testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr("0:1:3")));
    EXPECT_THAT(read({0, 1, 2}, withoutMemory), testing::Throws<std::invalid_argument>());
    EXPECT_THAT(read({3, 0, 2}, array), testing::Throws<std::invalid_argument>());
    EXPECT_THAT(read({11, 1, 2}, array), testing::ThrowsMessage<std::out_of_range>(testing::HasSubstr("12")));
    EXPECT_THAT(read({0, -1, 2}, array), testing::Throws<std::out_of_range>());
    EXPECT_THROW(LentBlocks(bricks, {{0, 0, 0, 0}, {1, 1, 21, 1}}, typeid(float), 32), std::out_of_range);
    EXPECT_EQ(bricks.requests(), 0);
    Accessors::MemoryAccessor floats(array);
    EXPECT_THROW(LentBlocks(floats, array.range(), typeid(int), 32), std::invalid_argument);
    Histogram untouched(Histogram::fixed, 0, 1, 4);
    EXPECT_THROW(addRegion(untouched, floats, extentOf({0, 1, 3}, {0, 1, 1}, {0, 1, 1})), std::out_of_range);
    auto const above = SharedArray<4>::Make<float>({{5, 0, 0, 0}, {7, 2, 2, 1}});
    Accessors::MemoryAccessor high(above);
    readRegion(high, Extent4(above.range()), array);
    EXPECT_THAT(
        [&] {
            readRegion(high, extentOf({4, 1, 2}, {0, 1, 2}, {0, 1, 2}), array);
        },
        testing::ThrowsMessage<std::out_of_range>(
            testing::AllOf(testing::HasSubstr("4:1:2"), testing::HasSubstr("[5,7)"))));
    EXPECT_THROW(
        readRegion(floats, Extent4(array.range()), SharedArray<4>::Make<int>(array.range())),
        Exceptions::NotImplementedException);
}

TEST(Regions, RefuseABlockBesideThePosition) {
    Testing::LendingAccessor elsewhere({9, 1, 1, 1}, [](Index const&, AdtEnums::Access access, BufferHandle& lent) {
        lent.update(nullptr, {Box::OfSize({4, 1, 1, 1}), {1, 0, 0, 0}, 0}, access);
    });
    auto const array = SharedArray<4>::Make<float>(Box::OfSize({9, 1, 1, 1}));
    EXPECT_THAT(
        [&] { readRegion(elsewhere, Extent4(array.range()), array); },
        testing::ThrowsMessage<std::logic_error>(testing::AllOf(testing::HasSubstr("[0,4)"), testing::HasSubstr("4"))));
    EXPECT_TRUE(std::isnan(*reinterpret_cast<float const*>(array.data()))) << "no memory reads as the null value";
}

TEST(Regions, StopAtTheNextBlock) {
    PlainArray<float> const data({12, 9, 20, 4});
    auto const array = SharedArray<4>::Make<float>(data.box());
    for (int const wanted : {1, 5, 71}) {
        BrickAccessor<float> bricks(data);
        std::stop_source stop;
        std::int64_t last = 0;
        TransferOptions options;
        options.stop = stop.get_token();
        options.progress = [&](std::int64_t done, std::int64_t total) {
            EXPECT_LT(std::exchange(last, done), done);
            EXPECT_EQ(total, data.box().pointCount());
            bricks.requests() == wanted&& stop.request_stop();
        };
        EXPECT_THROW(readRegion(bricks, Extent4(data.box()), array, options), Exceptions::CancelledException);
        EXPECT_EQ(bricks.requests(), wanted);
        EXPECT_EQ(bricks.client(), nullptr);
        readRegion(bricks, Extent4(data.box()), array);
        EXPECT_EQ(bricks.requests(), wanted + 72) << "the same call works again";
    }
}

// Samples that share a place: the region's last one stays, in whatever order the bricks come.
TEST(Regions, KeepTheLastSampleOfAPlace) {
    PlainArray<float> data({12, 9, 20, 4});
    std::iota(data.samples().begin(), data.samples().end(), 0.0f);
    BrickAccessor<float> bricks(data);
    float one = -1;
    for (int const step : {1, -1}) {
        Extent4 region(data.box());
        region[2] = {step < 0 ? 19 : 0, step, 20};
        readRegion(bricks, region, ArrayRef<4>(data.box(), {}, reinterpret_cast<char*>(&one), 0, typeid(float), 32));
        EXPECT_EQ(one, data.at({11, 8, step < 0 ? 0 : 19, 3}));
    }
}

TEST(Regions, ConvertWhereTheTypesDiffer) {
    auto const box = Box::OfSize({7, 90, 80, 1});
    auto const array = SharedArray<4>::Make<float>(box);
    auto* const samples = reinterpret_cast<float*>(array.data());
    std::iota(samples, samples + box.pointCount(), -300.25f);
    Accessors::MemoryAccessor accessor(array);
    auto const converter = Converters::ValueConverterFactory::getTypeConverter(typeid(float), typeid(short));
    for (Index const& strides : {Index(7200, 80, 1, 0), Index(1, 7, 630, 0), Index(7200, 1, 90, 0)}) {
        auto const read = SharedArray<4>::Make<short>(box, strides);
        readRegion(accessor, Extent4(box), read);
        Testing::forEachIndex(box, [&](Index const& place) {
            short expected = 0;
            converter->convert(samples + array.position(place), &expected);
            EXPECT_EQ(reinterpret_cast<short const*>(read.data())[read.position(place)], expected) << place;
            return !testing::Test::HasFailure();
        });
    }
}

TEST(Regions, MoveSingleBits) {
    auto const box = Box::OfSize({3, 5, 11, 1});
    auto const from = SharedArray<4>::Make(box, {70, 13, 1, 0}, typeid(Int1), 1);
    auto const to = SharedArray<4>::Make(box, {1, 3, 15, 0}, typeid(Int1), 1);
    auto const bit = [](SharedArray<4> const& bits, Index const& place) {
        auto const at = bits.position(place);
        return bits.data()[at / 8] >> (at % 8) & 1;
    };
    for (int k = 0; k < 24; ++k) {
        from.data()[k] = static_cast<char>(k * 73);
    }
    Accessors::MemoryAccessor accessor(from);
    readRegion(accessor, extentOf({2, -1, 3}, {0, 1, 5}, {10, -1, 11}, {0, 1, 1}), to);
    Testing::forEachIndex(box, [&](Index const& p) {
        EXPECT_EQ(bit(to, p), bit(from, {2 - p[0], p[1], 10 - p[2], 0})) << p;
        return !testing::Test::HasFailure();
    });
}

TEST(LentBlocks, TellWhetherABlockStands) {
    BrickAccessor<float> bricks(PlainArray<float>({12, 1, 1, 1}));
    LentBlocks blocks(bricks, Box::OfSize({12, 1, 1, 1}), typeid(float), 32);
    auto block = blocks.begin();
    bricks.change({7, 0, 0, 0}, 5);
    EXPECT_TRUE(blocks.stands()) << "another brick";
    bricks.change({1, 0, 0, 0}, 6);
    EXPECT_FALSE(blocks.stands());
    blocks.lendAgain();
    auto const& samples = block->samples;
    EXPECT_EQ(reinterpret_cast<float const*>(samples.data())[samples.position({1, 0, 0, 0})], 6);
    EXPECT_TRUE(blocks.stands());
    EXPECT_EQ((++block)->box, (Box{{4, 0, 0, 0}, {8, 1, 1, 1}}));
    EXPECT_EQ(bricks.requests(), 3);
}

// Address space without memory, so that places beyond 2^31 samples cost a page each.
struct FarMemory {
    FarMemory()
        : data(mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
    FarMemory(FarMemory const&) = delete;
    FarMemory& operator=(FarMemory const&) = delete;
    ~FarMemory() { munmap(data, kBytes); }

    static constexpr std::size_t kBytes = std::size_t{3} << 30;
    void* data;
};

TEST(Regions, ReachSamplesBeyondAnInt) {
    FarMemory const from, to;
    ASSERT_NE(from.data, MAP_FAILED);
    ASSERT_NE(to.data, MAP_FAILED);
    constexpr int kPlane = 1 << 30;
    Index const strides(kPlane, 1 << 14, 1, 0);
    auto const box = Box::OfSize({3, 1 << 16, 1 << 14, 1});
    auto* const stored = static_cast<char*>(from.data);
    stored[std::int64_t{3} * kPlane - 1] = 5;
    Accessors::MemoryAccessor whole(SharedArray<4>(
        ArrayRef<4>(box, strides, stored, 0, typeid(char), 8),
        SharedBuffer::createFromExternal(stored, static_cast<std::uint32_t>(FarMemory::kBytes), true)));
    Testing::LendingAccessor planes(box.max, [&](Index const& index, AdtEnums::Access access, BufferHandle& lent) {
        Box plane = box;
        plane.min[0] = index[0];
        plane.max[0] = index[0] + 1;
        lent.update(stored + std::ptrdiff_t{index[0]} * kPlane, {plane, strides, 0}, access);
    });
    auto* const samples = static_cast<char*>(to.data);
    ArrayRef<4> const far(Box::OfSize({3, 1, 2, 1}), {kPlane, 0, 1, 0}, samples, 0, typeid(char), 8);
    for (IBufferAccessor* const accessor :
         {static_cast<IBufferAccessor*>(&whole), static_cast<IBufferAccessor*>(&planes)}) {
        for (int const step : {1, -1}) {
            readRegion(*accessor, extentOf({step < 0 ? 2 : 0, step, 3}, {65535, 1, 1}, {16382, 1, 2}), far);
            std::int64_t const place = (step < 0 ? 0 : std::int64_t{2} * kPlane) + 1;
            EXPECT_EQ(std::exchange(samples[place], 0), 5) << "step " << step;
        }
    }
    EXPECT_EQ(bytesTouched(traitsOf(whole), Extent4(box)), std::int64_t{3} * kPlane);
}

TEST(AccessTraits, TellBytesOfWholeBlocks) {
    AccessTraits traits;
    EXPECT_EQ(bytesTouched(traits, extentOf({0, 1, 1}, {0, 1, 1}, {0, 1, 1}, {0, 1, 1})), -1);
    traits.bitSize = 32;
    traits.naturalBlock = {10, 0, 10, 1};
    traits.blockOrigin = {3, 0, 0, 0};
    struct Row {
        Extent1 first;
        std::int64_t bytes;
    };
    for (Row const& row :
         {Row{{0, 1, 4}, 20}, {{3, 1, 10}, 10}, {{12, -1, 10}, 10}, {{0, 25, 3}, 30}, {{0, 1, 0}, 0}}) {
        EXPECT_EQ(bytesTouched(traits, extentOf(row.first, {0, 3, 7}, {5, 1, 1}, {0, 1, 1})), row.bytes * 7 * 10 * 4)
            << row.first;
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
