// SPDX-License-Identifier: Apache-2.0
// Boxes that suit a storage, and calls whose pieces are done by helpers of every kind of executor.

#include "dravik/adt/bulkview/regions/blocks.h"
#include "dravik/adt/bulkview/regions/for_each_block.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/regions/region_histogram.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/exceptions/cancelled_exception.h"
#include "dravik/adt/testing/memory_store.h"
#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::MemoryStore;
using Testing::PlainArray;
using Testing::Random;
using Index = FixedVector<4, int>;
using Box = OpenEndedRange<4, int>;
using Region = ExtentK<4, int>;

static_assert(std::random_access_iterator<Blocks::Iterator>);

TEST(Blocks, CoverARangeOnceUnderTheBudget) {
    Random random;
    for (int round = 0; round < 2000; ++round) {
        AccessTraits traits;
        Box range;
        std::int64_t natural = 1;
        for (int axis = 0; axis < 4; ++axis) {
            traits.naturalBlock[axis] = random.between(0, 5);
            traits.blockOrigin[axis] = random.between(-4, 4);
            range.min[axis] = random.between(-3, 9);
            range.max[axis] = range.min[axis] + random.between(1, 8);
            natural *= std::max(traits.naturalBlock[axis], 1);
        }
        traits.fastestAxis = random.between(-1, 3);
        int const budget = random.between(1, 400);
        Blocks const blocks(traits, range, budget);
        PlainArray<int> seen(range.max + Index::Filled(4));
        ASSERT_EQ(blocks.end() - blocks.begin(), blocks.size());
        for (std::int64_t n = 0; n < blocks.size(); ++n) {
            Box const box = blocks.begin()[n];
            ASSERT_LE(box.pointCount(), budget) << box;
            ASSERT_LE(box.pointCount(), blocks.sampleCount()) << box;
            for (int axis = 0; axis < 4 && natural <= budget; ++axis) {
                int const block = std::max(traits.naturalBlock[axis], 1);
                int const end = box.max[axis] - traits.blockOrigin[axis];
                ASSERT_TRUE(box.max[axis] == range.max[axis] || end % block == 0) << box << " cuts a block";
            }
            Testing::forEachIndex(box, [&](Index const& index) { return ++seen.at(index + Index::Filled(4)), true; });
        }
        Testing::forEachIndex(range, [&](Index const& index) {
            EXPECT_EQ(seen.at(index + Index::Filled(4)), 1) << index << " of " << range << " by " << budget;
            return !testing::Test::HasFailure();
        });
        ASSERT_FALSE(testing::Test::HasFailure());
    }
    EXPECT_THROW(Blocks({}, Box::OfSize({1, 1, 1, 1}), 0), std::invalid_argument);
    EXPECT_TRUE(Blocks({}, Box(), 1).empty());
}

TEST(Blocks, GrowAlongTheFastestAxisFirst) {
    AccessTraits traits;
    traits.naturalBlock = {4, 4, 4, 1};
    auto const first = [&](std::int64_t budget) { return Blocks(traits, Box::OfSize({8, 8, 20, 1}), budget)[0]; };
    EXPECT_EQ(first(64), Box::OfSize({4, 4, 4, 1}));
    EXPECT_EQ(first(200), Box::OfSize({4, 4, 12, 1}));
    EXPECT_EQ(first(700), Box::OfSize({4, 8, 20, 1}));
    EXPECT_EQ(first(40), Box::OfSize({2, 4, 4, 1})) << "cut along the slowest";
    traits.fastestAxis = 0;
    EXPECT_EQ(first(128), Box::OfSize({8, 4, 4, 1}));
}

// Runs tasks in its own way; waits at its end for those that it runs on threads.
class TestExecutor {
  public:
    enum Kind { Drops, Inline, Threads, Late, Throws };

    explicit TestExecutor(Kind kind) : kind_(kind) {}
    ~TestExecutor() {
        for (auto const& task : late_) {
            task();
        }
        for (auto& thread : threads_) {
            thread.join();
        }
    }

    TransferOptions options(int workers) {
        TransferOptions all;
        all.workers = workers;
        all.executor = [this](std::function<void()> task) {
            ++asked;
            if (kind_ == Inline) {
                task();
            } else if (kind_ == Threads) {
                threads_.emplace_back(std::move(task));
            } else if (kind_ == Late) {
                late_.push_back(std::move(task));
            } else if (kind_ == Throws) {
                throw std::runtime_error("full");
            }
        };
        return all;
    }

    int asked = 0;

  private:
    Kind kind_;
    std::vector<std::thread> threads_;
    std::vector<std::function<void()>> late_;
};

constexpr TestExecutor::Kind kKinds[] = {
    TestExecutor::Drops, TestExecutor::Inline, TestExecutor::Threads, TestExecutor::Late, TestExecutor::Throws};

class Parallel : public testing::TestWithParam<TestExecutor::Kind> {
  protected:
    static constexpr Index kSize{40, 12, 18, 2};

    Parallel() : samples(kSize), store(std::make_shared<MemoryStore<float>>(samples, Index(4, 5, 6, 2))) {
        Random random;
        samples.fill(random, 100);
        store->data = samples;
    }

    std::unique_ptr<IBufferAccessor> chain() const {
        return StoreAccessor::Make(store, std::make_shared<BrickPool>(1 << 14));
    }
    static ArrayRef<4> arrayOf(PlainArray<float>& plain) {
        return {
            plain.box(),
            SharedArray<4>::DenseStrides(plain.box()),
            reinterpret_cast<char*>(plain.samples().data()),
            0,
            typeid(float),
            32};
    }

    PlainArray<float> samples;
    std::shared_ptr<MemoryStore<float>> store;
    TestExecutor executor{GetParam()};
};

TEST_P(Parallel, RegionsAreReadAndWrittenWhole) {
    auto const accessor = chain();
    auto const caller = std::this_thread::get_id();
    auto options = executor.options(3);
    std::int64_t told = 0;
    options.progress = [&](std::int64_t done, std::int64_t total) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        EXPECT_LT(std::exchange(told, done), done);
        EXPECT_EQ(total, samples.box().pointCount());
    };
    PlainArray<float> read(kSize);
    readRegion(*accessor, Region(samples.box()), arrayOf(read), options);
    EXPECT_EQ(read.samples(), samples.samples());
    EXPECT_EQ(told, samples.box().pointCount());
    EXPECT_EQ(executor.asked, GetParam() == TestExecutor::Throws ? 1 : 2);
    for (float& sample : read.samples()) {
        sample = 1 - sample;
    }
    Region turned(samples.box());
    turned[0] = turned[0].reversed();
    told = 0;
    writeRegion(*accessor, turned, arrayOf(read), options);
    flush(*accessor);
    Testing::forEachIndex(samples.box(), [&](Index const& index) {
        auto const place = Index(kSize[0] - 1 - index[0], index[1], index[2], index[3]);
        EXPECT_EQ(store->data.at(index), read.at(place)) << index;
        return !testing::Test::HasFailure();
    });
}

TEST_P(Parallel, CopiesHandOverEachBlockOnce) {
    auto const target = std::make_shared<MemoryStore<float>>(PlainArray<float>(kSize), Index(8, 12, 5, 2));
    auto const to = StoreAccessor::Make(target, std::make_shared<BrickPool>(0));
    auto options = executor.options(3);
    options.byteBudget = 3 * 8 * 12 * 5 * 2 * 4;
    copyRegion(*chain(), *to, options);
    flush(*to);
    EXPECT_EQ(target->data.samples(), samples.samples());
    EXPECT_EQ(target->writes, 5 * 1 * 4);
    EXPECT_EQ(target->reads, 0) << "blocks that are written whole need not be read";
    auto const other = StoreAccessor::Make(
        std::make_shared<MemoryStore<float>>(PlainArray<float>({40, 12, 18, 1}), Index(8, 12, 5, 1)),
        std::make_shared<BrickPool>(0));
    EXPECT_THROW(copyRegion(*other, *to, options), std::invalid_argument);
}

TEST_P(Parallel, BlocksAndHistogramsCountEachSample) {
    auto const accessor = chain();
    std::mutex mutex;
    double sum = 0;
    AccessTraits const traits = traitsOf(*accessor);
    forEachBlock<float>(
        *accessor, Blocks(traits, samples.box(), 1000),
        [&](Box const& box, ArrayRef<4> const& array) {
            std::lock_guard const lock(mutex);
            Testing::forEachIndex(box, [&](Index const& index) {
                float const sample = reinterpret_cast<float const*>(array.data())[array.position(index)];
                EXPECT_EQ(sample, samples.at(index)) << index;
                sum += double{sample};
                return !testing::Test::HasFailure();
            });
        },
        executor.options(3));
    EXPECT_EQ(sum, std::accumulate(samples.samples().begin(), samples.samples().end(), 0.0));
    Region everySecond(samples.box());
    everySecond[2] = {17, -2, 9};
    for (bool const isFixed : {true, false}) {
        Histogram counted = isFixed ? Histogram(Histogram::fixed, 0, 50, 10) : Histogram(Histogram::flexible, 10);
        Histogram expected = counted;
        auto options = executor.options(3);
        options.byteBudget = 400;  // in several pieces
        addRegion(counted, *accessor, everySecond, options);
        Testing::forEachIndex(samples.box(), [&](Index const& index) {
            return index[2] % 2 == 1 ? expected.add(samples.at(index)) : void(), true;
        });
        EXPECT_EQ(counted.nofSamples() + counted.overflows(), expected.nofSamples() + expected.overflows());
        EXPECT_EQ(counted.max(), expected.max());
        EXPECT_TRUE(!isFixed || counted.bins(10) == expected.bins(10)) << counted << " and " << expected;
    }
}

TEST_P(Parallel, FailuresAndStopsReachTheCaller) {
    auto const whole = Region(samples.box());
    for (int failing = 1; failing <= 8; failing += 3) {
        PlainArray<float> read(kSize);
        auto const accessor = chain();
        store->reads = 0;
        store->onRead = [&, failing] { store->reads == failing ? throw std::domain_error("disk") : void(); };
        EXPECT_THROW(readRegion(*accessor, whole, arrayOf(read), executor.options(3)), std::domain_error);
        store->onRead = {};
        readRegion(*accessor, whole, arrayOf(read), executor.options(3));
        EXPECT_EQ(read.samples(), samples.samples()) << "the same call works again";
    }
    PlainArray<float> read(kSize);
    auto const accessor = chain();
    auto options = executor.options(2);
    std::stop_source stop;
    options.stop = stop.get_token();
    store->reads = 0;
    store->onRead = [&] { store->reads == 3 && stop.request_stop(); };
    EXPECT_THROW(readRegion(*accessor, whole, arrayOf(read), options), Exceptions::CancelledException);
    EXPECT_LE(store->reads, 5) << "one more of each worker at most";
}

std::string nameOf(testing::TestParamInfo<TestExecutor::Kind> const& kind) {
    constexpr char const* kNames[] = {"Drops", "Inline", "Threads", "Late", "Throws"};
    return kNames[kind.param];
}

INSTANTIATE_TEST_SUITE_P(Executors, Parallel, testing::ValuesIn(kKinds), nameOf);

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
