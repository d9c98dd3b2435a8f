#include "dravik/adt/bulkview/typed_2d_views.h"
#include "dravik/adt/bulkview/typed_3d_views.h"

#include "dravik/adt/testing/brick_accessor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::BrickAccessor;
using Testing::BrickOptions;
using Testing::PlainArray;
using Index4 = FixedVector<4, int>;

constexpr Index4 kSize(8, 8, 16, 1);

// A view over bricks, read by this thread while another one keeps notifying it.
class Disturbed {
  public:
    using Disturb = std::function<void(BrickAccessor<float>&, Index4 const&)>;

    explicit Disturbed(BrickOptions options) {
        Testing::Random random;
        data_.fill(random, 1000);
        options.brickSize = {4, 4, 8, 1};
        auto accessor = std::make_unique<BrickAccessor<float>>(data_, options);
        bricks_ = accessor.get();
        view_.init(std::move(accessor));
    }

    /// Reads random samples, each through `read(view, index)`, and writes the sample back now and then.
    template <class Read>
    void run(Disturb const& disturb, Read read) {
        std::thread foreign([&] {
            Testing::Random random(Testing::randomSeed() + 1);
            for (; !done_; ++disturbances_) {
                disturb(*bricks_, data_.randomIndex(random));
            }
        });
        Testing::Random random;
        int wrong = 0;
        for (int round = 0; round < 2000 || disturbances_ < 500; ++round) {
            Index4 const p = data_.randomIndex(random);
            wrong += read(view_, p) != data_.at(p);
        }
        done_ = true;
        foreign.join();
        EXPECT_EQ(wrong, 0);
        for (auto const& [index, sample] :
             {std::pair(Index4(), data_.at({})), {Index4(7, 7, 15, 0), data_.at({7, 7, 15, 0})}}) {
            EXPECT_EQ(view_.get(index[0], index[1], index[2]), sample) << "left in a state of use";
        }
    }

    PlainArray<float> const& data() const { return data_; }

  private:
    PlainArray<float> data_{kSize};
    BrickAccessor<float>* bricks_;
    Typed3dRwView<float> view_;
    std::atomic<bool> done_ = false;
    std::atomic<int> disturbances_ = 0;
};

float readSample(Typed3dRwView<float>& view, Index4 const& p) {
    return view.get(p[0], p[1], p[2]);
}

float writeSampleBack(Typed3dRwView<float>& view, Index4 const& p) {
    float const sample = view.get(p[0], p[1], p[2]);
    view.set(p[0], p[1], p[2], sample);
    return view.get(p[0], p[1], p[2]);
}

float readByIterator(Typed3dRwView<float>& view, Index4 const& p) {
    auto at = view.samples({p[0], p[1], 0}, {1, 1, p[2] + 1}).begin();
    for (int k = 0; k < p[2]; ++k) {
        ++at;
    }
    return *at;
}

float readByTrace(Typed3dRwView<float>& view, Index4 const& p) {
    std::vector<float> trace(static_cast<std::size_t>(p[2] + 1));
    view.prototypeGetKTrace(p[0], p[1], 0, trace.data(), p[2] + 1);
    return trace.back();
}

TEST(TypedViewThreads, ReadWhileAnotherThreadInvalidates) {
    auto const invalidate = [](BrickAccessor<float>& bricks, Index4 const& p) {
        bricks.client()->bufferInvalidated(bricks.brickAt(p).get());
        bricks.client()->bufferInvalidated(nullptr);
    };
    for (auto* read : {readSample, writeSampleBack, readByIterator, readByTrace}) {
        Disturbed({.grantedForRead = AdtEnums::ReadWrite}).run(invalidate, read);
    }
}

TEST(TypedViewThreads, ReadWhileAnotherThreadPreparesARelease) {
    auto const prepare = [](BrickAccessor<float>& bricks, Index4 const& p) { bricks.prepareRelease(p); };
    for (auto* read : {readSample, writeSampleBack, readByIterator, readByTrace}) {
        Disturbed({.locksOwner = true}).run(prepare, read);
    }
}

// A read that begins after a notification has returned shows what the notification was about, however close it was to a
// fetch.
TEST(TypedViewThreads, MissNoInvalidation) {
    PlainArray<float> const data({1, 2, 1, 1});
    auto accessor =
        std::make_unique<BrickAccessor<float>>(data, BrickOptions{.brickSize = {1, 1, 1, 1}, .poisons = false});
    auto& bricks = *accessor;
    Typed2dRoView<float> const view(std::move(accessor));
    constexpr int kChanges = 3000;
    std::atomic<int> told = 0;
    std::thread foreign([&] {
        for (int change = 1; change <= kChanges; ++change) {
            bricks.change({0, 0, 0, 0}, static_cast<float>(change));
            told = change;
        }
    });
    int stale = 0;
    for (int lowest = 0; lowest < kChanges;) {
        lowest = told;
        stale += view.get(0, 0) < static_cast<float>(lowest);
        view.get(0, lowest % 2);
    }
    foreign.join();
    EXPECT_EQ(stale, 0);
}

// The owner's lock, held by the reader as well, keeps the block while a sample is read. Since it is not known
// beforehand which brick serves the next read, all bricks share one lock here.
TEST(TypedViewThreads, ReadUnderTheLockOfTheOwnerWhileAnotherThreadTakesBlocksBack) {
    std::recursive_mutex lock;
    Disturbed disturbed({.locksOwner = true, .sharedLock = &lock});
    auto const release = [&](BrickAccessor<float>& bricks, Index4 const& p) {
        bricks.prepareRelease(p);
        bricks.release(p);
    };
    disturbed.run(release, [&](Typed3dRwView<float>& view, Index4 const& p) {
        std::lock_guard const guard(lock);
        return view.get(p[0], p[1], p[2]);
    });
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
