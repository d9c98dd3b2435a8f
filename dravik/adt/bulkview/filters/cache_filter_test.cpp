#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/cache_filter_impl.h"

#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/failing_calls.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/random.h"
#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Box = OpenEndedRange<4, int>;
using Position = FixedVector<4, int>;
using Loan = BufferHandle::Loan;
using testing::ElementsAre;
using Testing::Journal;
using Testing::Random;
using Testing::RecordingAccessor;

// Calls back when it is destroyed.
struct CallingOwner : BufferHandle::Owner {
    explicit CallingOwner(std::function<void()> atEnd) : atEnd_(std::move(atEnd)) {}
    ~CallingOwner() override { atEnd_(); }
    void lock() override {}
    void unlock() override {}
    std::function<void()> atEnd_;
};

// Answers requests with whatever `lend` puts into the handle.
struct LendingAccessor : RecordingAccessor {
    using Lend = std::function<void(Position, AdtEnums::Access, BufferHandle&)>;
    LendingAccessor(Position size, Lend lending) : RecordingAccessor("", Journal(), size), lend(std::move(lending)) {}
    ~LendingAccessor() override { onEnd(); }
    void getBuffer(Position position, AdtEnums::Access access, BufferHandle& handle) override {
        lend(position, access, handle);
    }
    Lend lend;
    std::function<void()> onEnd = [] {};
};

constexpr int kNever = CacheFilter::kNever;

struct CacheLimits {
    int budget, half, full;
};

// The rules of the cache, literally: one entry after the other, one step after the other.
class SlowCache {
  public:
    SlowCache(int axes, CacheLimits const& limits) : axes_(axes), limits_(limits) {}

    std::optional<Loan> lookUp(Position const& p, AdtEnums::Access access) {
        if (isIndex(predicted_) && matches(predicted_, p, access)) {
            previous_ = predicted_;
            predicted_ = at(previous_).next;
            return at(previous_).loan;
        }
        if (!contains(covered_, p) || entries.empty()) {
            return std::nullopt;
        }
        int const n = size();
        bool const backward = backward_;
        int i = backward ? n - 1 : 0;
        for (int remaining = n; !matches(i, p, access); i += backward ? -1 : 1) {
            if (remaining == n / 2) {
                backward_ = !backward;
            }
            if (--remaining == 0) {
                return std::nullopt;
            }
        }
        if (isIndex(previous_)) {
            at(previous_).next = i;
        }
        previous_ = i;
        predicted_ = at(i).next;
        return at(i).loan;
    }

    void store(Loan const& loan) {
        Box const& box = loan.info.range;
        unsigned const old = samples_;
        unsigned const s = static_cast<unsigned>(count(box));
        samples_ += s;
        for (int a = 0; a < axes_; ++a) {
            bool const wasEmpty = covered_.max[a] <= covered_.min[a];
            bool const isEmpty = box.max[a] <= box.min[a];
            int const low = wasEmpty ? box.min[a] : isEmpty ? covered_.min[a] : std::min(box.min[a], covered_.min[a]);
            covered_.max[a] = wasEmpty ? box.max[a] : isEmpty ? covered_.max[a] : std::max(box.max[a], covered_.max[a]);
            covered_.min[a] = low;
        }
        std::int64_t const c = std::min<std::int64_t>(count(covered_), UINT_MAX);
        auto const n = static_cast<unsigned>(size());
        if (samples_ > static_cast<unsigned>(limits_.budget) ||
            (n >= static_cast<unsigned>(limits_.full) && c > samples_) ||
            (n >= static_cast<unsigned>(limits_.half) && c / 2 >= old)) {
            entries.clear();
            samples_ = s;
            previous_ = predicted_ = -1;
            covered_ = box;
        }
        if (isIndex(previous_)) {
            at(previous_).next = size();
        }
        previous_ = size();
        predicted_ = -1;
        entries.push_back({loan, -1});
    }

    struct Entry {
        Loan loan;
        int next;
    };
    std::vector<Entry> entries;

  private:
    int size() const { return static_cast<int>(entries.size()); }
    bool isIndex(int i) const { return i >= 0 && i < size(); }
    Entry& at(int i) { return entries.at(static_cast<std::size_t>(i)); }
    bool contains(Box const& box, Position const& p) const {
        bool inside = true;
        for (int a = 0; a < axes_; ++a) {
            inside = inside && box.min[a] <= p[a] && p[a] < box.max[a];
        }
        return inside;
    }
    bool matches(int i, Position const& p, AdtEnums::Access access) {
        Loan const& loan = at(i).loan;
        return contains(loan.info.range, p) && (access == loan.access || access == AdtEnums::Read) && !loan.invalidated;
    }
    std::int64_t count(Box const& box) const {
        std::int64_t product = 1;
        for (int a = 0; a < axes_; ++a) {
            product *= std::max<std::int64_t>(box.size(a), 0);
        }
        return product;
    }

    int axes_;
    CacheLimits limits_;
    int previous_ = -1;
    int predicted_ = -1;
    bool backward_ = false;
    Box covered_;
    unsigned samples_ = 0;
};

// How a random target lays out its blocks.
enum class Layout { kBricks, kShiftedBricks, kNested, kAnything };

class Blocks {
  public:
    Blocks(Random& random, Layout layout, int axes, Position size)
        : random_(random), layout_(layout), axes_(axes), size_(size) {
        for (int axis = 0; axis < 4; ++axis) {
            length_[axis] = random.between(1, 5);
            phase_[axis] = layout == Layout::kShiftedBricks ? random.between(0, length_[axis] - 1) : 0;
        }
    }

    Box around(Position const& p) {
        Box box;
        for (int axis = 0; axis < 4; ++axis) {
            int const low = (p[axis] + phase_[axis]) / length_[axis] * length_[axis] - phase_[axis];
            box.min[axis] = std::max(low, 0);
            box.max[axis] = std::min(low + length_[axis], size_[axis]);
        }
        if (layout_ == Layout::kNested && random_.chance(20)) {
            box = Box::OfSize(size_);
        } else if (layout_ == Layout::kAnything) {
            int const axis = random_.between(0, axes_ - 1);
            box.min[axis] = random_.between(-2, size_[axis]);
            box.max[axis] = axis == 0 && random_.chance(5) ? INT_MAX : box.min[axis] + random_.between(-1, 6);
        }
        return box;
    }

  private:
    Random& random_;
    Layout layout_;
    int axes_;
    Position size_, length_, phase_;
};

AdtEnums::Access randomAccess(Random& random) {
    return random.chance(60) ? AdtEnums::Read : static_cast<AdtEnums::Access>(random.oneOf({0, 2, 3, 4, 42}));
}

// One script: the cache and the slow model see the same requests, the same answers of the target and the same
// notifications. Every block has a buffer of its own, so what a request is served with names the entry; which owners
// are alive tells which entries there are.
void runScript(Random& random) {
    int const axes = random.between(2, 4);
    Position size = Position::Filled(1);
    for (int axis = 0; axis < axes; ++axis) {
        size[axis] = random.between(2, 14);
    }
    auto const threshold = [&] { return random.oneOf({-1, -1, 0, 1, random.between(2, 40)}); };
    CacheLimits const limits{
        random.oneOf({-1, 0, random.between(1, 200), random.between(200, 5000)}), threshold(), threshold()};
    Blocks blocks(
        random, random.oneOf({Layout::kBricks, Layout::kShiftedBricks, Layout::kNested, Layout::kAnything}), axes,
        size);

    std::vector<char> memory(1000);
    std::multiset<void const*> alive;  // one per owner: the buffer of its first block
    boost::intrusive_ptr<BufferHandle::Owner> owner;
    int requests = 0;
    std::optional<Loan> answer;
    auto const lend = [&](Position position, AdtEnums::Access access, BufferHandle& handle) {
        void* const buffer = &memory.at(static_cast<std::size_t>(requests++));
        if (owner == nullptr || random.chance(70)) {
            alive.insert(buffer);
            owner = new CallingOwner([&alive, buffer] { alive.erase(alive.find(buffer)); });
        }
        auto const granted = random.chance(80) ? access : AdtEnums::ReadWrite;
        handle.update(buffer, {blocks.around(position), {}, random.between(0, 9)}, granted);
        handle.setOwner(random.chance(5) ? nullptr : owner.get());
        answer = handle.loan();
    };
    SlowCache model(axes, limits);
    auto const cache =
        CacheFilter::Apply(std::make_unique<LendingAccessor>(size, lend), limits.budget, limits.half, limits.full);
    auto& notified = dynamic_cast<IBufferAccessor::IClient&>(*cache);
    auto const forget = [&](auto isGone) {
        return std::erase_if(model.entries, [&](SlowCache::Entry const& entry) { return isGone(entry.loan); }) != 0;
    };

    BufferHandle handle;
    std::vector<Position> sweep;
    int const steps = random.between(20, 250);
    for (int step = 0; step < steps && requests < 1000; ++step) {
        int const action = random.between(0, 99);
        Loan const any = model.entries.empty() || random.chance(10)
                             ? Loan()
                             : model.entries[random.between<std::size_t>(0, model.entries.size() - 1)].loan;
        if (action < 2) {
            notified.accessorUpdated();
            model.entries.clear();
        } else if (action < 4) {
            notified.bufferInvalidated(any.owner.get());
            forget([&](Loan const& loan) { return loan.owner == any.owner; });
        } else if (action < 6) {
            int value = 0;
            bool const isTaken = forget([&](Loan const& loan) { return loan.buffer == any.buffer; });
            EXPECT_EQ(notified.prepareBufferRelease(any.buffer, value), isTaken);
        } else if (action < 8) {
            notified.releaseBuffer(any.buffer, any.owner);
            forget([&](Loan const& loan) { return loan.buffer == any.buffer; });
        } else if (action < 10) {
            handle.invalidate(/*emptyRange=*/random.chance(50));
        } else {
            if (random.chance(5)) {
                handle.reset(/*releaseOwner=*/true);
            }
            Position position;
            for (int axis = 0; axis < axes; ++axis) {
                position[axis] = std::clamp(random.edgy(0, size[axis] - 1), 0, size[axis] - 1);
            }
            if (sweep.size() < 12) {
                sweep.push_back(position);
            } else if (random.chance(80)) {
                position = sweep[static_cast<std::size_t>(step) % sweep.size()];
            }
            auto const access = randomAccess(random);
            int const requestsBefore = requests;
            answer.reset();
            cache->getBuffer(position, access, handle);
            auto const expected = model.lookUp(position, access);
            ASSERT_EQ(requests - requestsBefore, expected ? 0 : 1) << "step " << step << " at " << position;
            if (!expected) {
                model.store(*answer);
            }
            Loan const served = handle.loan();
            Loan const& wanted = expected ? *expected : *answer;
            ASSERT_EQ(served.buffer, wanted.buffer) << "step " << step << " at " << position;
            EXPECT_EQ(served.info, wanted.info);
            EXPECT_EQ(served.owner, wanted.owner);
            EXPECT_EQ(served.access, wanted.access);
            EXPECT_EQ(served.invalidated, wanted.invalidated);
        }
        answer.reset();
    }
    // With the handle and the model out of the way, the owners that are alive are those of the cache.
    std::set<BufferHandle::Owner*> kept;
    for (SlowCache::Entry const& entry : model.entries) {
        kept.insert(entry.loan.owner.get());
    }
    kept.erase(nullptr);
    model.entries.clear();
    handle.reset(/*releaseOwner=*/true);
    owner.reset();
    EXPECT_EQ(alive.size(), kept.size());
}

TEST(CacheFilter, FollowsItsRulesStepByStep) {
    Random random;
    for (int script = 0; script < 3000 && !testing::Test::HasFailure(); ++script) {
        SCOPED_TRACE(script);
        runScript(random);
    }
}

TEST(CacheFilter, IsMadeForTheAxesThatCount) {
    struct Row {
        Position size;
        int axes;
    };
    for (Row const& row :
         {Row{{100, 1, 1, 1}, 0}, Row{{1, 2, 1, 1}, 2}, Row{{10, 10, 1, 0}, 2}, Row{{9, 1, 2, 1}, 3},
          Row{{1, 1, 1, 2}, 4}, Row{{0, 5, 5, 5}, 4}}) {
        Journal const journal;
        auto target = std::make_unique<RecordingAccessor>("a", journal, row.size);
        auto* const bare = target.get();
        auto const cache = CacheFilter::Apply(std::move(target), 1, 1, 1);
        EXPECT_EQ(cache.get() == bare, row.axes == 0) << row.size;
        EXPECT_EQ(dynamic_cast<CacheFilterImpl<2>*>(cache.get()) != nullptr, row.axes == 2) << row.size;
        EXPECT_EQ(dynamic_cast<CacheFilterImpl<3>*>(cache.get()) != nullptr, row.axes == 3) << row.size;
        EXPECT_EQ(dynamic_cast<CacheFilterImpl<4>*>(cache.get()) != nullptr, row.axes == 4) << row.size;
        cache->setHint(IBufferAccessor::HintType(42), {{1, 2, 3, 4}, {5, 6, 7, 8}}, 0.5f);
        EXPECT_THAT(journal.take(), ElementsAre("a.getSize", "a.setHint(42 [1,5)x[2,6)x[3,7)x[4,8) 0.5)"));
    }
    EXPECT_THAT(
        [] { CacheFilter::Apply(nullptr, 1, 1, 1); },
        testing::ThrowsMessage<std::invalid_argument>(
            "[CacheFilter::Apply] Invalid argument: target accessor is null."));
}

// A cache over blocks of 4 x 4 samples, whose target, owners and client report to `onCall`.
struct Scene : IBufferAccessor::IClient {
    explicit Scene(int fullDensityThreshold = kNever) {
        auto lend = [this](Position p, AdtEnums::Access access, BufferHandle& handle) {
            Testing::callOut("getBuffer");
            ++requests;
            onCall("target");
            Position const low(p[0] / 4 * 4, p[1] / 4 * 4, 0, 0);
            handle.setOwner(new CallingOwner([this, low] { low[0] == 36 ? void() : onCall("owner"); }));
            handle.update(memory, {{low, low + Position(4, 4, 1, 1)}, {4, 1, 0, 0}, 0}, access);
        };
        auto accessor = std::make_unique<LendingAccessor>(Position(40, 40, 1, 1), lend);
        accessor->onEnd = [this] { onCall("target's end"); };
        target = accessor.get();
        cache = CacheFilter::Apply(std::move(accessor), kNever, kNever, fullDensityThreshold);
        cache->setClient(this);
    }
    ~Scene() override {
        onCall = [](char const*) {};
    }

    BufferHandle request(int i, int j) {
        BufferHandle handle;
        cache->getBuffer({i, j, 0, 0}, AdtEnums::Read, handle);
        EXPECT_TRUE(handle.contains(i, j));
        return handle;
    }
    IBufferAccessor::IClient& notified() { return *target->client(); }

    void accessorUpdated() override { onCall("client"); }
    void bufferInvalidated(BufferHandle::Owner const*) override { onCall("client"); }
    bool prepareBufferRelease(void const*, int& value) override { return onCall("client"), ++value == 8; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner> owner) override {
        EXPECT_NE(owner, nullptr);
        onCall("client");
    }
    std::unique_ptr<IBufferAccessor> releaseAccessor() override { return nullptr; }

    std::function<void(char const*)> onCall = [](char const*) {};
    std::atomic<int> requests = 0;
    char memory[16] = {};
    LendingAccessor* target = nullptr;
    std::unique_ptr<IBufferAccessor> cache;
};

// At every call out another thread asks the cache for a block: it would wait for ever for a lock held meanwhile.
TEST(CacheFilter, CallsOutInOrderAndWithoutItsLock) {
    struct Row {
        char const* name;
        std::vector<std::string> calls;
        std::function<void(Scene&)> act;
        int fullDensityThreshold = kNever;
    };
    BufferHandle handle;
    int value = 7;
    Row const rows[] = {
        {"miss", {"target"}, [](Scene& s) { s.request(8, 8); }},
        {"hit",
         {"owner"},
         [&](Scene& s) {
             s.cache->getBuffer({36, 36, 0, 0}, AdtEnums::Read, handle);
         }},
        {"reset", {"target", "owner"}, [](Scene& s) { s.request(8, 8); }, 2},
        {"update", {"client", "owner"}, [](Scene& s) { s.notified().accessorUpdated(); }},
        {"invalidate", {"client", "owner"}, [](Scene& s) { s.notified().bufferInvalidated(s.request(0, 0).owner()); }},
        {"take back",
         {"client", "owner"},
         [&](Scene& s) { EXPECT_TRUE(s.notified().prepareBufferRelease(s.memory, value)); }},
        {"release",
         {"owner", "client"},
         [](Scene& s) { s.notified().releaseBuffer(s.memory, new CallingOwner([] {})); }},
        {"dispose", {"owner"}, [](Scene& s) { s.cache->dispose(/*flag=*/true); }},
        {"destroy", {"owner", "target's end"}, [](Scene& s) { auto const last = std::move(s.cache); }},
    };
    for (Row const& row : rows) {
        Scene scene(row.fullDensityThreshold);
        scene.request(36, 36);
        handle = scene.request(0, 0);
        if (row.name == std::string("hit")) {
            scene.notified().bufferInvalidated(handle.owner());
        } else {
            handle.reset(/*releaseOwner=*/true);
        }
        std::vector<std::string> calls;
        std::atomic<bool> isAsking = false;
        scene.onCall = [&](char const* who) {
            if (!isAsking.exchange(true)) {
                calls.emplace_back(who);
                std::thread([&] { scene.cache == nullptr ? void() : void(scene.request(36, 36)); }).join();
                isAsking = false;
            }
        };
        row.act(scene);
        EXPECT_EQ(calls, row.calls) << row.name;
    }
    EXPECT_EQ(value, 8);
}

TEST(CacheFilter, KeepsNothingOfAFailedRequest) {
    constexpr int kColumns = 9;
    auto const makeScene = [] { return std::make_unique<Scene>(); };
    auto const sweep = [](auto& scene) {
        for (int j = 0; j < kColumns; ++j) {
            scene->request(0, 4 * j);
        }
    };
    auto const check = [&](auto& scene, bool completed) {
        int const before = scene->requests;
        sweep(scene);
        EXPECT_EQ(before == kColumns && completed, scene->requests == before) << "what was kept is kept";
        int const after = scene->requests;
        sweep(scene);
        EXPECT_EQ(scene->requests, after);
    };
    Testing::failEverywhere<Testing::AllocationFailure>("a sweep through the cache", makeScene, sweep, check);
    Testing::failEverywhere<Testing::CallFailure>("a sweep through the cache", makeScene, sweep, check);
}

// Two threads read through clones of one chain while the target takes blocks back and declares others invalid. A reader
// may be served a block that has gone once more, but never another one.
TEST(CacheFilter, ServesThreadsWhileBlocksGo) {
    using Bricks = Testing::BrickAccessor<float>;
    constexpr int kRounds = 10000;
    Random random;
    Testing::PlainArray<float> data({24, 24, 1, 1});
    data.fill(random, 100);
    Bricks const bottom(data, {.locksOwner = true});
    struct Reader {
        Testing::Borrower client;
        Bricks* bottom = nullptr;
        std::unique_ptr<IBufferAccessor> cache;
        int wrong = 0;
    } readers[2];
    auto const read = [&](Reader& reader, std::uint64_t seed) {
        Random own(seed);
        for (int round = 0; round < kRounds; ++round) {
            Position const p = data.randomIndex(own);
            reader.client.request(*reader.cache, p, AdtEnums::Read);
            auto const loan = reader.client.handle.loan();
            if (loan.owner != nullptr && loan.info.range.contains(p)) {
                auto& brick = static_cast<Testing::Brick<float>&>(*loan.owner);
                std::lock_guard const lock(brick);
                reader.wrong += brick.at(p) != data.at(p) && brick.at(p) != brick.kPoison;
            }
        }
    };
    for (Reader& reader : readers) {
        auto clone = bottom.createClone();
        reader.bottom = static_cast<Bricks*>(clone.get());
        reader.cache = CacheFilter::Apply(std::move(clone), 300, kNever, kNever);
        reader.cache->setClient(&reader.client);
    }
    std::thread first(read, std::ref(readers[0]), 1), second(read, std::ref(readers[1]), 2);
    for (int round = 0; round < kRounds; ++round) {
        Reader& reader = readers[round % 2];
        Position const p = data.randomIndex(random);
        reader.bottom->prepareRelease(p);
        reader.bottom->release(p);
        reader.bottom->client()->bufferInvalidated(reader.bottom->brickAt(data.randomIndex(random)).get());
    }
    first.join();
    second.join();
    EXPECT_EQ(readers[0].wrong + readers[1].wrong, 0);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
