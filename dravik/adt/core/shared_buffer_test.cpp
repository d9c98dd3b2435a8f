// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/shared_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <latch>
#include <thread>
#include <tuple>
#include <vector>

namespace Quorvel::Dravik::Adt {
namespace {

using OwnerPtr = boost::intrusive_ptr<SharedBuffer::Owner>;
using BasicArrayOwner = SharedBuffer::BasicArrayOwner;

static_assert(std::is_abstract_v<SharedBuffer::Owner>);
static_assert(std::is_same_v<
              decltype(std::declval<SharedBuffer&>().getOwner()), boost::intrusive_ptr<SharedBuffer::Owner const>>);

OwnerPtr makeOwner(std::uint32_t byteSize) {
    return OwnerPtr(new BasicArrayOwner(byteSize));
}

TEST(BasicArrayOwner, AllocatesOnceAndOnlyWhenAsked) {
    for (std::uint32_t const byteSize : {0u, 1u, 100u}) {
        OwnerPtr const owner = makeOwner(byteSize);
        EXPECT_EQ(owner->getBuffer(/*allocate=*/false), nullptr);
        char* const bytes = owner->getBuffer(/*allocate=*/true);
        ASSERT_NE(bytes, nullptr);
        std::memset(bytes, 7, byteSize == 0 ? 1 : byteSize);  // one byte even for none: the sanitizer looks on
        EXPECT_EQ(owner->getBuffer(/*allocate=*/true), bytes);
        EXPECT_EQ(owner->getBufferRO(), bytes);
        EXPECT_EQ(owner->getByteSize(), byteSize);
    }
}

TEST(BasicArrayOwner, SharesWhatItAllocates) {
    OwnerPtr owner = makeOwner(8);
    OwnerPtr const early = owner->share();
    char* const bytes = owner->getBuffer(/*allocate=*/true);
    OwnerPtr const late = owner->share();
    EXPECT_NE(early->getBuffer(/*allocate=*/true), bytes) << "nothing was there to share yet";
    EXPECT_EQ(late->getBuffer(/*allocate=*/false), bytes);
    EXPECT_EQ(late->getByteSize(), 8u);
    EXPECT_TRUE(owner->isUniqueRef());
    EXPECT_TRUE(late->isUniqueRef());
    owner.reset();
    std::memset(bytes, 1, 8);  // still there, says the sanitizer
}

TEST(BasicArrayOwner, CopiesTheBytesOfAnyOwner) {
    char external[] = "sample";
    SharedBuffer::ExternalPointerOwner source(external, sizeof external, /*writable=*/false);
    EXPECT_EQ(source.share(), nullptr);
    BasicArrayOwner copy(source);
    BasicArrayOwner secondCopy(copy);
    external[0] = 'S';
    *copy.getBuffer(/*allocate=*/false) = 'e';
    EXPECT_STREQ(copy.getBufferRO(), "eample");
    EXPECT_STREQ(secondCopy.getBufferRO(), "sample");
    EXPECT_EQ(secondCopy.getByteSize(), sizeof external);
    EXPECT_EQ(BasicArrayOwner(BasicArrayOwner(8)).getBufferRO(), nullptr) << "nothing to copy, nothing allocated";
}

TEST(BasicArrayOwner, ConcurrentFirstRequestsGetTheSameBytes) {
    for (int round = 0; round < 120; ++round) {
        OwnerPtr const owner = makeOwner(64 << 20);  // slow to allocate, so that the others arrive meanwhile
        std::vector<char*> seen(4);
        std::vector<OwnerPtr> shared(4);
        std::latch start(4);
        {
            std::vector<std::jthread> threads;
            for (std::size_t i = 0; i < seen.size(); ++i) {
                threads.emplace_back([&, i] {
                    start.arrive_and_wait();
                    shared[i] = owner->share();
                    seen[i] = owner->getBuffer(/*allocate=*/true);
                });
            }
        }
        for (std::size_t i = 0; i < seen.size(); ++i) {
            EXPECT_EQ(seen[i], seen[0]);
            char* const bytes = shared[i]->getBuffer(/*allocate=*/false);
            EXPECT_TRUE(bytes == nullptr || bytes == seen[0]);
        }
    }
}

TEST(SharedBuffer, OutgrowsItsOwnerOnlyWhenAllowed) {
    SharedBuffer buffer;
    EXPECT_EQ(buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/false), nullptr);
    EXPECT_TRUE(buffer.isNull());
    char* const hundred = buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/true);
    SharedBuffer const before = buffer;
    EXPECT_EQ(buffer.getBuffer(100, /*allocate=*/false, /*createOwner=*/true), hundred);
    EXPECT_EQ(buffer.getBuffer(50, /*allocate=*/true, /*createOwner=*/true), hundred);
    EXPECT_EQ(buffer.getBuffer(101, /*allocate=*/true, /*createOwner=*/false), nullptr);
    EXPECT_EQ(buffer.getOwner(), before.getOwner());
    EXPECT_EQ(buffer.getBuffer(200, /*allocate=*/false, /*createOwner=*/true), nullptr) << "a new owner has no bytes";
    EXPECT_EQ(buffer.getBufferByteSize(), 200u);
    EXPECT_NE(buffer.getBuffer(200, /*allocate=*/true, /*createOwner=*/false), hundred);
    EXPECT_EQ(before.getBufferNoAlloc(), hundred);
}

TEST(SharedBuffer, TellsWhatItsOwnerIs) {
    static char external[64];
    /// isNull, isReadOnly, isShareable, getBufferByteSize, getBufferNoAlloc and the size that comes with it.
    using Answers = std::tuple<bool, bool, bool, std::uint32_t, char*, std::uint32_t>;
    struct Row {
        char const* name;
        SharedBuffer buffer;
        Answers answers;
    };
    Row const rows[] = {
        {"Empty", SharedBuffer(), {true, false, true, 0, nullptr, 0}},
        {"Unallocated", SharedBuffer(makeOwner(9)), {false, false, true, 9, nullptr, 0}},
        {"External", SharedBuffer::createFromExternal(external, 64, false), {false, true, false, 64, external, 64}},
        {"ExternalNull", SharedBuffer::createFromExternal(nullptr, 64, true), {false, false, false, 64, nullptr, 0}},
    };
    for (auto const& [name, buffer, answers] : rows) {
        std::uint32_t byteSize = 12345;
        char* const bytes = buffer.getBufferNoAlloc(&byteSize);
        Answers const given(
            buffer.isNull(), buffer.isReadOnly(), buffer.isShareable(), buffer.getBufferByteSize(), bytes, byteSize);
        EXPECT_EQ(given, answers) << name;
        EXPECT_EQ(buffer.getBufferNoAlloc(), bytes) << name;
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
