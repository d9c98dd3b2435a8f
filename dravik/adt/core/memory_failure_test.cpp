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

using Testing::callOut;
using Testing::Fails;
using Testing::isUnchanged;
using Testing::refused;
using Testing::shownAs;

using OwnerPtr = boost::intrusive_ptr<SharedBuffer::Owner>;
using Set = IndexSet<2, int>;
using Array = SharedArray<2>;

struct HostOwner : SharedBuffer::Owner {
    bool isWritable() const override { return callOut("isWritable"), true; }
    std::uint32_t getByteSize() const override { return callOut("getByteSize"), sizeof bytes; }
    char* getBuffer(bool) override { return callOut("getBuffer"), bytes; }
    OwnerPtr share() override { return callOut("share"), new HostOwner; }
    char bytes[64] = {};
};

Set checkered(int origin) {
    Set set;
    for (int i = 0; i < 64; ++i) {
        Set::Point const corner(origin + i / 8 * 3, i % 8 * 2);
        set.add(Set::Box{corner, corner + Set::Point(2, 1)});
    }
    return set;
}

struct Memory {
    std::string shown() const { return shownAs(array.constData() != nullptr, made.constData() != nullptr, set); }

    OwnerPtr owner{new HostOwner};
    SharedBuffer hosted{owner}, buffer;
    Array array{ArrayRef<2>({{0, 0}, {4, 4}}, {4, 1}, nullptr, 0, typeid(float), 32), SharedBuffer(owner)}, made;
    Set set = checkered(0);
    Set const other = checkered(1);
    float floats[16] = {};
};

constexpr Testing::FailureScenario<Memory> kMemory[] = {
    {"laying an array on a host's bytes", Fails::kCalls,
     [](Memory& s) {
         std::uint32_t byteSize = 0;
         EXPECT_NE(s.hosted.getBufferNoAlloc(&byteSize), nullptr);
         EXPECT_EQ(byteSize + s.hosted.getBufferByteSize() + s.hosted.isReadOnly(), 128u);
         s.array.allocate(/*allocateNow=*/true);
         EXPECT_NE(s.array.constData(), nullptr);
     },
     isUnchanged},
    {"replacing a host's bytes", Fails::kBoth,
     [](Memory& s) {
         s.buffer = s.hosted;
         s.buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/true);
         EXPECT_EQ(s.buffer.getBufferByteSize(), 100u);
     },
     [](Memory& s, bool) { EXPECT_TRUE(s.buffer.isShareable()); }},
    {"copying and sharing a host's bytes", Fails::kBoth,
     [](Memory& s) {
         OwnerPtr const copy(new SharedBuffer::BasicArrayOwner(*s.owner->share()));
         s.buffer = SharedBuffer(copy->share());
         EXPECT_EQ(s.buffer.getBufferNoAlloc(), copy->getBufferRO());
     },
     isUnchanged},
    {"making an array", Fails::kAllocations,
     [](Memory& s) {
         s.made = Array::Make<double>({{0, 0}, {8, 8}});
     },
     isUnchanged},
    {"allocating an array", Fails::kAllocations,
     [](Memory& s) {
         s.array.setBuffer({});
         s.array.setData(nullptr);
         s.array.ensureAllocated(/*wanted=*/true);
         EXPECT_NE(s.array.constData(), nullptr);
     },
     [](Memory& s, bool) { EXPECT_EQ(s.array.constData(), s.array.buffer().getBufferNoAlloc()); }},
    {"wrapping bytes", Fails::kAllocations,
     [](Memory& s) {
         s.array = Array::Wrap<float>(s.floats, {{0, 0}, {4, 4}});
     },
     isUnchanged},
    {"refusing arrays", Fails::kAllocations,
     [](Memory& s) {
         refused<std::invalid_argument>([&] { Array::Wrap<float>(s.floats, {{0, 0}, {4, 5}}); });
         refused<std::length_error>([] { Array::Make<double>({{0, 0}, {40000, 40000}}); });
         refused<std::invalid_argument>([&] { s.array.strides()[2]; });
     },
     isUnchanged},
    {"making sets of boxes", Fails::kAllocations,
     [](Memory& s) {
         std::vector<Set::Box> const boxes(s.other.boxes().begin(), s.other.boxes().end());
         EXPECT_EQ(Set(boxes), s.other);
         Set grid({3, 3}, {{0, 0}, {50, 50}});
         grid.add(Set::Box{{1, 1}, {20, 20}});
         EXPECT_EQ(checkered(0).intersection(s.other).size(), 64);
         s.set = Set(s.other);
     },
     isUnchanged},
    {"assigning a set", Fails::kAllocations, [](Memory& s) { s.set = s.other; }, isUnchanged},
    {"asking and printing a set", Fails::kBoth,
     [](Memory& s) {
         EXPECT_TRUE(s.set.intersects(s.other));
         EXPECT_FALSE(s.set.isSubset(s.other));
         EXPECT_EQ(s.set.toString().size(), checkered(0).toString().size());
         Testing::HostStream() << s.array << s.set << ArrayRef<1>({}, {}, nullptr, 0, typeid(std::vector<int>), 8);
     },
     isUnchanged},
};

TEST(Core, SurvivesEveryFailure) {
    Testing::failInEach(kMemory);
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
        Testing::ArmedFailure const armed(Testing::AllocationFailure::plan(), 0, Testing::Failing::kOnce);
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
