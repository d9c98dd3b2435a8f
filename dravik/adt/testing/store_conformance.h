// SPDX-License-Identifier: Apache-2.0
#pragma once

// One script that takes any store through what accessors, pools and regions do with it, and compares it with a plain
// array. A format calls it with files that its own library or a foreign tool has written.
//
//     expectStoreConforms<float>({"chunked file", [&] { return openStore(path); }, samples});

#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/plain_array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// A store under the script, for samples of type T of whole bytes.
template <class T>
struct StoreSubject {
    std::string name;
    /// Opens the same storage at each call. One that can be written has other samples after the script.
    std::function<std::shared_ptr<BulkView::IBrickStore>()> open;
    PlainArray<T> samples;   ///< what the storage holds
    int highestSample = 98;  ///< of what is written: whole numbers from 0 to this
};

/// How many natural blocks hold an index of `region`, each counted once.
inline std::int64_t blocksTouched(BulkView::AccessTraits const& traits, ExtentK<4, int> const& region) {
    std::int64_t blocks = 1;
    for (int axis = 0; axis < 4; ++axis) {
        int const length = traits.naturalBlock[axis];
        std::set<int> along;
        for (int number = 0; number < region[axis].count && length > 0; ++number) {
            // From the block's origin, which may lie behind the index.
            int const place = region[axis].origin + number * region[axis].step - traits.blockOrigin[axis];
            along.insert((place >= 0 ? place : place - length + 1) / length);
        }
        blocks *= length > 0 ? static_cast<std::int64_t>(along.size()) : 1;
    }
    return blocks;
}

/// Passes everything on, counts the bytes of samples and the blocks that hold them, and lets one call fail.
class WatchedStore final : public BulkView::IBrickStore {
  public:
    using Box = OpenEndedRange<4, int>;

    explicit WatchedStore(std::shared_ptr<BulkView::IBrickStore> store) : store_(std::move(store)) {}

    FixedVector<4, int> size() const override { return store_->size(); }
    BulkView::AccessTraits traits() const override { return store_->traits(); }
    void read(Box const& box, void* samples) const override {
        bytesRead += box.pointCount() * traits().bitSize / 8;
        blocksRead += blocksTouched(traits(), ExtentK<4, int>(box));
        call();
        store_->read(box, samples);
    }
    bool servesSteps() const override { return store_->servesSteps(); }
    void readSteps(ExtentK<4, int> const& region, void* samples) const override {
        std::int64_t count = 1;
        for (int axis = 0; axis < 4; ++axis) {
            count *= region[axis].count;
        }
        bytesRead += count * traits().bitSize / 8;
        call();
        store_->readSteps(region, samples);
    }
    void write(Box const& box, void const* samples) override { call(), store_->write(box, samples); }
    void flush() override { call(), store_->flush(); }
    bool hasSamples(Box const& box) const override { return store_->hasSamples(box); }
    bool servesParts() const override { return store_->servesParts(); }

    mutable std::atomic<std::int64_t> bytesRead{0};
    mutable std::atomic<std::int64_t> blocksRead{0};  ///< a store of chunks decodes as many
    mutable std::atomic<int> callsToFailure{-1};      ///< the call after as many fails; none below 0

  private:
    void call() const {
        if (callsToFailure-- == 0) {
            throw std::runtime_error("bad sector");
        }
    }

    std::shared_ptr<BulkView::IBrickStore> store_;
};

/// Samples of a region in memory, its axes in any order.
template <class T>
struct RegionSamples {
    using Index = FixedVector<4, int>;

    RegionSamples(Random& random, ExtentK<4, int> const& itsRegion) : region(itsRegion) {
        int axes[] = {0, 1, 2, 3};
        random.chance(50) ? std::shuffle(axes, axes + 4, random.engine()) : std::reverse(axes, axes + 4);
        int reach = 1;
        for (int const axis : axes) {
            strides[axis] = std::exchange(reach, reach * region[axis].count);
            box.max[axis] = region[axis].count;
        }
        memory.resize(static_cast<std::size_t>(reach));
    }

    ArrayRef<4> array() {
        return {box, strides, reinterpret_cast<char*>(memory.data()), 0, typeid(T), static_cast<int>(8 * sizeof(T))};
    }
    /// Calls visit(index, sample), the index in the accessor, until it returns false.
    template <class Visit>
    void forEach(Visit visit) {
        forEachIndex(box, [&](Index const& place) {
            Index index;
            std::size_t position = 0;
            for (int axis = 0; axis < 4; ++axis) {
                index[axis] = region[axis].origin + place[axis] * region[axis].step;
                position += static_cast<std::size_t>(place[axis] * strides[axis]);
            }
            return visit(static_cast<Index const&>(index), memory[position]);
        });
    }

    ExtentK<4, int> region;
    OpenEndedRange<4, int> box;
    Index strides;
    std::vector<T> memory;
};

/// The script. Has the storage open once at a time.
template <class T>
class StoreConformance {
  public:
    explicit StoreConformance(StoreSubject<T> const& subject) : subject_(subject), data_(subject.samples) {}

    void run() {
        testing::ScopedTrace const trace(__FILE__, __LINE__, subject_.name);
        using Step = void (StoreConformance::*)();
        for (Step const step :
             {&StoreConformance::tellsWhatItHas, &StoreConformance::readsAnyBox, &StoreConformance::servesRegions,
              &StoreConformance::readsShapesWithinBounds, &StoreConformance::servesThreads,
              &StoreConformance::outlivesFailedReads, &StoreConformance::losesNothingThatIsWritten}) {
            if (!testing::Test::HasFailure()) {
                (this->*step)();
            }
        }
    }

  private:
    using Index = FixedVector<4, int>;
    using Region = ExtentK<4, int>;

    // The store as the bottom of a chain, in a pool of its own.
    struct Bottom {
        Bottom(StoreSubject<T> const& subject, std::int64_t byteBudget)
            : store(std::make_shared<WatchedStore>(subject.open())),
              accessor(BulkView::StoreAccessor::Make(store, std::make_shared<BulkView::BrickPool>(byteBudget))) {}

        std::shared_ptr<WatchedStore> store;
        std::unique_ptr<BulkView::IBufferAccessor> accessor;
    };

    std::int64_t byteSize() const { return data_.box().pointCount() * static_cast<std::int64_t>(sizeof(T)); }

    void tellsWhatItHas() {
        auto const store = subject_.open();
        auto const traits = store->traits();
        ASSERT_EQ(store->size(), data_.size());
        ASSERT_STREQ(traits.sampleType->name(), typeid(T).name());
        ASSERT_EQ(traits.bitSize, static_cast<int>(8 * sizeof(T)));
    }

    void readsAnyBox() {
        auto const store = subject_.open();
        for (int round = 0; round < 40 && !testing::Test::HasFailure(); ++round) {
            Index const a = data_.randomIndex(random_), b = data_.randomIndex(random_);
            OpenEndedRange<4, int> box;
            for (int axis = 0; axis < 4; ++axis) {
                bool const isWhole = random_.chance(30);
                box.min[axis] = isWhole ? 0 : std::min(a[axis], b[axis]);
                box.max[axis] = isWhole ? data_.size()[axis] : std::max(a[axis], b[axis]) + 1;
            }
            std::vector<T> samples(static_cast<std::size_t>(box.pointCount()) + 1, T{77});
            store->read(box, samples.data());
            EXPECT_EQ(samples.back(), T{77}) << "written beyond the end of " << box;
            auto sample = samples.begin();
            forEachIndex(box, [&](Index const& index) { return isRight(index, *sample++); });
        }
    }

    bool isRight(Index const& index, T const& sample) const {
        bool const same = sameSample(sample, data_.at(index));
        EXPECT_TRUE(same) << "sample " << index << " is " << +sample << " in place of " << +data_.at(index);
        return same;
    }

    Region randomRegion(Random& random) const {
        Region region;
        for (int axis = 0; axis < 4; ++axis) {
            int const size = data_.size()[axis], step = random.oneOf({-3, -1, 1, 1, 1, 2, 5});
            int const origin = random.chance(40) ? (step > 0 ? 0 : size - 1) : random.between(0, size - 1);
            int const most = (step > 0 ? size - 1 - origin : origin) / std::abs(step) + 1;
            region[axis] = {origin, step, random.chance(50) ? most : random.between(1, most)};
        }
        return region;
    }

    void expectRead(Random& random, BulkView::IBufferAccessor& accessor, Region const& region) const {
        RegionSamples<T> read(random, region);
        BulkView::readRegion(accessor, region, read.array());
        read.forEach([&](Index const& index, T const& sample) { return isRight(index, sample); });
    }

    // Bytes that the store may be asked for: bricks with a wanted sample, once each, or the parts that are wanted.
    static std::int64_t mostBytes(Bottom const& bottom, Region const& region) {
        auto traits = BulkView::traitsOf(*bottom.accessor);
        traits.naturalBlock = bottom.store->servesParts() ? Index() : traits.naturalBlock;
        std::int64_t steps = 1;
        for (int axis = 0; axis < 4; ++axis) {
            steps *= bottom.store->servesParts() && !bottom.store->servesSteps() ? std::abs(region[axis].step) : 1;
        }
        return steps * BulkView::bytesTouched(traits, region);
    }

    void servesRegions() {
        for (std::int64_t const byteBudget : {std::int64_t{0}, byteSize() / 8, 2 * byteSize()}) {
            Bottom const lasting(subject_, byteBudget);
            for (int round = 0; round < 30 && !testing::Test::HasFailure(); ++round) {
                auto const region = randomRegion(random_);
                testing::ScopedTrace const trace(__FILE__, __LINE__, (std::ostringstream() << region).str());
                std::int64_t const before = lasting.store->bytesRead, blocksBefore = lasting.store->blocksRead;
                expectRead(random_, *lasting.accessor, region);
                EXPECT_LE(lasting.store->bytesRead - before, mostBytes(lasting, region));
                if (!lasting.store->servesParts()) {
                    EXPECT_LE(lasting.store->blocksRead - blocksBefore, blocksTouched(lasting.store->traits(), region));
                }
                BulkView::BufferHandle handle;
                auto const index = data_.randomIndex(random_);
                lasting.accessor->getBuffer(index, BulkView::AdtEnums::Read, handle);
                if (!handle.isNull()) {
                    isRight(index, static_cast<T const*>(handle.buffer())[handle.offset(index)]);
                }
            }
        }
    }

    void readsShapesWithinBounds() {
        Region const whole{data_.box()};
        auto const across = [&](int axis) {
            Region region = whole;
            region[axis] = {random_.between(0, data_.size()[axis] - 1), 1, 1};
            return region;
        };
        Region cube, trace = across(0);
        std::vector<Region> traces;
        for (int axis = 0; axis < 4; ++axis) {
            int const size = data_.size()[axis];
            cube[axis] = {size / 4, 1, (size + 1) / 2};
        }
        for (int number = 0; number < 20; ++number) {
            trace[0] = across(0)[0];
            trace[1] = across(1)[1];
            traces.push_back(trace);
        }
        struct Shape {
            char const* name;
            std::vector<Region> regions;
        };
        for (auto const& [name, regions] :
             {Shape{"inline", {across(0)}}, Shape{"crossline", {across(1)}}, Shape{"slice", {across(2)}},
              Shape{"cube", {cube}}, Shape{"random traces", traces}}) {
            Bottom const bottom(subject_, 16 * byteSize());
            std::int64_t most = 0;
            for (Region const& region : regions) {
                expectRead(random_, *bottom.accessor, region);
                most += mostBytes(bottom, region);
            }
            EXPECT_LE(bottom.store->bytesRead, most) << name;
        }
    }

    void servesThreads() {
        Bottom const bottom(subject_, byteSize() / 2);
        std::vector<std::jthread> threads;
        for (std::uint64_t number = 0; number < 4; ++number) {
            threads.emplace_back([&, number, clone = bottom.accessor->createClone()] {
                Random random(randomSeed() + number);
                for (int round = 0; round < 15; ++round) {
                    expectRead(random, *clone, randomRegion(random));
                }
            });
        }
    }

    // Does it once more after a failure.
    template <class Act>
    static void insist(Act act) {
        try {
            act();
        } catch (std::runtime_error const& error) {
            EXPECT_STREQ(error.what(), "bad sector");
            act();
        }
    }

    static constexpr int kMostFailures = 100;

    void outlivesFailedReads() {
        for (int call = 0, left = -1; left < 0 && call < kMostFailures && !testing::Test::HasFailure(); ++call) {
            Bottom const bottom(subject_, byteSize() / 3);
            Region region{data_.box()};
            region[1].origin = data_.size()[1] - 1;
            region[1].count = 1;
            bottom.store->callsToFailure = call;
            insist([&] { expectRead(random_, *bottom.accessor, region); });
            insist([&] { expectRead(random_, *bottom.accessor, Region(data_.box())); });
            left = bottom.store->callsToFailure;
        }
    }

    void losesNothingThatIsWritten() {
        if (!subject_.open()->traits().writable) {
            Bottom const bottom(subject_, 0);
            RegionSamples<T> written(random_, randomRegion(random_));
            EXPECT_THROW(
                BulkView::writeRegion(*bottom.accessor, written.region, written.array()),
                Exceptions::NotSupportedException);
            return;
        }
        for (int call = 0, left = -1; left < 0 && call < kMostFailures && !testing::Test::HasFailure(); ++call) {
            left = writeWithFailure(call);
            SCOPED_TRACE("call " + std::to_string(call) + " of the store failed");
            auto const reopened = subject_.open();
            std::vector<T> samples(data_.samples().size());
            reopened->read(data_.box(), samples.data());
            auto sample = samples.begin();
            forEachIndex(data_.box(), [&](Index const& index) { return isRight(index, *sample++); });
        }
    }

    int writeWithFailure(int call) {
        Bottom const bottom(subject_, random_.between(std::int64_t{0}, byteSize()));
        bottom.store->callsToFailure = call;
        for (int round = 0; round < 6; ++round) {
            RegionSamples<T> written(random_, randomRegion(random_));
            written.forEach([&](Index const& index, T& sample) {
                sample = data_.at(index) = static_cast<T>(random_.between(0, subject_.highestSample));
                return true;
            });
            insist([&] { BulkView::writeRegion(*bottom.accessor, written.region, written.array()); });
            insist([&] { writeOne(*bottom.accessor, data_.randomIndex(random_)); });
            insist([&] { expectRead(random_, *bottom.accessor, randomRegion(random_)); });
        }
        insist([&] { BulkView::flush(*bottom.accessor); });
        return bottom.store->callsToFailure;
    }

    void writeOne(BulkView::IBufferAccessor& accessor, Index const& index) {
        BulkView::BufferHandle handle;
        accessor.getBuffer(index, BulkView::AdtEnums::ReadWrite, handle);
        data_.at(index) = static_cast<T>(random_.between(0, subject_.highestSample));
        static_cast<T*>(handle.buffer())[handle.offset(index)] = data_.at(index);
    }

    Random random_;
    StoreSubject<T> const& subject_;
    PlainArray<T> data_;
};

/// Takes the subject through the script.
template <class T>
void expectStoreConforms(StoreSubject<T> const& subject) {
    StoreConformance<T>(subject).run();
}

}  // namespace Quorvel::Dravik::Adt::Testing
