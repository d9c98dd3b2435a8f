#include "dravik/adt/bulkview/filters/value_convert_filter.h"

#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/failing_calls.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <cmath>
#include <numeric>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Converters::ValueConverterFactory;
using Testing::BrickAccessor;
using Testing::BrickOptions;
using testing::ElementsAre;
using Testing::forEachIndex;
using Testing::LendingAccessor;
using Testing::PlainArray;
using testing::ThrowsMessage;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Box = OpenEndedRange<4, int>;
using ConverterPtr = IValueConverter::ConstPtr;
using Index = FixedVector<4, int>;

template <class From, class To>
ConverterPtr converter(ScaleOffset const& transform = ScaleOffset()) {
    return ValueConverterFactory::getTypeConverter(typeid(From), typeid(To), transform, /*copyIfSame=*/true);
}

// `target`, of samples T, shown as samples S.
template <class T, class S>
Accessor shownAs(Accessor target, ScaleOffset const& transform = ScaleOffset()) {
    return ValueConvertFilter::Apply(
        std::move(target), sizeof(S), converter<T, S>(transform), converter<S, T>(transform.getInverse()));
}

template <class S>
S& sampleOf(BufferHandle& handle, Index const& position) {
    return static_cast<S*>(handle.buffer())[handle.offset(position)];
}

// One block of floats in memory of its own, lent without an owner and as asked for; its samples count from 0.
struct Block {
    Block(Box const& range, Index const& strides)
        : info{range, strides, 0}, samples(10000), log(std::make_shared<std::string>()) {
        std::iota(samples.begin(), samples.end(), 0.0f);
    }

    // Writes down the accesses asked for: "R", "W" for both ways, "w" for writing alone.
    std::unique_ptr<LendingAccessor> accessor() {
        return std::make_unique<LendingAccessor>(
            info.range.max, [this](Index const&, AdtEnums::Access access, BufferHandle& handle) {
                *log += std::string("-RWwP")[static_cast<std::size_t>(access)];
                handle.update(hasMemory ? samples.data() : nullptr, info, access);
            });
    }

    BufferHandle::ArrayInfo info;
    std::vector<float> samples;
    bool hasMemory = true;
    std::shared_ptr<std::string> log;
};

Box alongAxis2(int min, int max) {
    return {{0, 0, min, 0}, {1, 1, max, 1}};
}

TEST(ValueConvertFilter, IsLeftOutWithoutAForwardConverter) {
    Block block(alongAxis2(0, 4), {0, 0, 1, 0});
    Accessor target = block.accessor();
    auto const* const before = target.get();
    EXPECT_EQ(ValueConvertFilter::Apply(std::move(target), 2, nullptr, converter<short, float>()).get(), before);
    EXPECT_THAT(
        [] { ValueConvertFilter::Apply(nullptr, 2, nullptr, nullptr); },
        ThrowsMessage<std::invalid_argument>("[ValueConvertFilter::Apply] Invalid argument: target accessor is null."));
}

TEST(ValueConvertFilter, PassesSizeAndHintsDownAndOnlyTheUpdateUp) {
    Testing::Journal const journal;
    auto target = std::make_unique<Testing::RecordingAccessor>("a", journal, Index(3, 4, 5, 6));
    auto& below = *target;
    Testing::RecordingClient client("c", journal);
    Accessor const filter = shownAs<float, short>(std::move(target));
    EXPECT_EQ(filter->getSize(), Index(3, 4, 5, 6));
    filter->setHint(IBufferAccessor::Cache, alongAxis2(1, 3), 0.5f);
    filter->setClient(&client);
    EXPECT_THAT(
        journal.take(), ElementsAre("a.getSize", "a.setHint(3 [0,1)x[0,1)x[1,3)x[0,1) 0.5)", "a.setClient(client)"));
    int value = 7;
    IBufferAccessor::IClient& listener = *below.client();
    listener.bufferInvalidated(nullptr);
    EXPECT_FALSE(listener.prepareBufferRelease(nullptr, value));
    EXPECT_EQ(value, 7);
    listener.releaseBuffer(nullptr, nullptr);
    listener.accessorUpdated();
    EXPECT_THAT(journal.take(), ElementsAre("c.accessorUpdated"));
    filter->dispose(/*flag=*/true);
    listener.accessorUpdated();
    EXPECT_THAT(journal.take(), ElementsAre("a.dispose(1)")) << "nobody to relay to any more";
}

TEST(ValueConvertFilter, ConvertsTheRunAroundThePosition) {
    struct Step {
        int at, min, max;
    };
    struct Row {
        char const* name;
        Box block;
        int axis;
        std::vector<Step> steps;
    };
    Row const rows[] = {
        {"FromTheStartTheWholeRow", alongAxis2(0, 500), 2, {{0, 0, 500}}},
        {"InTheMiddleAPart", alongAxis2(0, 500), 2, {{250, 250, 314}}},
        {"NearTheEndThePartMovesBack", alongAxis2(0, 500), 2, {{480, 436, 500}}},
        {"AKeptBlockKeepsItsWholeRows", alongAxis2(0, 500), 2, {{0, 0, 500}, {480, 0, 500}}},
        {"AKeptBlockKeepsItsParts", alongAxis2(0, 500), 2, {{480, 436, 500}, {0, 0, 64}, {436, 436, 500}}},
        {"AHundredIsAWholeRow", alongAxis2(10, 110), 2, {{60, 10, 110}}},
        {"AHundredAndOneIsNot", alongAxis2(10, 111), 2, {{11, 11, 75}, {60, 47, 111}}},
        {"Axis2BeforeAxis1", {{0, 0, 0, 0}, {2, 300, 2, 300}}, 2, {{1, 0, 2}}},
        {"Axis1BeforeAxis0", {{0, 0, 0, 0}, {300, 2, 1, 300}}, 1, {{1, 0, 2}}},
        {"Axis0", {{3, 0, 0, 0}, {9, 1, 1, 300}}, 0, {{5, 3, 9}}},
        {"Axis0EvenForOneSample", {{3, 0, 0, 0}, {4, 1, 1, 9}}, 0, {{3, 3, 4}}},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        Block block(row.block, {500, 3, 7, 1});
        Accessor const filter = shownAs<float, short>(block.accessor());
        BufferHandle handle;
        for (Step const& step : row.steps) {
            Index position = row.block.min;
            position[row.axis] = step.at;
            filter->getBuffer(position, AdtEnums::Read, handle);
            Box expected{position, position + Index::Filled(1)};
            expected.min[row.axis] = step.min;
            expected.max[row.axis] = step.max;
            EXPECT_EQ(handle.range4(), expected);
            EXPECT_EQ(handle.access(), AdtEnums::Read);
            for (int k = step.min; k < step.max; ++k) {
                Index at = position;
                at[row.axis] = k;
                int const place = (k - row.block.min[row.axis]) * block.info.strides[row.axis];
                ASSERT_EQ(sampleOf<short>(handle, at), place) << "at " << at;
            }
        }
        EXPECT_EQ(*block.log, "R") << "the block is kept";
    }
}

TEST(ValueConvertFilter, KeepsABlockOnlyForWhatItWasLentFor) {
    Block block(alongAxis2(0, 300), {0, 0, 1, 0});
    auto target = block.accessor();
    auto& below = *target;
    Accessor const filter = shownAs<float, short>(std::move(target));
    BufferHandle handle;
    auto const ask = [&](int at, AdtEnums::Access access) { filter->getBuffer({0, 0, at, 0}, access, handle); };
    ask(0, AdtEnums::Read);
    ask(200, AdtEnums::Read);
    EXPECT_EQ(*block.log, "R");
    ask(200, AdtEnums::ReadWrite);
    EXPECT_EQ(handle.range4(), alongAxis2(200, 264)) << "asked for anew, in the middle";
    ask(0, AdtEnums::ReadWrite);
    ask(100, AdtEnums::Read);
    ask(100, AdtEnums::Write);
    EXPECT_EQ(*block.log, "RW");
    EXPECT_EQ(handle.access(), AdtEnums::Write) << "the access asked for, on every request";
    ask(100, AdtEnums::Populate);
    EXPECT_EQ(*block.log, "RW");
    BufferHandle const copy = handle;
    ask(0, AdtEnums::Read);
    EXPECT_EQ(*block.log, "RWR") << "another owner for the handle whose owner a copy shares";
    EXPECT_NE(handle.owner(), copy.owner());
    block.samples[3] = 77;
    ask(0, AdtEnums::Read);
    EXPECT_EQ(sampleOf<short>(handle, {0, 0, 3, 0}), 77) << "converted again from the block kept";
    EXPECT_EQ(*block.log, "RWR");
    below.lend = [](Index const&, AdtEnums::Access, BufferHandle&) { throw std::length_error("no"); };
    filter->setClient(nullptr);
    EXPECT_THROW(ask(1, AdtEnums::ReadWrite), std::length_error);
    EXPECT_TRUE(handle.isNull() && handle.sampleCount() == 0 && handle.owner() != nullptr);
}

TEST(ValueConvertFilter, CarriesWholeRunsBackAndRoundsTheNeighbours) {
    Block block(alongAxis2(0, 200), {0, 0, 1, 0});
    block.samples[5] = 5.25f;
    block.samples[190] = 1e6f;
    Accessor const filter = shownAs<float, unsigned char>(block.accessor());
    BufferHandle handle;
    filter->getBuffer({0, 0, 3, 0}, AdtEnums::ReadWrite, handle);
    sampleOf<unsigned char>(handle, {0, 0, 4, 0}) = 9;
    EXPECT_EQ(block.samples[4], 4) << "not before the run is over";
    handle.reset(/*releaseOwner=*/true);
    EXPECT_EQ(block.samples[4], 9);
    EXPECT_EQ(block.samples[5], 5) << "rounded, though nobody wrote it";
    EXPECT_EQ(block.samples[190], 1e6f) << "in another run";
}

TEST(ValueConvertFilter, LendsNothingForABlockWithoutMemoryAndAsksAgain) {
    Block block(alongAxis2(0, 300), {0, 0, 1, 0});
    block.hasMemory = false;
    Accessor const filter = shownAs<float, short>(block.accessor());
    BufferHandle handle;
    filter->getBuffer({0, 0, 290, 0}, AdtEnums::ReadWrite, handle);
    EXPECT_TRUE(handle.isNull());
    EXPECT_EQ(handle.range4(), alongAxis2(236, 300));
    EXPECT_EQ(handle.access(), AdtEnums::ReadWrite);
    block.hasMemory = true;
    filter->getBuffer({0, 0, 290, 0}, AdtEnums::Read, handle);
    EXPECT_EQ(*block.log, "WR");
    EXPECT_EQ(sampleOf<short>(handle, {0, 0, 299, 0}), 299);
}

// ---- Ends: of the filter, of its target's blocks, of an owner.

TEST(ValueConvertFilter, CarriesBackBeforeItIsDisposedOrDestroyed) {
    for (bool const disposes : {true, false}) {
        Block block(alongAxis2(0, 50), {0, 0, 1, 0});
        auto target = block.accessor();
        float inTimeForTarget = -1;
        target->atEnd = [&] { inTimeForTarget = block.samples[7]; };
        Accessor filter = shownAs<float, short>(std::move(target));
        BufferHandle first;
        BufferHandle second;
        filter->getBuffer({}, AdtEnums::ReadWrite, first);
        filter->getBuffer({}, AdtEnums::Read, second);
        sampleOf<short>(first, {0, 0, 7, 0}) = 70;
        if (disposes) {
            filter->dispose(/*flag=*/false);
            EXPECT_EQ(block.samples[7], 70);
            filter->getBuffer({}, AdtEnums::Read, second);
            EXPECT_EQ(*block.log, "WRR") << "nothing is kept from before";
        }
        filter.reset();
        EXPECT_EQ(inTimeForTarget, 70);
        sampleOf<short>(first, {0, 0, 7, 0}) = 71;
        EXPECT_EQ(sampleOf<short>(first, {0, 0, 7, 0}), 71) << "the run outlives the filter";
        first.reset(/*releaseOwner=*/true);
        EXPECT_EQ(block.samples[7], 70) << "but nobody carries it back any more";
    }
}

// An owner of somebody else that bears the filter's address: of whoever was at this address before.
TEST(ValueConvertFilter, TrustsNoTagAlone) {
    struct Stranger : BufferHandle::Owner {
        explicit Stranger(void const* tag) : Owner(tag) {}
        void lock() override {}
        void unlock() override {}
    };
    Block block(alongAxis2(0, 50), {0, 0, 1, 0});
    Accessor const filter = shownAs<float, short>(block.accessor());
    BufferHandle handle;
    filter->getBuffer({}, AdtEnums::Read, handle);
    void const* const tag = handle.owner()->getUserData();
    handle.setOwner(new Stranger(tag));
    filter->getBuffer({0, 0, 3, 0}, AdtEnums::Read, handle);
    EXPECT_EQ(sampleOf<short>(handle, {0, 0, 3, 0}), 3);
    EXPECT_EQ(dynamic_cast<Stranger*>(handle.owner()), nullptr);
}

// Two exchanges of the target below the filter, each with a write pending.
TEST(ValueConvertFilter, TrustsNoBlockAfterAnUpdate) {
    for (bool const hasOwner : {true, false}) {
        auto const controller = boost::make_shared<ProxyFilter::ProxyTargetController>();
        PlainArray<float> const data({1, 1, 30, 1});
        auto old = std::make_unique<BrickAccessor<float>>(
            data, BrickOptions{.brickSize = {1, 1, 30, 1}, .givesOwner = hasOwner});
        auto const brick = old->brickAt({});
        Block second(alongAxis2(0, 30), {0, 0, 1, 0});
        Block third(alongAxis2(0, 30), {0, 0, 3, 0});
        Accessor const filter = shownAs<float, short>(ProxyFilter::MakeProxy(std::move(old), controller));
        Testing::RecordingClient carelessClient("c", Testing::Journal());
        filter->setClient(&carelessClient);
        BufferHandle handle;
        Index const position(0, 0, 4, 0);
        auto const write = [&](short value) {
            filter->getBuffer(position, AdtEnums::ReadWrite, handle);
            sampleOf<short>(handle, position) = value;
        };
        write(10);
        controller->setTarget(second.accessor());
        write(11);
        EXPECT_EQ(brick->at(position), hasOwner ? 10 : 0) << "memory that no owner keeps is not written";
        controller->setTarget(third.accessor());
        filter->getBuffer(position, AdtEnums::Read, handle);
        EXPECT_EQ(sampleOf<short>(handle, position), 12) << "from the new target, though the handle still had the old";
        EXPECT_EQ(second.samples[4], 4) << "the owner of the first block does not keep the second";
    }
}

// Counts what it does and fails on demand.
class WatchedConverter final : public IValueConverter {
  public:
    WatchedConverter(ConverterPtr converter, int& runs) : converter_(std::move(converter)), runs_(runs) {}

    std::type_info const& getInputType() const override { return converter_->getInputType(); }
    std::type_info const& getOutputType() const override { return converter_->getOutputType(); }
    void convert(void const* in, void* out) const override { converter_->convert(in, out); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        Testing::callOut("convertStrided");
        converter_->convertStrided(in, inIndex, inStride, out, outIndex, outStride, count);
        ++runs_;
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        Testing::callOut("convertContiguous");
        converter_->convertContiguous(in, inIndex, out, outIndex, count);
        ++runs_;
    }

  private:
    ConverterPtr converter_;
    int& runs_;
};

TEST(ValueConvertFilter, TriesAgainToCarryBackExceptWhereNobodyCanBeTold) {
    Block block(alongAxis2(0, 50), {0, 0, 1, 0});
    int runs = 0;
    Accessor const filter = ValueConvertFilter::Apply(
        block.accessor(), sizeof(short), converter<float, short>(),
        boost::make_shared<WatchedConverter>(converter<short, float>(), runs));
    auto const failing = [](auto const& act) {
        Testing::ArmedFailure const armed(Testing::CallFailure::plan(), 0, Testing::Failing::kOnce);
        act();
    };
    BufferHandle handle;
    filter->getBuffer({}, AdtEnums::ReadWrite, handle);
    sampleOf<short>(handle, {0, 0, 3, 0}) = 30;
    EXPECT_THROW(failing([&] { filter->getBuffer({}, AdtEnums::Read, handle); }), Testing::CallOutError);
    EXPECT_EQ(handle.range4(), alongAxis2(0, 50)) << "still lent";
    sampleOf<short>(handle, {0, 0, 4, 0}) = 40;
    EXPECT_THROW(failing([&] { filter->dispose(/*flag=*/true); }), Testing::CallOutError);
    filter->getBuffer({}, AdtEnums::ReadWrite, handle);
    EXPECT_THAT(std::vector<float>(&block.samples[3], &block.samples[5]), ElementsAre(30, 40));
    EXPECT_EQ(runs, 1);
    sampleOf<short>(handle, {0, 0, 3, 0}) = 31;
    failing([&] { handle.reset(/*releaseOwner=*/true); });
    EXPECT_EQ(block.samples[3], 30);
    EXPECT_EQ(runs, 1);
}

// ---- Failures at every place.

struct FailureScene {
    FailureScene() : data({3, 4, 150, 1}) {
        std::iota(data.samples().begin(), data.samples().end(), 0.0f);
        bricks = std::make_unique<BrickAccessor<float>>(data, BrickOptions{.brickSize = {2, 2, 120, 1}});
        filter = ValueConvertFilter::Apply(
            bricks->createClone(), sizeof(short),
            boost::make_shared<WatchedConverter>(converter<float, short>(), conversions),
            boost::make_shared<WatchedConverter>(converter<short, float>(), carriedBack));
    }

    void writeAt(Index const& position, short value) {
        filter->getBuffer(position, AdtEnums::ReadWrite, handle);
        ++granted;
        sampleOf<short>(handle, position) = value;
        data.at(position) = value;
    }

    PlainArray<float> data;
    std::unique_ptr<BrickAccessor<float>> bricks;
    int conversions = 0;
    int carriedBack = 0;
    int granted = 0;
    Accessor filter;
    BufferHandle handle;
};

template <class Failure>
void expectSoundUnderFailures() {
    Testing::failEverywhere<Failure>(
        "a converting filter", [] { return std::make_unique<FailureScene>(); },
        [](auto& scene) {
            scene->writeAt({0, 0, 130, 0}, 1);
            scene->writeAt({0, 0, 0, 0}, 2);  // in a longer row
            scene->writeAt({2, 3, 149, 0}, 3);
            scene->writeAt({2, 3, 100, 0}, 4);
            scene->filter->getBuffer({1, 1, 0, 0}, AdtEnums::Read, scene->handle);
            scene->writeAt({1, 1, 0, 0}, 5);
            scene->filter->dispose(/*flag=*/false);
        },
        [](auto& scene, bool) {
            scene->writeAt({0, 0, 0, 0}, 6);
            EXPECT_EQ(sampleOf<short>(scene->handle, {0, 0, 119, 0}), scene->data.at({0, 0, 119, 0}));
            scene->handle.reset(/*releaseOwner=*/true);
            EXPECT_EQ(scene->carriedBack, scene->granted) << "every run once";
            forEachIndex(scene->data.box(), [&](Index const& p) {
                float const actual = scene->bricks->brickAt(p)->at(p);
                EXPECT_EQ(actual, scene->data.at(p)) << p;
                return actual == scene->data.at(p);
            });
        });
}

TEST(ValueConvertFilter, LosesAndRepeatsNothingWhereverItFails) {
    expectSoundUnderFailures<Testing::CallFailure>();
    expectSoundUnderFailures<Testing::AllocationFailure>();
}

// ---- Blocks with more than 2^31 samples.

TEST(ValueConvertFilter, ReachesSamplesBeyond32Bits) {
    constexpr std::size_t kBytes = std::size_t{5} << 30;
    void* const memory =
        mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const bytes = static_cast<unsigned char*>(memory);
    for (int const stride : {1, 3, -1}) {
        BufferHandle::ArrayInfo const info{Box::OfSize({5, 1, 20, 1}), {1 << 30, 0, stride, 0}, 100};
        Accessor const filter = shownAs<unsigned char, short>(std::make_unique<LendingAccessor>(
            info.range.max,
            [&](Index const&, AdtEnums::Access access, BufferHandle& handle) { handle.update(memory, info, access); }));
        BufferHandle handle;
        Index const position(4, 0, 7, 0);
        unsigned char& sample = bytes[(std::size_t{4} << 30) + 100 + static_cast<std::size_t>(7 * stride)];
        sample = 200;
        filter->getBuffer(position, AdtEnums::ReadWrite, handle);
        EXPECT_EQ(sampleOf<short>(handle, position), 200) << stride;
        sampleOf<short>(handle, position) = 100;
        handle.reset(/*releaseOwner=*/true);
        EXPECT_EQ(sample, 100) << stride;
    }
    munmap(memory, kBytes);
}

// ---- The script of all accessors.

Accessor reversed(Accessor target) {
    ExtentK<4, int> whole(Box::OfSize(target->getSize()));
    for (int axis = 0; axis < 4; ++axis) {
        whole[axis] = whole[axis].reversed();
    }
    return SubsetFilter::MakeSubset(std::move(target), whole);
}

Accessor cached(Accessor target) {
    return CacheFilter::Apply(std::move(target), 300, CacheFilter::kNever, CacheFilter::kNever);
}

Accessor proxied(Accessor target) {
    return ProxyFilter::MakeProxy(std::move(target), boost::make_shared<ProxyFilter::ProxyTargetController>());
}

// Bricks of T, with the samples of `shown` taken back through the transform.
template <class T, class S>
Accessor bricksBehind(PlainArray<S> const& shown, ScaleOffset const& transform, BrickOptions const& options) {
    PlainArray<T> stored(shown.size());
    ScaleOffset const inverse = transform.getInverse();
    std::transform(shown.samples().begin(), shown.samples().end(), stored.samples().begin(), [&](S sample) {
        return static_cast<T>(std::lrint(inverse.convertDouble(static_cast<double>(sample))));
    });
    return std::make_unique<BrickAccessor<T>>(stored, options);
}

template <class T, class S>
void expectStacksConform(char const* name, ScaleOffset const& transform = ScaleOffset()) {
    struct Stack {
        char const* name;
        Accessor (*over)(Accessor bricks, ScaleOffset const& transform);
    };
    static constexpr Stack kStacks[] = {
        {"alone", [](Accessor a, ScaleOffset const& t) { return shownAs<T, S>(std::move(a), t); }},
        {"between subsets",
         [](Accessor a, ScaleOffset const& t) { return reversed(shownAs<T, S>(reversed(std::move(a)), t)); }},
        {"over a cache", [](Accessor a, ScaleOffset const& t) { return shownAs<T, S>(cached(std::move(a)), t); }},
        {"between proxies",
         [](Accessor a, ScaleOffset const& t) { return proxied(shownAs<T, S>(proxied(std::move(a)), t)); }},
        {"twice more",
         [](Accessor a, ScaleOffset const& t) {
             return shownAs<float, S>(shownAs<S, float>(shownAs<T, S>(std::move(a), t)));
         }},
    };
    BrickOptions const bricks[] = {
        {},
        {.fastestAxis = 2, .padding = 1, .backwards = true, .grantedForRead = AdtEnums::ReadWrite},
        {.givesOwner = false},
        {.locksOwner = true},
        {.hasMemory = false},
        {.invalidatesEvery = 3}};
    for (Stack const& stack : kStacks) {
        for (BrickOptions const& options : bricks) {
            Testing::Subject<S> subject{std::string(name) + " " + stack.name, [&](PlainArray<S> const& shown) {
                                            return stack.over(bricksBehind<T>(shown, transform, options), transform);
                                        }};
            subject.writes = Testing::Writes::kLate;
            subject.hasMemory = options.hasMemory;
            Testing::expectConforms(subject);
        }
    }
}

TEST(ValueConvertFilter, ConformsAloneAndStacked) {
    expectStacksConform<float, unsigned char>("floats as bytes");
    expectStacksConform<short, float>("shorts as scaled floats", ScaleOffset(0.25, -3));
}

TEST(ValueConvertFilter, ConformsWithoutAnInverse) {
    Testing::Subject<short> subject{"floats as shorts, one way", [](PlainArray<short> const& shown) {
                                        return ValueConvertFilter::Apply(
                                            bricksBehind<float>(shown, ScaleOffset(), {}), sizeof(short),
                                            converter<float, short>(), nullptr);
                                    }};
    subject.writes = Testing::Writes::kLost;
    Testing::expectConforms(subject);
}

// ---- A random script of reads, writes and everything that may happen in between.

class Fuzz {
  public:
    explicit Fuzz(std::uint64_t seed) : random_(seed) {
        newBricks();
        filter_ = shownAs<float, short>(ProxyFilter::MakeProxy(std::move(fresh_), controller_));
        filter_->setClient(&writer_);
    }

    void run(int steps) {
        for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
            int const kind = random_.between(0, 99);
            if (kind < 80) {
                request();
            } else if (kind < 85) {
                flushed([&] { writer_.handle.reset(/*releaseOwner=*/true); });
            } else if (kind < 90) {
                notify();
            } else if (kind < 94) {
                swapTarget();
            } else if (kind < 97) {
                auto const clone = filter_->createClone();
            } else {
                flushed([&] { filter_->dispose(/*flag=*/false); });
                filter_->setClient(&writer_);
            }
        }
        if (random_.chance(50)) {
            filter_.reset();
        }
        writer_.handle.reset(/*releaseOwner=*/true);
        for (Target const& target : targets_) {
            forEachIndex(target.data.box(), [&](Index const& p) {
                float const actual = target.bricks->brickAt(p)->at(p);
                EXPECT_EQ(actual, target.data.at(p)) << "target " << (&target - targets_.data()) << " at " << p;
                return actual == target.data.at(p);
            });
        }
    }

  private:
    // What was shown, and the samples that are to be there in the end.
    struct Target {
        std::shared_ptr<BrickAccessor<float>> bricks;
        PlainArray<float> data;
    };

    void newBricks() {
        PlainArray<float> data({3, 4, 140, 2});
        data.fill(random_, 3000);
        BrickOptions options{.brickSize = {2, 3, 130, 1}, .fastestAxis = random_.between(0, 3)};
        options.backwards = random_.chance(30);
        fresh_ = std::make_unique<BrickAccessor<float>>(data, options);
        targets_.push_back({std::make_shared<BrickAccessor<float>>(*fresh_), data});
    }

    PlainArray<float>& data() { return targets_.back().data; }

    void request() {
        Index const p = data().randomIndex(random_);
        bool const writes = random_.chance(50);
        // As a view does, which trusts what the handle says about its access.
        if (!writer_.handle.contains(p) || (writes && !AdtEnums::isWriteAccess(writer_.handle.access()))) {
            auto const access = !writes ? AdtEnums::Read : random_.chance(80) ? AdtEnums::ReadWrite : AdtEnums::Write;
            writer_.request(*filter_, p, access);
        }
        forEachIndex(writer_.handle.range4(), [&](Index const& q) {
            EXPECT_EQ(sampleOf<short>(writer_.handle, q), data().at(q)) << "at " << q;
            return !testing::Test::HasFailure();
        });
        if (writes) {
            auto const value = random_.between<short>(-3000, 3000);
            sampleOf<short>(writer_.handle, p) = value;
            data().at(p) = value;
        }
    }

    // Whatever takes the handle's run away from the writer.
    template <class Act>
    void flushed(Act const& act) {
        act();
        writer_.handle.reset(/*releaseOwner=*/true);
    }

    // The target says that a block is invalid or about to go, but it stays where it is: the loan has an owner.
    void notify() {
        IBufferAccessor::IClient& listener = dynamic_cast<IBufferAccessor::IClient&>(*filter_);
        auto const brick = targets_.back().bricks->brickAt(data().randomIndex(random_));
        int value = 0;
        listener.bufferInvalidated(brick.get());
        listener.prepareBufferRelease(brick->memory(), value);
        listener.releaseBuffer(brick->memory(), brick);
    }

    void swapTarget() {
        newBricks();
        controller_->setTarget(std::move(fresh_));
        ASSERT_TRUE(writer_.handle.isInvalidated() || writer_.handle.isNull());
    }

    Testing::Random random_;
    boost::shared_ptr<ProxyFilter::ProxyTargetController> controller_ =
        boost::make_shared<ProxyFilter::ProxyTargetController>();
    std::vector<Target> targets_;
    std::unique_ptr<BrickAccessor<float>> fresh_;
    Accessor filter_;
    Testing::Borrower writer_;
};

TEST(ValueConvertFilter, EndsWithEveryWriteInItsTargetAndNothingElseChanged) {
    Testing::Random random;
    for (int round = 0; round < 60 && !testing::Test::HasFailure(); ++round) {
        Fuzz(random.engine()()).run(200);
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
