// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/index_set.h"
#include "dravik/adt/core/lightweight_mutex.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/core/shared_buffer.h"

#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace Quorvel::Dravik::Adt {
namespace {

using Testing::AllocationFailure;
using Testing::callOut;
using Testing::Fails;

using OwnerPtr = boost::intrusive_ptr<SharedBuffer::Owner>;
using Set = IndexSet<2, int>;
using Array = SharedArray<2>;
using Testing::refused;

// Bytes of a host that may fail at every turn.
class HostOwner : public SharedBuffer::Owner {
  public:
    bool isWritable() const override { return callOut("isWritable"), true; }
    std::uint32_t getByteSize() const override { return callOut("getByteSize"), sizeof bytes_; }
    char* getBuffer(bool) override { return callOut("getBuffer"), bytes_; }
    OwnerPtr share() override { return callOut("share"), new HostOwner; }
    using Shared::createFromPointer;

  private:
    char bytes_[64] = {};
};

Set checkered(int origin) {
    Set set;
    for (int i = 0; i < 64; ++i) {
        Set::Point const corner(origin + i / 8 * 3, i % 8 * 2);
        set.add(Set::Box{corner, corner + Set::Point(2, 1)});
    }
    return set;
}

struct Scene {
    OwnerPtr owner{new HostOwner};
    std::unique_ptr<HostOwner> unreferenced = std::make_unique<HostOwner>();
    SharedBuffer hosted{owner};
    SharedBuffer buffer;
    Array array{ArrayRef<2>({{0, 0}, {4, 4}}, {4, 1}, nullptr, 0, typeid(float), 32), SharedBuffer(owner)};
    Array made;
    Set set = checkered(0);
    Set const other = checkered(1);
    float floats[16] = {};
};

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"asking a host's bytes and laying an array on them", Fails::kCalls,
     [](Scene& s) {
         std::uint32_t byteSize = 0;
         EXPECT_NE(s.hosted.getBufferNoAlloc(&byteSize), nullptr);
         EXPECT_EQ(byteSize + s.hosted.getBufferByteSize() + s.hosted.isReadOnly(), 128u);
         s.array.allocate(/*allocateNow=*/true);
     },
     [](Scene& s, bool completed) { EXPECT_EQ(s.array.data() != nullptr, completed); }},
    {"replacing a host's bytes", Fails::kBoth,
     [](Scene& s) {
         s.buffer = s.hosted;
         s.buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/true);
     },
     [](Scene& s, bool completed) {
         EXPECT_TRUE(s.buffer.getOwner() != nullptr && s.buffer.isShareable());
         EXPECT_TRUE(!completed || s.buffer.getBufferByteSize() == 100);
     }},
    {"copying and sharing a host's bytes", Fails::kBoth,
     [](Scene& s) {
         OwnerPtr const copy(new SharedBuffer::BasicArrayOwner(*s.owner->share()));
         s.buffer = SharedBuffer(copy->share());
         EXPECT_EQ(s.buffer.getBufferNoAlloc(), copy->getBufferRO());
     }},
    {"making arrays", Fails::kAllocations,
     [](Scene& s) {
         s.array.setBuffer({});
         s.array.setData(nullptr);
         s.array.ensureAllocated(/*wanted=*/true);
         s.made = Array::Make<double>({{0, 0}, {8, 8}});
     },
     [](Scene& s, bool completed) {
         EXPECT_TRUE(!completed || (s.made.data() != nullptr && s.array.data() != nullptr));
         EXPECT_EQ(s.array.data(), s.array.buffer().getBufferNoAlloc());
     }},
    {"wrapping bytes", Fails::kAllocations,
     [](Scene& s) {
         s.array = Array::Wrap<float>(s.floats, {{0, 0}, {4, 4}});
     },
     [](Scene& s, bool completed) { EXPECT_EQ(s.array.data() != nullptr, completed); }},
    {"refusing arrays", Fails::kAllocations,
     [](Scene& s) {
         refused<std::invalid_argument>([&] { Array::Wrap<float>(s.floats, {{0, 0}, {4, 5}}); });
         refused<std::length_error>([] { Array::Make<double>({{0, 0}, {40000, 40000}}); });
         refused<std::invalid_argument>([&] { s.array.strides()[2]; });
     }},
    {"printing values", Fails::kBoth,
     [](Scene& s) {
         Testing::HostStream() << s.array << s.set << ExtentK<2, int>(s.array.range())
                               << ArrayRef<1>({}, {}, nullptr, 0, typeid(std::vector<int>), 8);
     }},
    {"making sets of boxes", Fails::kAllocations,
     [](Scene& s) {
         std::vector<Set::Box> const boxes(s.other.boxes().begin(), s.other.boxes().end());
         s.set = Set(boxes);
         EXPECT_EQ(s.set, s.other);
         s.set = Set({3, 3}, {{0, 0}, {50, 50}});
         s.set.add(Set::Box{{1, 1}, {20, 20}});
         s.set.clear();
     }},
    {"copying a set", Fails::kAllocations,
     [](Scene& s) {
         Set copy(s.other);
         s.set = copy;
     },
     [](Scene& s, bool completed) { EXPECT_EQ(s.set, completed ? s.other : checkered(0)); }},
    {"asking sets", Fails::kAllocations,
     [](Scene& s) {
         EXPECT_TRUE(s.set.intersects(s.other) && !s.set.isSubset(s.other) && !(s.set == s.other));
         EXPECT_EQ(s.set.intersection(s.other).size(), 64);
         EXPECT_EQ(s.set.intersection(Set::Box{{1, 0}, {2, 15}}).size(), 8);
     },
     [](Scene& s, bool) { EXPECT_EQ(s.set, checkered(0)); }},
    {"printing sets", Fails::kAllocations,
     [](Scene& s) {
         std::string const text = s.set.toString();
         EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 64);
         EXPECT_TRUE(s.set.getAnyRange() == s.set.getAnyRange(Set::Point{0, 0}));
     },
     [](Scene& s, bool) { EXPECT_EQ(s.set, checkered(0)); }},
    {"values on the stack", Fails::kNothing,
     [](Scene& s) {
         ArrayRef<2> moved = s.array;
         moved.moveTo({7, 7});
         EXPECT_EQ(moved.linearBounds().max, ArrayRef<4>(moved).linearBounds().max);
         EXPECT_EQ(moved.requiredBufferByteSize(/*touchedOnly=*/true), 64u);
         ExtentImpl<int> const extent{9, -2, 4};
         EXPECT_TRUE(extent.reversed().contains(extent.intersection(extent)));
         EXPECT_TRUE(s.set.contains({0, 0}) && s.set.intersects(s.set.bounds()) && !s.set.isRange());
         EXPECT_TRUE(Set(Set::Point(0, 0)) == Set::Box::OfSize({1, 1}) && s.set.boundsSize() > s.set.size());
         EXPECT_TRUE(LightweightMutex().try_lock());
         Set moving(std::move(s.set));
         s.set = std::move(moving);
         EXPECT_NE(std::hash<Set>()(s.set), std::hash<Array::Range>()(s.array.range()));
         refused<boost::bad_weak_ptr>([&] { HostOwner::createFromPointer(s.unreferenced.get()); });
     }},
};

TEST(Core, SurvivesEveryFailure) {
    Testing::failInEach(kScenarios);
}

TEST(SharedBuffer, KeepsTheBytesTakenWhileItAllocates) {
    SharedBuffer::BasicArrayOwner owner(64);
    char* taken = nullptr;
    std::function<void()> const takeOnce = [&] {
        Testing::memoryHook() = nullptr;
        taken = owner.getBuffer(/*allocate=*/true);
        *taken = 7;
    };
    Testing::memoryHook() = &takeOnce;
    EXPECT_EQ(owner.getBuffer(/*allocate=*/true), taken);
    EXPECT_EQ(*owner.getBufferRO(), 7);
}

TEST(SharedBuffer, TellsHowMuchItCouldNotAllocate) {
    SharedBuffer::BasicArrayOwner owner(0);
    try {
        Testing::ArmedFailure const armed(AllocationFailure::plan(), 0, Testing::Failing::kOnce);
        owner.getBuffer(/*allocate=*/true);
        ADD_FAILURE() << "nothing thrown";
    } catch (Exceptions::MemoryException const& error) {
        EXPECT_EQ(error.getAllocationAmount(), 1u);
        EXPECT_STREQ(error.what(), "Failed to allocate 1 bytes memory: std::bad_alloc exception in SharedBuffer");
    }
    EXPECT_EQ(owner.getBufferRO(), nullptr);
    EXPECT_NE(owner.getBuffer(/*allocate=*/true), nullptr) << "the lock is free again";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
