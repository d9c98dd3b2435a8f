#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/core/shared_buffer.h"

#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <optional>

namespace Quorvel::Dravik::Adt {
namespace {

using Testing::AllocationFailure;
using Testing::failEverywhere;

TEST(SharedBuffer, SurvivesEveryFailedAllocation) {
    using OwnerPtr = boost::intrusive_ptr<SharedBuffer::Owner>;
    struct Scene {
        SharedBuffer buffer;
        SharedBuffer other;
        OwnerPtr copy, sharer;
        char* result = nullptr;
    };
    failEverywhere<AllocationFailure>(
        "growing, copying and sharing a buffer",
        [] {
            Scene scene;
            scene.buffer.getBuffer(8, /*allocate=*/true, /*createOwner=*/true);
            scene.other = scene.buffer;
            return scene;
        },
        [](Scene& scene) {
            auto* const owner = const_cast<SharedBuffer::Owner*>(scene.other.getOwner().get());
            scene.copy = new SharedBuffer::BasicArrayOwner(*owner);
            scene.sharer = owner->share();
            scene.result = scene.buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/true);
        },
        [](Scene& scene, bool completed) {
            EXPECT_EQ(scene.result != nullptr, completed);
            EXPECT_TRUE(scene.copy == nullptr || scene.copy->getBufferRO() != nullptr);
            EXPECT_NE(scene.other.getBufferNoAlloc(), nullptr) << "other holders keep theirs";
            EXPECT_NE(scene.buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/true), nullptr) << "next try";
        });
}

TEST(SharedArray, SurvivesEveryFailedAllocation) {
    struct Scene {
        SharedArray<2> lazy{ArrayRef<2>({{0, 0}, {4, 4}}, {4, 1}, nullptr, 0, typeid(float), 32), SharedBuffer()};
        std::optional<SharedArray<4>> made;
    };
    failEverywhere<AllocationFailure>(
        "making and allocating arrays", [] { return Scene(); },
        [](Scene& scene) {
            scene.lazy.ensureAllocated(/*wanted=*/true);
            scene.made = SharedArray<2>::Make<double>({{0, 0}, {8, 8}});
        },
        [](Scene& scene, bool completed) {
            EXPECT_EQ(scene.made.has_value(), completed);
            EXPECT_TRUE(completed || scene.lazy.data() == scene.lazy.buffer().getBufferNoAlloc());
            scene.lazy.ensureAllocated(/*wanted=*/true);
            EXPECT_NE(scene.lazy.data(), nullptr) << "next try";
        });
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
