#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/core/shared_buffer.h"

#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/testing/failing_calls.h"
#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <optional>

namespace Quorvel::Dravik::Adt {
namespace {

using Testing::AllocationFailure;
using Testing::CallFailure;
using Testing::callOut;
using Testing::failEverywhere;

struct BufferScene {
    SharedBuffer buffer;
    SharedBuffer other;
    char* result = nullptr;
};

TEST(SharedBuffer, SurvivesEveryFailedAllocation) {
    failEverywhere<AllocationFailure>(
        "growing a SharedBuffer",
        [] {
            BufferScene scene;
            scene.buffer.getBuffer(8, /*allocate=*/true, /*createOwner=*/true);
            scene.other = scene.buffer;
            return scene;
        },
        [](BufferScene& scene) { scene.result = scene.buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/true); },
        [](BufferScene& scene, bool completed) {
            EXPECT_EQ(scene.result != nullptr, completed);
            EXPECT_NE(scene.other.getBufferNoAlloc(), nullptr) << "other holders keep theirs";
            EXPECT_NE(scene.buffer.getBuffer(100, /*allocate=*/true, /*createOwner=*/true), nullptr) << "next try";
        });
}

TEST(SharedBuffer, CopiesAndSharesOrLeavesTheSourceAlone) {
    struct Scene {
        boost::intrusive_ptr<SharedBuffer::Owner> source;
        boost::intrusive_ptr<SharedBuffer::Owner> copy;
        boost::intrusive_ptr<SharedBuffer::Owner> sharer;
    };
    failEverywhere<AllocationFailure>(
        "copying and sharing an owner",
        [] {
            Scene scene{new SharedBuffer::BasicArrayOwner(16), nullptr, nullptr};
            scene.source->getBuffer(/*allocate=*/true);
            return scene;
        },
        [](Scene& scene) {
            scene.copy = new SharedBuffer::BasicArrayOwner(*scene.source);
            scene.sharer = scene.source->share();
        },
        [](Scene& scene, bool completed) {
            EXPECT_EQ(scene.sharer != nullptr, completed);
            EXPECT_TRUE(scene.source->isUniqueRef());
            EXPECT_TRUE(scene.copy == nullptr || scene.copy->getBufferRO() != nullptr);
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

/// A host's memory, whose every operation may throw.
class HostOwner : public SharedBuffer::Owner {
  public:
    bool isWritable() const override {
        callOut("isWritable");
        return true;
    }
    std::uint32_t getByteSize() const override {
        callOut("getByteSize");
        return sizeof bytes_;
    }
    char* getBuffer(bool) override {
        callOut("getBuffer");
        return bytes_;
    }
    boost::intrusive_ptr<Owner> share() override { return nullptr; }

  private:
    char bytes_[16] = {};
};

TEST(SharedBuffer, LetsAHostsFailurePassUnchanged) {
    failEverywhere<CallFailure>(
        "a host's owner",
        [] {
            return BufferScene{SharedBuffer(new HostOwner), SharedBuffer(), nullptr};
        },
        [](BufferScene& scene) {
            scene.other = SharedBuffer(new SharedBuffer::BasicArrayOwner(*scene.buffer.getOwner()));
            std::uint32_t byteSize = 0;
            scene.buffer.getBufferNoAlloc(&byteSize);
            scene.result = scene.buffer.isReadOnly() ? nullptr : scene.buffer.getBuffer(16, true, true);
        },
        [](BufferScene& scene, bool completed) {
            EXPECT_EQ(scene.result != nullptr, completed);
            EXPECT_EQ(scene.buffer.getBufferByteSize(), 16u);
            EXPECT_FALSE(scene.buffer.isNull());
        });
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
