#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/old/controller_adapter.h"
#include "dravik/adt/bulkview/old/controller_functions.h"
#include "dravik/adt/bulkview/typed_2d_views.h"
#include "dravik/adt/bulkview/typed_3d_views.h"

#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <numeric>
#include <optional>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::BrickAccessor;
using Testing::callOut;
using Testing::Fails;
using Testing::PlainArray;
using Testing::refused;
using Index4 = FixedVector<4, int>;

ArrayRef<4> plane(char* memory) {
    return {{{}, {3, 4, 1, 1}}, {4, 1, 0, 0}, memory, 0, typeid(char), 8};
}

// A handle lent with an owner whose lock may fail.
struct HandleScene {
    struct LockingOwner : BufferHandle::Owner {
        LockingOwner() { enableLocking(); }
        void lock() override { callOut("lock"), ++depth, ++count; }
        void unlock() override { --depth, callOut("unlock"); }
        int depth = 0;
        int count = 0;
    };

    HandleScene() {
        handle.update(memory, {{{}, {2, 2, 1, 1}}, {2, 1, 0, 0}, 0}, AdtEnums::ReadWrite);
        handle.setOwner(owner.get());
    }

    char memory[12] = {};
    boost::intrusive_ptr<LockingOwner> owner{new LockingOwner}, other{new LockingOwner};
    BufferHandle handle;
    ArrayRef<4> const array = plane(memory);
};

// Where the lock fails, nothing has changed; where giving it back does, all of it.
void isWhole(HandleScene& s, bool) {
    EXPECT_EQ(s.owner->depth, 0);
    HandleScene const untouched;
    bool const isUntouched = s.handle.infoSnapshot() == untouched.handle.infoSnapshot() &&
                             s.handle.buffer() == s.memory && s.handle.owner() == s.owner.get() &&
                             s.handle.access() == AdtEnums::ReadWrite && !s.handle.isInvalidated();
    EXPECT_EQ(isUntouched, s.owner->count == 0);
}

constexpr Testing::FailureScenario<HandleScene> kHandleScenarios[] = {
    {"filling a handle", Fails::kCalls, [](HandleScene& s) { s.handle.update(nullptr, {}, AdtEnums::Read); }, isWhole},
    {"filling a handle with an array", Fails::kCalls, [](HandleScene& s) { s.handle.update(s.array, AdtEnums::Write); },
     isWhole},
    {"filling a handle for reading", Fails::kCalls, [](HandleScene& s) { s.handle.updateRO(s.array); }, isWhole},
    {"filling a handle without a description", Fails::kCalls,
     [](HandleScene& s) { s.handle.updateBufferAndResetInfo(s.memory, AdtEnums::Read); }, isWhole},
    {"changing the owner", Fails::kCalls, [](HandleScene& s) { s.handle.setOwner(s.other.get()); }, isWhole},
    {"emptying a handle", Fails::kCalls, [](HandleScene& s) { s.handle.reset(/*releaseOwner=*/true); }, isWhole},
    {"emptying a handle but for its owner", Fails::kCalls,
     [](HandleScene& s) { s.handle.reset(/*releaseOwner=*/false); }, isWhole},
    {"taking a block back", Fails::kCalls, [](HandleScene& s) { s.handle.tryThreadSafeReset(s.memory, s.owner); },
     isWhole},
    {"copying and marking handles", Fails::kNothing,
     [](HandleScene& s) {
         BufferHandle copy(s.handle);
         copy.invalidate(/*emptyRange=*/true);
         copy = s.handle;
         copy.relabel(s.handle.infoSnapshot());
         EXPECT_EQ(copy.assume(s.handle.loan()), s.owner);
         EXPECT_TRUE(copy.contains(1, 1) && copy.intersects(s.handle.range4()) && copy.sampleCount() == 4);
         EXPECT_TRUE(copy.contains(1, 1, 0) && copy.contains(1, 1, 0, 0) && copy.offset(1) == copy.offset(1, 0, 0, 0));
         EXPECT_TRUE(copy.isCompatibleAccess(AdtEnums::Read) && copy.info() == s.handle.infoSnapshot());
     }},
};

TEST(BufferHandle, SurvivesEveryFailure) {
    Testing::failInEach(kHandleScenarios);
}

std::unique_ptr<BrickAccessor<float>> makeBricks(PlainArray<float> const& data) {
    return std::make_unique<BrickAccessor<float>>(
        data,
        Testing::BrickOptions{.brickSize = {4, 4, 8, 1}, .grantedForRead = AdtEnums::ReadWrite, .readsLate = true});
}

// A view over bricks of a host that may fail at every turn.
struct ViewScene {
    ViewScene() {
        std::iota(data.samples().begin(), data.samples().end(), 1000.0f);
        next = makeBricks(data);
        auto accessor = makeBricks(data);
        bricks = accessor.get();
        view.init(std::move(accessor));
    }

    void set(Index4 const& p, float value) {
        view.set(p[0], p[1], p[2], value);
        data.at(p) = value;
    }

    PlainArray<float> data{{6, 5, 11, 1}};
    std::unique_ptr<BrickAccessor<float>> next;
    BrickAccessor<float>* bricks = nullptr;
    Typed3dRwView<float> view, other;
    std::array<float, 11> trace{};
};

// What was written is there, and all the rest.
void showsAll(ViewScene& s, bool) {
    Testing::forEachIndex(s.data.box(), [&](Index4 const& p) {
        bool const same = s.view.get(p[0], p[1], p[2]) == s.data.at(p);
        EXPECT_TRUE(same) << "first wrong sample at " << p;
        return same;
    });
}

void readOne(ViewScene& s) {
    EXPECT_EQ(s.view.get(5, 4, 10), s.data.at({5, 4, 10, 0}));
}

constexpr Testing::FailureScenario<ViewScene> kViewScenarios[] = {
    {"taking over a chain", Fails::kCalls,
     [](ViewScene& s) {
         if (s.next != nullptr) {
             s.view.init(std::move(s.next));
         }
     },
     showsAll},
    {"copying a view", Fails::kBoth,
     [](ViewScene& s) { EXPECT_EQ((Typed3dRwView<float>(s.view).get(0, 0, 0)), s.data.at({})); }, showsAll},
    {"assigning a view", Fails::kBoth, [](ViewScene& s) { s.other = s.view; },
     [](ViewScene& s, bool completed) {
         EXPECT_TRUE(!completed || s.other.get(0, 0, 0) == s.data.at({}));
         showsAll(s, completed);
     }},
    {"assigning a view to one in use", Fails::kBoth, [](ViewScene& s) { s.view = s.other; }, showsAll,
     [](ViewScene& s) { s.other = s.view; }},
    {"reading samples", Fails::kBoth,
     [](ViewScene& s) {
         for (auto at = s.view.samples({1, 0, 5}, {5, 5, 6}).begin(); at != std::default_sentinel; ++at) {
             ASSERT_EQ(*at, s.data.at(Index4(at.index(), 0)));
         }
     },
     showsAll},
    {"reading traces", Fails::kBoth,
     [](ViewScene& s) {
         s.view.prototypeGetKTrace(5, 4, 1, &s.trace[1], 10);
         s.view.prototypeGetFloatKTrace(5, 4, 0, &s.trace[0], 5);
     },
     [](ViewScene& s, bool) {
         for (int k = 0; k < 11; ++k) {
             float const sample = s.trace[static_cast<std::size_t>(k)];
             EXPECT_TRUE(sample == 0.0f || sample == s.data.at({5, 4, k, 0})) << k;
         }
     }},
    {"writing samples", Fails::kBoth,
     [](ViewScene& s) {
         for (Index4 const& p : {Index4(0, 0, 0, 0), Index4(5, 4, 10, 0), Index4(5, 4, 9, 0), Index4(0, 4, 0, 0)}) {
             s.set(p, 4711.0f);
         }
     },
     showsAll},
    {"writing what was read", Fails::kBoth,
     [](ViewScene& s) {
         readOne(s);
         s.set({5, 4, 10, 0}, 4711.0f);
     },
     [](ViewScene& s, bool completed) {
         s.set({5, 4, 9, 0}, 4712.0f);
         showsAll(s, completed);
     }},
    {"giving hints", Fails::kCalls,
     [](ViewScene& s) {
         s.view.setPrefetchHint({1, 1, 1}, {100, 100, 100});
         s.view.cancelPrefetch();
         s.view.setCacheHint(true);
     },
     showsAll},
    {"hearing of another size", Fails::kCalls, [](ViewScene& s) { s.bricks->client()->accessorUpdated(); },
     [](ViewScene& s, bool) {
         int const before = s.bricks->requests();
         readOne(s);
         EXPECT_GT(s.bricks->requests(), before) << "no block held may be trusted";
     },
     readOne},
    {"hearing of blocks and letting go", Fails::kNothing,
     [](ViewScene& s) {
         if (!s.view.isNull()) {
             auto const brick = s.bricks->brickAt({5, 4, 10, 0});
             auto* const client = s.bricks->client();
             int value = 7;
             EXPECT_TRUE(client->prepareBufferRelease(brick->memory(), value));
             client->bufferInvalidated(brick.get());
             client->releaseBuffer(brick->memory(), brick);
             EXPECT_EQ(client->releaseAccessor(), nullptr);
         }
     },
     [](ViewScene&, bool) {}, readOne},
    {"asking a view", Fails::kNothing,
     [](ViewScene& s) {
         EXPECT_TRUE(s.view.isWritable() && s.view.valueType() == typeid(float) && s.view.ndims() == 3);
         EXPECT_EQ(s.view.size()[1], s.view.size(1));
         EXPECT_EQ(s.view(5, 4, 10), s.view(s.view.size() - FixedVector<3, int>(1, 1, 1)));
     },
     [](ViewScene&, bool) {}, readOne},
    {"writing a plane", Fails::kBoth,
     [](ViewScene& s) {
         Typed2dRwView<float> plane(makeBricks(s.data));
         plane.set(5, 4, 4711.0f);
         EXPECT_EQ(plane(5, 4), 4711.0f);
     }},
    {"refusing to a view", Fails::kAllocations,
     [](ViewScene& s) {
         refused<ViewBoundsException>([&] { s.view.get(6, 0, 0); });
         refused<ViewBoundsException>([&] { s.view.set(0, 0, 11, 0.0f); });
         refused<std::invalid_argument>([&] { s.view.init(nullptr); });
         refused<ViewException>([&] { s.other.get(0, 0, 0); });
         refused<ViewException>([&] { s.other.setCacheHint(false); });
     }},
    {"keeping the exceptions of views", Fails::kAllocations,
     [](ViewScene& s) {
         ViewBoundsException const bounds({1, 2, 3, 4}, {1, 2, 3, 4}, 3, AdtEnums::ReadWrite);
         ViewAccessorException const accessor(*s.next, "text", bounds.index());
         EXPECT_NE(ViewAccessorException(*s.next, "text").msg(), accessor.msg());
         refused<ViewException>([] { ViewException("text").clone()->throwClone(); });
         refused<ViewBoundsException>([&] { bounds.clone()->throwClone(); });
         refused<ViewAccessorException>([&] { accessor.clone()->throwClone(); });
     }},
};

TEST(TypedViews, SurviveEveryFailure) {
    Testing::failInEach(kViewScenarios);
}

// An array in memory, and older callers of bricks.
struct ControllerScene : ViewScene {
    struct Host : Old::IController {
        void* buffer(int, MemoryModel, void*, int, AdtEnums::Access) override { return said(this); }
        int vtsize() override { return said(1); }
        int size(int) override { return said(1); }
        int brick(int, int, int, int) override { return said(1); }
        int offset(int, int, int, int) override { return said(1); }
        int open() override { return said(1); }
        void close(int) override { said(1); }
        void flush(int, void*) override { said(1); }
        FeatureMask features() override { return said(FeatureMask(1)); }
        void setHint(int, int, int, int, int) override { said(1); }
        void bufferAndLinearInfo(
            int, MemoryModel, void*, int, int, int, AdtEnums::Access, void*& buffer, int&, int&, int&, int&, int&, int&,
            int&, int&, int&) override {
            buffer = said(this);
        }
        template <class Result>
        Result said(Result result) {
            callOut("controller");
            ++answers;
            return result;
        }
        int answers = 0;
    };

    // Through the plain functions: an answer, or else a text.
    template <class Result, class... Parameters, class... Arguments>
    void ask(Result (*function)(Old::IController*, char**, Parameters...), Arguments... arguments) {
        int const before = host.answers;
        char* text = nullptr;
        function(&host, &text, arguments...);
        EXPECT_NE(text != nullptr, host.answers == before + 1);
        std::free(text);
    }

    Host host;
    std::optional<Old::ControllerAdapter> adapter;
    Accessors::MemoryAccessor memory{SharedArray<4>(plane(nullptr), SharedBuffer())};
    BufferHandle handle;
};

void openAdapter(ControllerScene& s) {
    s.adapter.emplace(std::move(s.next), int{sizeof(float)});
    s.adapter->open();
}

constexpr Testing::FailureScenario<ControllerScene> kControllerScenarios[] = {
    {"lending an array to a writer", Fails::kAllocations,
     [](ControllerScene& s) {
         s.memory.getBuffer({}, AdtEnums::ReadWrite, s.handle);
         EXPECT_EQ(s.memory.data().data(), s.handle.buffer());
     },
     [](ControllerScene& s, bool completed) {
         EXPECT_EQ(s.handle.isNull(), !completed);
         EXPECT_EQ(s.handle.contains(0), completed) << "the handle is as it was";
     }},
    {"cloning and disposing of an array", Fails::kAllocations,
     [](ControllerScene& s) {
         auto const clone = s.memory.createClone();
         clone->dispose(/*flag=*/false);
         refused<std::runtime_error>([&] { clone->getSize(); });
     }},
    {"making an adapter", Fails::kCalls,
     [](ControllerScene& s) {
         if (s.next != nullptr) {
             openAdapter(s);
             s.adapter->close(0);
         }
     }},
    {"asking an adapter for bricks", Fails::kBoth,
     [](ControllerScene& s) {
         for (Index4 const& p : {Index4(0, 0, 0, 0), Index4(5, 4, 10, 0), Index4(5, 4, 9, 0)}) {
             auto const brick = s.adapter->brick(0, p[0], p[1], p[2]);
             auto const* sample =
                 s.adapter->buffer(0, Old::IController::Addressed, nullptr, brick, AdtEnums::ReadWrite);
             EXPECT_EQ(*static_cast<float const*>(sample), s.data.at(p)) << p;
         }
     },
     [](ControllerScene&, bool) {}, openAdapter},
    {"refusing to older callers", Fails::kAllocations,
     [](ControllerScene& s) {
         refused<Exceptions::PlainException>([&] { s.adapter->open(); });
         refused<std::invalid_argument>([&] { s.adapter->size(3); });
         refused<std::invalid_argument>([] { Old::ControllerAdapter(nullptr, 4); });
         refused<std::invalid_argument>(
             [&] { s.adapter->buffer(0, Old::IController::Addressed, nullptr, -1, AdtEnums::Read); });
     },
     [](ControllerScene&, bool) {}, openAdapter},
    {"asking an adapter", Fails::kNothing,
     [](ControllerScene& s) {
         void* buffer = &s;
         int n = 0;
         s.adapter->setHint(0, 0, 0, 0, 0);
         s.adapter->flush(0, nullptr);
         s.adapter->bufferAndLinearInfo(
             0, Old::IController::Addressed, nullptr, 0, 0, 0, AdtEnums::Read, buffer, n, n, n, n, n, n, n, n, n);
         EXPECT_TRUE(buffer == nullptr && s.adapter->vtsize() == 4 && s.adapter->size(0) == 6);
         EXPECT_EQ(s.adapter->offset(0, 1, 1, 1), s.adapter->features() - 0x177);
     },
     [](ControllerScene&, bool) {}, openAdapter},
    {"answering by plain functions", Fails::kBoth,
     [](ControllerScene& s) {
         void* buffer = nullptr;
         int n = 0;
         s.ask(Adt_BulkView_Controller_Open);
         s.ask(Adt_BulkView_Controller_Close, 0);
         s.ask(Adt_BulkView_Controller_VtSize);
         s.ask(Adt_BulkView_Controller_Size, 0);
         s.ask(Adt_BulkView_Controller_Brick, 0, 0, 0, 0);
         s.ask(Adt_BulkView_Controller_Offset, 0, 0, 0, 0);
         s.ask(Adt_BulkView_Controller_Buffer, 0, 0, nullptr, 0, 0);
         s.ask(
             Adt_BulkView_Controller_BufferAndLinearInfo, 0, 0, nullptr, 0, 0, 0, 0, &buffer, &n, &n, &n, &n, &n, &n,
             &n, &n, &n);
         s.ask(
             Adt_BulkView_Controller_BufferAndLinearInfo, 0, 0, nullptr, 0, 0, 0, 0, nullptr, &n, &n, &n, &n, &n, &n,
             &n, &n, &n);
         s.ask(Adt_BulkView_Controller_Flush, 0, nullptr);
         s.ask(Adt_BulkView_Controller_Features);
         s.ask(Adt_BulkView_Controller_SetHint, 0, 0, 0, 0, 0);
     }},
};

TEST(OlderCallers, SurviveEveryFailure) {
    Testing::failInEach(kControllerScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
