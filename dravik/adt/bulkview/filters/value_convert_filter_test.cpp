// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/value_convert_filter.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/filter_stacks.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/mman.h>

#include <atomic>
#include <functional>
#include <limits>
#include <numeric>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Testing::BrickAccessor;
using Testing::BrickOptions;
using Testing::LendingAccessor;
using Testing::PlainArray;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Box = OpenEndedRange<4, int>;
using ConverterPtr = IValueConverter::ConstPtr;
using Index = FixedVector<4, int>;

template <class From, class To>
ConverterPtr converter() {
    return Converters::ValueConverterFactory::getTypeConverter(typeid(From), typeid(To));
}

template <class T>
Accessor asShorts(Accessor target) {
    return ValueConvertFilter::Apply(std::move(target), sizeof(short), converter<T, short>(), converter<short, T>());
}

short& sampleOf(BufferHandle& handle, Index const& position) {
    return static_cast<short*>(handle.buffer())[handle.offset(position)];
}

Index at(int place) {
    return {0, 0, place, 0};
}
Box alongAxis2(int min, int max) {
    return {at(min), at(max) + Index(1, 1, 0, 1)};
}

// One block of floats in memory of its own, lent without an owner and as asked for; its samples count from 0. Shown as
// shorts to one handle.
struct Block {
    explicit Block(Box const& range, Index const& strides = at(1)) : info{range, strides, 0}, samples(10000) {
        std::iota(samples.begin(), samples.end(), 0.0f);
    }

    // Writes down the accesses asked for: "R", "W" for both ways, "w" for writing alone.
    std::unique_ptr<LendingAccessor> accessor() {
        return std::make_unique<LendingAccessor>(
            info.range.max, [this](Index const&, AdtEnums::Access access, BufferHandle& lent) {
                *log += "-RWwP"[static_cast<std::size_t>(access)];
                lent.update(hasMemory ? samples.data() : nullptr, info, access);
            });
    }
    void ask(int place, AdtEnums::Access access) { filter->getBuffer(at(place), access, handle); }
    short& shown(int place) { return sampleOf(handle, at(place)); }

    BufferHandle::ArrayInfo info;
    std::vector<float> samples;
    bool hasMemory = true;
    std::shared_ptr<std::string> log = std::make_shared<std::string>();
    Accessor filter = asShorts<float>(accessor());
    BufferHandle handle;
};

TEST(ValueConvertFilter, IsLeftOutWithoutAForwardConverter) {
    Accessor target = Block(alongAxis2(0, 4)).accessor();
    auto const* const before = target.get();
    EXPECT_EQ(ValueConvertFilter::Apply(std::move(target), 2, nullptr, converter<short, float>()).get(), before);
    EXPECT_THAT(
        [] { ValueConvertFilter::Apply(nullptr, 2, nullptr, nullptr); },
        testing::ThrowsMessage<std::invalid_argument>(
            "[ValueConvertFilter::Apply] Invalid argument: target accessor is null."));
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
        {"NearTheEndThePartMovesBack", alongAxis2(0, 500), 2, {{480, 436, 500}}},
        {"AKeptBlockKeepsItsWholeRows", alongAxis2(0, 500), 2, {{0, 0, 500}, {480, 0, 500}}},
        {"AKeptBlockKeepsItsParts", alongAxis2(0, 500), 2, {{250, 250, 314}, {0, 0, 64}, {436, 436, 500}}},
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
        for (Step const& step : row.steps) {
            Index position = row.block.min;
            position[row.axis] = step.at;
            block.filter->getBuffer(position, AdtEnums::Read, block.handle);
            Box expected{position, position + Index::Filled(1)};
            expected.min[row.axis] = step.min;
            expected.max[row.axis] = step.max;
            EXPECT_EQ(block.handle.range4(), expected);
            for (int& k = position[row.axis] = step.min; k < step.max; ++k) {
                int const place = (k - row.block.min[row.axis]) * block.info.strides[row.axis];
                ASSERT_EQ(sampleOf(block.handle, position), place) << "at " << position;
            }
        }
        EXPECT_EQ(*block.log, "R") << "the block is kept";
    }
}

TEST(ValueConvertFilter, KeepsBlocksForTheirAccessAlone) {
    Block block(alongAxis2(0, 300));
    block.ask(0, AdtEnums::Read);
    block.ask(200, AdtEnums::Read);
    EXPECT_EQ(*block.log, "R");
    block.ask(200, AdtEnums::ReadWrite);
    EXPECT_EQ(block.handle.range4(), alongAxis2(200, 264)) << "asked for anew, in the middle";
    for (auto const access : {AdtEnums::ReadWrite, AdtEnums::Populate, AdtEnums::Read, AdtEnums::Write}) {
        block.ask(100, access);
        EXPECT_EQ(block.handle.access(), access) << "the access asked for, on every request";
    }
    EXPECT_EQ(*block.log, "RW");
    BufferHandle const copy = block.handle;
    block.ask(0, AdtEnums::Read);
    EXPECT_EQ(*block.log, "RWR") << "another owner for the handle whose owner a copy shares";
    EXPECT_NE(block.handle.owner(), copy.owner());
    block.samples[3] = 77;
    block.ask(0, AdtEnums::Read);
    EXPECT_EQ(block.shown(3), 77) << "converted again from the block kept";
    // An owner of somebody else that bears the filter's address: of whoever was at this address before.
    struct Stranger : BufferHandle::Owner {
        explicit Stranger(void const* tag) : Owner(tag) {}
        void lock() override {}
        void unlock() override {}
    };
    EXPECT_EQ(block.handle.owner()->getUserData(), dynamic_cast<ValueConvertFilter*>(block.filter.get()));
    block.handle.setOwner(new Stranger(block.handle.owner()->getUserData()));
    block.ask(3, AdtEnums::Read);
    EXPECT_EQ(block.shown(3), 77);
    EXPECT_EQ(*block.log, "RWRR") << "the tag alone is not trusted";
    block.hasMemory = false;
    block.ask(290, AdtEnums::ReadWrite);
    EXPECT_TRUE(block.handle.isNull());
    EXPECT_EQ(block.handle.range4(), alongAxis2(236, 300));
    block.hasMemory = true;
    block.ask(290, AdtEnums::Read);
    EXPECT_EQ(block.shown(299), 299);
    EXPECT_EQ(*block.log, "RWRRWR") << "a block without memory is not kept";
}

TEST(ValueConvertFilter, CarriesRunsBackBeforeItEnds) {
    for (bool const disposes : {true, false}) {
        Block block(alongAxis2(0, 200));
        block.samples[8] = 8.25f;
        block.samples[190] = 1e6f;
        auto target = block.accessor();
        float inTimeForTarget = -1;
        target->atEnd = [&] { inTimeForTarget = block.samples[7]; };
        block.filter = asShorts<float>(std::move(target));
        BufferHandle second;
        block.ask(3, AdtEnums::ReadWrite);
        block.filter->getBuffer({}, AdtEnums::Read, second);
        block.shown(7) = 70;
        EXPECT_EQ(block.samples[7], 7) << "not before the run is over";
        if (disposes) {
            block.filter->dispose(/*flag=*/false);
            EXPECT_EQ(block.samples[7], 70);
            block.filter->getBuffer({}, AdtEnums::Read, second);
            EXPECT_EQ(*block.log, "WRR") << "nothing is kept from before";
        }
        block.filter.reset();
        EXPECT_EQ(inTimeForTarget, 70);
        EXPECT_EQ(block.samples[8], 8) << "rounded, though nobody wrote it";
        EXPECT_EQ(block.samples[190], 1e6f) << "in another run";
        block.shown(7) = 71;  // the run outlives the filter
        block.handle.reset(/*releaseOwner=*/true);
        EXPECT_EQ(block.samples[7], 70) << "but nobody carries it back any more";
    }
}

// Two exchanges of the target below the filter, each with a write pending, and a client that lets it be.
TEST(ValueConvertFilter, TrustsNoBlockAfterAnUpdate) {
    for (bool const hasOwner : {true, false}) {
        auto const controller = boost::make_shared<ProxyFilter::ProxyTargetController>();
        auto old = std::make_unique<BrickAccessor<float>>(
            PlainArray<float>({1, 1, 30, 1}), BrickOptions{.brickSize = {1, 1, 30, 1}, .givesOwner = hasOwner});
        auto const brick = old->brickAt({});
        Block second(alongAxis2(0, 30)), third(alongAxis2(0, 30), at(3));
        Accessor const filter = asShorts<float>(ProxyFilter::MakeProxy(std::move(old), controller));
        Testing::RecordingClient carelessClient("c", Testing::Journal());
        filter->setClient(&carelessClient);
        BufferHandle handle;
        filter->getBuffer(at(4), AdtEnums::ReadWrite, handle);
        sampleOf(handle, at(4)) = 10;
        controller->setTarget(second.accessor());
        filter->getBuffer(at(4), AdtEnums::ReadWrite, handle);
        sampleOf(handle, at(4)) = 11;
        EXPECT_EQ(brick->at(at(4)), hasOwner ? 10 : 0) << "memory that no owner keeps is not written";
        controller->setTarget(third.accessor());
        filter->getBuffer(at(4), AdtEnums::Read, handle);
        EXPECT_EQ(sampleOf(handle, at(4)), 12) << "from the new target, though the handle still had the old";
        EXPECT_EQ(second.samples[4], 4) << "the owner of the first block does not keep the second";
    }
}

// A converter of a client: checks that every position is in reach of `int`, and can be told to fail or to be cancelled.
class ClientConverter final : public IValueConverter {
  public:
    explicit ClientConverter(ConverterPtr inner) : inner_(std::move(inner)) {}
    std::type_info const& getInputType() const override { return inner_->getInputType(); }
    std::type_info const& getOutputType() const override { return inner_->getOutputType(); }
    void convert(void const* in, void* out) const override { inner_->convert(in, out); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        for (auto const& [index, stride] : {std::pair(inIndex, inStride), std::pair(outIndex, outStride)}) {
            std::int64_t const last = index + std::int64_t{stride} * (count - 1);
            EXPECT_GE(index, 0);
            EXPECT_GE(last, 0);
            EXPECT_LE(last, std::numeric_limits<int>::max());
        }
        atCall();
        inner_->convertStrided(in, inIndex, inStride, out, outIndex, outStride, count);
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    }

    std::function<void()> atCall = [] {};

  private:
    ConverterPtr inner_;
};

struct FarRow {
    char const* name;
    std::int64_t first;  // of the row asked for
    int stride, count;
};

// Reads a run of `memory`, writes it, and looks for what was written.
void expectRunOf(void* memory, FarRow const& row, int bits) {
    SCOPED_TRACE(testing::Message() << row.name << " of " << bits << " bits");
    // The row at index 4 of axis 0.
    int const step = static_cast<int>(row.first / 5), offset = static_cast<int>(row.first - 4LL * step);
    BufferHandle::ArrayInfo const info{Box::OfSize({5, 1, row.count, 1}), {step, 0, row.stride, 0}, offset};
    auto const copy = boost::make_shared<ClientConverter>(Converters::ValueConverterFactory::getCopyConverter(bits));
    Accessor const filter = ValueConvertFilter::Apply(
        std::make_unique<LendingAccessor>(
            info.range.max,
            [&](Index const&, AdtEnums::Access access, BufferHandle& handle) { handle.update(memory, info, access); }),
        1, copy, copy);
    auto const sample = [&](void* base, std::int64_t position) {
        auto const* const bytes = static_cast<unsigned char const*>(base);
        return bits == 8 ? bytes[position] : bytes[position / 8] >> (position % 8) & 1;
    };
    BufferHandle handle;
    filter->getBuffer({4, 0, 0, 0}, AdtEnums::ReadWrite, handle);
    for (int k = 0; k < row.count; ++k) {
        ASSERT_EQ(sample(handle.buffer(), k), sample(memory, row.first + std::int64_t{row.stride} * k)) << k;
    }
    auto* const run = static_cast<unsigned char*>(handle.buffer());
    for (int k = 0; k < row.count * bits / 8; ++k) {
        run[k] = static_cast<unsigned char>(~run[k] ^ k * 37);
    }
    std::vector<unsigned char> const written(run, run + row.count * bits / 8);
    handle.reset(/*releaseOwner=*/true);
    for (int k = 0; k < static_cast<int>(written.size()) * 8 / bits; ++k) {
        int const expected =
            bits == 8 ? written[static_cast<std::size_t>(k)] : written[static_cast<std::size_t>(k / 8)] >> (k % 8) & 1;
        ASSERT_EQ(sample(memory, row.first + std::int64_t{row.stride} * k), expected) << k;
    }
}

TEST(ValueConvertFilter, ReachesSamplesBeyond32Bits) {
    constexpr std::size_t kBytes = std::size_t{8} << 30;
    void* const memory =
        mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    constexpr FarRow kRows[] = {
        {"Far", 5'000'000'107, 1, 20},
        {"FarInSteps", 5'000'000'107, 3, 20},
        {"Backwards", 5'000'000'107, -1, 20},
        {"LongStepsBackwards", 2'400'001'203, -6'000'003, 400},
        {"LongStepsFromNear", 1'000, 6'000'003, 400},
        {"Straddles", 2'147'483'640, 1, 400},
    };
    for (int const bits : {1, 8}) {
        for (FarRow const& row : kRows) {
            expectRunOf(memory, row, bits);
        }
    }
    munmap(memory, kBytes);
}

TEST(ValueConvertFilter, RefusesConvertersThatDoNotFit) {
    auto const toShort = converter<float, short>(), toFloat = converter<short, float>();
    struct Row {
        char const* name;
        int sampleSize;
        ConverterPtr inverse;
        char const* message;
    };
    Row const rows[] = {
        {"TooSmall", 1, toFloat, "a sample size of 1 bytes does not fit 'short', which the forward converter writes."},
        {"TooLarge", 4, nullptr, "a sample size of 4 bytes does not fit 'short', which the forward converter writes."},
        {"InverseIsForward", 2, toShort,
         "the inverse converter goes from 'float' to 'short', the forward converter from 'float' to 'short'."},
        {"InverseWritesAnother", 2, converter<short, int>(),
         "the inverse converter goes from 'short' to 'int', the forward converter from 'float' to 'short'."},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(
            [&] {
                ValueConvertFilter::Apply(Block(alongAxis2(0, 4)).accessor(), row.sampleSize, toShort, row.inverse);
            },
            testing::ThrowsMessage<std::invalid_argument>(
                std::string("[ValueConvertFilter::Apply] Invalid argument: ") + row.message))
            << row.name;
    }
}

// A block shown to a view, with the means to fail on the way back, to be cancelled there, and to be taken back.
struct ViewedBlock {
    explicit ViewedBlock(bool hasOwner) : block(alongAxis2(0, 30)) {
        auto target = std::make_unique<LendingAccessor>(
            block.info.range.max, [this, hasOwner](Index const&, AdtEnums::Access access, BufferHandle& lent) {
                lent.update(block.samples.data(), block.info, access);
                lent.setOwner(hasOwner ? owner = new Testing::CallingOwner([this] { owner = nullptr; }) : nullptr);
            });
        accessor = target.get();
        filter = ValueConvertFilter::Apply(std::move(target), sizeof(short), converter<float, short>(), inverse);
    }
    bool prepare() {
        int value = 0;
        return accessor->client()->prepareBufferRelease(block.samples.data(), value);
    }

    Block block;
    BufferHandle::Owner* owner = nullptr;
    LendingAccessor* accessor;
    boost::shared_ptr<ClientConverter> inverse = boost::make_shared<ClientConverter>(converter<short, float>());
    Accessor filter;
};

TEST(ValueConvertFilter, DisposingReportsAFailedWayBack) {
    ViewedBlock viewed(/*hasOwner=*/true);
    Typed3dRwView<short> view;
    view.init(std::move(viewed.filter));
    view.set({0, 0, 7}, 70);
    viewed.inverse->atCall = [] { throw std::runtime_error("full"); };
    EXPECT_THAT([&] { view.dispose(); }, testing::ThrowsMessage<std::runtime_error>("full"));
    EXPECT_THAT(
        [&] { view.init(Block(alongAxis2(0, 4)).accessor()); }, testing::ThrowsMessage<std::runtime_error>("full"));
    viewed.inverse->atCall = [] {};
    EXPECT_EQ(view.get({0, 0, 7}), 70) << "the view is as it was";
    view.dispose();
    EXPECT_EQ(viewed.block.samples[7], 70) << "tried again";
}

TEST(ValueConvertFilter, LetsTheBlockGoWhenDisposed) {
    ViewedBlock viewed(/*hasOwner=*/true);
    BufferHandle handle;
    viewed.filter->getBuffer({}, AdtEnums::ReadWrite, handle);
    ASSERT_NE(viewed.owner, nullptr);
    viewed.filter->dispose(/*flag=*/false);
    EXPECT_EQ(viewed.owner, nullptr);
}

TEST(ValueConvertFilter, CarriesRunsDownBeforeBlocksGo) {
    for (bool const hasOwner : {true, false}) {
        for (bool const prepares : {true, false}) {
            SCOPED_TRACE(testing::Message() << "owner " << hasOwner << ", prepares " << prepares);
            ViewedBlock viewed(hasOwner);
            Typed3dRwView<short> view;
            view.init(std::move(viewed.filter));
            EXPECT_FALSE(viewed.prepare()) << "not held yet";
            view.set({0, 0, 7}, 70);
            std::vector<float> const& samples = viewed.block.samples;
            if (prepares) {
                EXPECT_TRUE(viewed.prepare());
            } else {
                viewed.accessor->client()->releaseBuffer(samples.data(), viewed.owner);
            }
            EXPECT_EQ(samples[7], hasOwner ? 7 : 70) << "while the memory is there";
            viewed.block.samples[8] = 80;
            EXPECT_EQ(view.get({0, 0, 8}), hasOwner ? 8 : 80) << "the run goes down whole, then the block is lent anew";
            EXPECT_EQ(samples[7], 70);
            view.set({0, 0, 9}, 90);
            viewed.prepare();
            if (!hasOwner) {
                viewed.block.samples[9] = -1;  // somebody else's memory by now
            }
            view.dispose();
            EXPECT_EQ(samples[9], hasOwner ? 90 : -1);
        }
    }
}

TEST(ValueConvertFilter, BlocksMayGoWhileAViewWrites) {
    ViewedBlock viewed(/*hasOwner=*/true);
    Typed3dRwView<short> view;
    view.init(std::move(viewed.filter));
    std::atomic<bool> done = false;
    std::thread host([&] {
        while (!done) {
            viewed.prepare();
        }
    });
    for (int round = 0; round < 3000; ++round) {
        short const value = static_cast<short>(round);
        view.set({0, 0, round % 30}, value);
        EXPECT_EQ(view.get({0, 0, round % 30}), value);
    }
    done = true;
    host.join();
    view.dispose();
    for (int k = 0; k < 30; ++k) {
        EXPECT_EQ(viewed.block.samples[static_cast<std::size_t>(k)], 2970 + k);
    }
}

TEST(ValueConvertFilter, HoldsCancellationOffWhileItWritesBack) {
    ViewedBlock viewed(/*hasOwner=*/true);
    BufferHandle handle;
    viewed.filter->getBuffer(at(7), AdtEnums::ReadWrite, handle);
    sampleOf(handle, at(7)) = 70;
    viewed.inverse->atCall = [] { pthread_testcancel(); };
    pthread_t thread;
    ASSERT_EQ(
        pthread_create(
            &thread, nullptr,
            [](void* held) -> void* {
                pthread_cancel(pthread_self());
                static_cast<BufferHandle*>(held)->reset(/*releaseOwner=*/true);
                pthread_testcancel();
                return nullptr;
            },
            &handle),
        0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED) << "but afterwards";
    EXPECT_EQ(viewed.block.samples[7], 70);
}

// A filter as a host would write it: knows nothing of regions.
struct HostFilter final : BufferAccessorFilter {
    explicit HostFilter(Accessor target) : BufferAccessorFilter(std::move(target)) {}
    Index getSize() override { return targetAccessor().getSize(); }
    void setHint(HintType, Box const&, float) override {}
    void getBuffer(Index position, AdtEnums::Access access, BufferHandle& handle) override {
        targetAccessor().getBuffer(position, access, handle);
    }
    Accessor createClone() const override { return std::make_unique<HostFilter>(*this); }
};

// Drops the block that it is told of.
struct Holder final : IBufferAccessor::IClient {
    void accessorUpdated() override {}
    void bufferInvalidated(BufferHandle::Owner const* owner) override {
        ++told;
        owner == handle.owner() ? handle.reset(/*releaseOwner=*/true) : void();
    }
    bool prepareBufferRelease(void const*, int&) override { return false; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override {}
    Accessor releaseAccessor() override { return nullptr; }

    // Writes what it shows, if it still does.
    void write(IBufferAccessor& chain, int place, short value) {
        handle.isNull() ? chain.getBuffer(at(place), AdtEnums::ReadWrite, handle) : void();
        sampleOf(handle, at(place)) = value;
    }

    BufferHandle handle;
    int told = 0;
};

// Shorts over 300 floats that count from 0, along axis 2.
struct RegionRow {
    char const* name;
    Accessor (*over)(Accessor floats);
};
constexpr RegionRow kRegionRows[] = {
    {"OneConverter", [](Accessor a) { return asShorts<float>(std::move(a)); }},
    {"ThreeConverters",
     [](Accessor a) { return asShorts<float>(Testing::shownAs<short, float>(asShorts<float>(std::move(a)))); }},
    {"OverACache", [](Accessor a) { return asShorts<float>(Testing::cached(std::move(a))); }},
    {"BetweenProxies", [](Accessor a) { return Testing::proxied(asShorts<float>(Testing::proxied(std::move(a)))); }},
    {"OverASubset", [](Accessor a) { return asShorts<float>(Testing::reversed(std::move(a))); }},
    {"OverAHostsFilter", [](Accessor a) { return asShorts<float>(std::make_unique<HostFilter>(std::move(a))); }},
};

struct ConvertedChain {
    explicit ConvertedChain(RegionRow const& row) : array(SharedArray<4>::Make<float>(Box::OfSize({1, 1, 300, 1}))) {
        auto* const samples = reinterpret_cast<float*>(array.data());
        std::iota(samples, samples + 300, 0.0f);
        chain = row.over(std::make_unique<Accessors::MemoryAccessor>(array));
        chain->setClient(&holder);
    }
    // A region of shorts; the client stays.
    void transfer(int first, std::vector<short>& shorts, AdtEnums::Access access) {
        int const count = static_cast<int>(shorts.size());
        ArrayRef<4> const shown(
            Box::OfSize({1, 1, count, 1}), {0, 0, 1, 0}, reinterpret_cast<char*>(shorts.data()), 0, typeid(short), 16);
        TransferOptions const options;
        RegionTransfer(options, count).run(*chain, {{at(first), {1, 1, count, 1}}, shown, access, nullptr});
    }
    short read(int place) {
        std::vector<short> one(1);
        transfer(place, one, AdtEnums::Read);
        return one[0];
    }

    SharedArray<4> array;
    Accessor chain;
    Holder holder;
};

TEST(ValueConvertFilter, GoesOnTakingWritesAfterARegion) {
    for (RegionRow const& row : kRegionRows) {
        SCOPED_TRACE(row.name);
        ConvertedChain shown(row);
        shown.holder.write(*shown.chain, 100, 1000);
        EXPECT_EQ(shown.read(100), 1000) << "carried down before";
        shown.holder.write(*shown.chain, 101, 1010);
        EXPECT_EQ(shown.read(101), 1010) << "and again";
        shown.holder.write(*shown.chain, 102, 1020);
        flush(*shown.chain);
        EXPECT_EQ(shown.read(102), 1020);
        shown.holder.write(*shown.chain, 103, 1030);
        shown.holder.handle.reset(/*releaseOwner=*/true);
        EXPECT_EQ(shown.read(103), 1030);
        EXPECT_EQ(shown.holder.told, 0) << "what was read stays on loan";
    }
}

TEST(ValueConvertFilter, BringsNoRunBackOverARegion) {
    for (RegionRow const& row : kRegionRows) {
        SCOPED_TRACE(row.name);
        ConvertedChain shown(row);
        std::vector<short> minusOnes(10, -1);
        shown.holder.write(*shown.chain, 104, 1040);
        shown.holder.write(*shown.chain, 115, 1150);
        BufferHandle const kept = shown.holder.handle;
        shown.transfer(100, minusOnes, AdtEnums::ReadWrite);
        EXPECT_EQ(shown.holder.told, 1);
        EXPECT_EQ(shown.holder.handle.owner(), nullptr) << "of the run that shows the region";
        EXPECT_EQ(shown.read(115), 1150) << "beside the region what was written before stays";

        shown.holder.write(*shown.chain, 240, 2400);
        shown.transfer(100, minusOnes, AdtEnums::ReadWrite);
        EXPECT_EQ(shown.holder.told, 1);
        shown.holder.write(*shown.chain, 241, 2410);
        shown.holder.handle.reset(/*releaseOwner=*/true);
        EXPECT_EQ(shown.read(240), 2400);
        EXPECT_EQ(shown.read(241), 2410);
        EXPECT_EQ(shown.read(104), -1) << "though a copy of its handle lives";
    }
}

TEST(ValueConvertFilter, RefusesRegionsWithoutAnInverse) {
    ConvertedChain shown({"", [](Accessor a) -> Accessor {
                              return ValueConvertFilter::Apply(std::move(a), 2, converter<float, short>(), nullptr);
                          }});
    EXPECT_EQ(traitsOf(*shown.chain).writable, false);
    EXPECT_EQ(*traitsOf(*shown.chain).sampleType, typeid(short));
    shown.holder.write(*shown.chain, 104, 1040);
    std::vector<short> minusOnes(10, -1);
    EXPECT_THROW(shown.transfer(100, minusOnes, AdtEnums::ReadWrite), Exceptions::NotSupportedException);
    EXPECT_EQ(shown.holder.told, 0);
    EXPECT_EQ(shown.read(104), 104);
}

// The transfer of a region holds blocks of the target, so it has to hear what becomes of them.
TEST(ValueConvertFilter, TellsRegionsOfBlocksTakenBack) {
    using Client = IBufferAccessor::IClient;
    Block block(alongAxis2(0, 30));
    std::vector<float> stale(30, -1);
    int value = 0;
    for (auto const& takeBack : std::vector<std::function<void(Client&)>>{
             [](Client& client) { client.bufferInvalidated(nullptr); },
             [&](Client& client) { client.prepareBufferRelease(stale.data(), value); },
             [&](Client& client) { client.releaseBuffer(stale.data(), nullptr); }}) {
        bool isFirst = true;
        auto target = block.accessor();
        target->lend = [&, target = target.get()](Index const&, AdtEnums::Access access, BufferHandle& lent) {
            lent.update(isFirst ? stale.data() : block.samples.data(), block.info, access);
            std::exchange(isFirst, false) ? takeBack(*target->client()) : void();
        };
        Accessor const filter = asShorts<float>(std::move(target));
        auto const array = SharedArray<4>::Make<short>(Box::OfSize({1, 1, 30, 1}));
        readRegion(*filter, ExtentK<4, int>(array.range()), array);
        EXPECT_EQ(reinterpret_cast<short const*>(array.data())[7], 7);
    }
    EXPECT_EQ(value, 10000);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
