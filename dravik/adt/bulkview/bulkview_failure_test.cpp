// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/old/controller_adapter.h"
#include "dravik/adt/bulkview/old/controller_functions.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"

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

using Old::IController;
using Testing::Fails;
using Testing::refused;
using Bricks = Testing::BrickAccessor<float>;
using Index4 = FixedVector<4, int>;

ArrayRef<4> plane(char* memory) {
    return {{{}, {3, 4, 1, 1}}, {4, 1, 0, 0}, memory, 0, typeid(char), 8};
}

// A handle lent with an owner whose lock may fail.
struct Loan {
    struct LockingOwner : BufferHandle::Owner {
        LockingOwner() { enableLocking(); }
        void lock() override { Testing::callOut("lock"), ++depth, ++count; }
        void unlock() override { --depth, Testing::callOut("unlock"); }
        int depth = 0;
        int count = 0;
    };
    Loan() {
        handle.update(memory, {{{}, {2, 2, 1, 1}}, {2, 1, 0, 0}, 0}, AdtEnums::ReadWrite);
        handle.setOwner(owner.get());
    }
    // Where the lock fails, nothing has changed; where giving it back does, all of it.
    bool isWhole() const {
        bool const isUntouched = handle.infoSnapshot() == Loan().handle.infoSnapshot() && handle.buffer() == memory &&
                                 handle.owner() == owner.get() && handle.access() == AdtEnums::ReadWrite;
        return owner->depth == 0 && isUntouched == (owner->count == 0);
    }

    char memory[12] = {};
    boost::intrusive_ptr<LockingOwner> owner{new LockingOwner};
    BufferHandle handle;
};

constexpr void (*kChanges[])(Loan&) = {
    [](Loan& loan) { loan.handle.update(nullptr, {}, AdtEnums::Read); },
    [](Loan& loan) { loan.handle.update(plane(loan.memory), AdtEnums::Write); },
    [](Loan& loan) { loan.handle.updateRO(plane(loan.memory)); },
    [](Loan& loan) { loan.handle.updateBufferAndResetInfo(loan.memory, AdtEnums::Read); },
    [](Loan& loan) { loan.handle.setOwner(nullptr); },
    [](Loan& loan) { loan.handle.reset(/*releaseOwner=*/true); },
    [](Loan& loan) { loan.handle.reset(/*releaseOwner=*/false); },
    [](Loan& loan) { loan.handle.tryThreadSafeReset(loan.memory, loan.owner); },
};

using Loans = std::array<Loan, std::size(kChanges)>;

constexpr Testing::FailureScenario<Loans> kHandleScenarios[] = {
    {"changing handles", Fails::kCalls,
     [](Loans& loans) {
         for (std::size_t i = 0; i < loans.size(); ++i) {
             kChanges[i](loans[i]);
         }
     },
     [](Loans& loans, bool completed) {
         for (std::size_t i = 0; i < loans.size(); ++i) {
             EXPECT_TRUE(loans[i].isWhole()) << "change " << i;
             EXPECT_TRUE(!completed || loans[i].owner->count > 0) << "change " << i << " without the lock";
         }
     }},
};

TEST(BufferHandle, SurvivesEveryFailure) {
    Testing::failInEach(kHandleScenarios);
}

std::unique_ptr<Bricks> makeBricks(Testing::PlainArray<float> const& data) {
    return std::make_unique<Bricks>(
        data,
        Testing::BrickOptions{.brickSize = {4, 4, 8, 1}, .grantedForRead = AdtEnums::ReadWrite, .readsLate = true});
}

// A view over bricks of a host that may fail at every turn, an adapter for older callers, an array without memory.
struct Scene {
    Scene() {
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
    void expect(Index4 const& p) { EXPECT_EQ(view.get(p[0], p[1], p[2]), data.at(p)) << p; }

    Testing::PlainArray<float> data{{6, 5, 11, 1}};
    std::unique_ptr<Bricks> next;
    Bricks* bricks = nullptr;
    Typed3dRwView<float> view, other;
    std::array<float, 11> trace{};
    std::optional<Old::ControllerAdapter> adapter;
    Accessors::MemoryAccessor memory{SharedArray<4>(plane(nullptr), SharedBuffer())};
    BufferHandle handle;
};

// What was written is there, and all the rest.
void showsAll(Scene& s, bool) {
    Testing::forEachIndex(s.data.box(), [&](Index4 const& p) { return s.expect(p), !testing::Test::HasFailure(); });
}

void readLast(Scene& s) {
    s.expect({5, 4, 10, 0});
}

void openAdapter(Scene& s) {
    s.adapter.emplace(std::move(s.next), int{sizeof(float)});
    s.adapter->open();
}

constexpr Index4 kFarApart[] = {{0, 0, 0, 0}, {5, 4, 10, 0}, {5, 4, 9, 0}, {0, 4, 0, 0}};

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"taking over a chain", Fails::kCalls,
     [](Scene& s) { s.next == nullptr ? void() : s.view.init(std::move(s.next)); }, showsAll},
    {"copying a view", Fails::kBoth,
     [](Scene& s) {
         Typed3dRwView<float> const copy(s.view);
         s.other = copy;
     },
     [](Scene& s, bool completed) {
         EXPECT_TRUE(!completed || s.other.get(0, 0, 0) == s.data.at({}));
         showsAll(s, completed);
     }},
    {"assigning to a view in use", Fails::kBoth, [](Scene& s) { s.view = s.other; }, showsAll,
     [](Scene& s) { s.other = s.view; }},
    {"reading samples", Fails::kBoth,
     [](Scene& s) {
         for (auto at = s.view.samples({1, 0, 5}, {5, 5, 6}).begin(); at != std::default_sentinel; ++at) {
             ASSERT_EQ(*at, s.data.at(Index4(at.index(), 0)));
         }
     },
     showsAll},
    {"reading traces", Fails::kBoth,
     [](Scene& s) {
         s.view.prototypeGetKTrace(5, 4, 1, &s.trace[1], 10);
         s.view.prototypeGetFloatKTrace(5, 4, 0, &s.trace[0], 5);
     },
     [](Scene& s, bool) {
         for (int k = 0; k < 11; ++k) {
             float const sample = s.trace[static_cast<std::size_t>(k)];
             EXPECT_TRUE(sample == 0.0f || sample == s.data.at({5, 4, k, 0})) << k;
         }
     }},
    {"writing samples", Fails::kBoth,
     [](Scene& s) {
         for (Index4 const& p : kFarApart) {
             s.set(p, 4711.0f);
         }
     },
     showsAll},
    {"writing what was read", Fails::kBoth,
     [](Scene& s) {
         readLast(s), s.set({5, 4, 10, 0}, 4711.0f);
     },
     [](Scene& s, bool completed) {
         s.set({5, 4, 9, 0}, 4712.0f), showsAll(s, completed);
     }},
    {"giving hints", Fails::kCalls,
     [](Scene& s) {
         s.view.setPrefetchHint({1, 1, 1}, {100, 100, 100});
         s.view.cancelPrefetch();
         s.view.setCacheHint(true);
     },
     showsAll},
    {"hearing of another size", Fails::kCalls, [](Scene& s) { s.bricks->client()->accessorUpdated(); },
     [](Scene& s, bool) {
         int const before = s.bricks->requests();
         readLast(s);
         EXPECT_GT(s.bricks->requests(), before) << "no block held may be trusted";
     },
     readLast},
    {"refusing what a view has not", Fails::kAllocations,
     [](Scene& s) {
         refused<ViewBoundsException>([&] { s.view.get(6, 0, 0); });
         refused<ViewBoundsException>([&] { s.view.set(0, 0, 11, 0.0f); });
         refused<std::invalid_argument>([&] { s.view.init(nullptr); });
         refused<ViewException>([&] { s.other.setCacheHint(false); });
         refused<std::runtime_error>([] { Accessors::MemoryAccessor().createClone()->getSize(); });
     }},
    {"refusing bricks", Fails::kAllocations,
     [](Scene& s) {
         refused<Exceptions::PlainException>([&] { s.adapter->open(); });
         refused<std::invalid_argument>([&] { s.adapter->size(3); });
         refused<std::invalid_argument>(
             [&] { s.adapter->buffer(0, IController::Addressed, nullptr, -1, AdtEnums::Read); });
     },
     [](Scene&, bool) {}, openAdapter},
    {"telling callers of plain functions what was wrong", Fails::kAllocations,
     [](Scene&) {
         char* text = nullptr;
         Adt_BulkView_Controller_VtSize(nullptr, &text);
         EXPECT_NE(text, nullptr);
         std::free(text);
     }},
    {"keeping the exceptions of views", Fails::kAllocations,
     [](Scene& s) {
         ViewBoundsException const bounds({1, 2, 3, 4}, {1, 2, 3, 4}, 3, AdtEnums::ReadWrite);
         ViewAccessorException const accessor(*s.next, "text", bounds.index());
         refused<ViewException>([] { ViewException("text").clone()->throwClone(); });
         refused<ViewBoundsException>([&] { bounds.clone()->throwClone(); });
         refused<ViewAccessorException>([&] { accessor.clone()->throwClone(); });
     }},
    {"lending an array to a writer", Fails::kAllocations,
     [](Scene& s) { s.memory.getBuffer({}, AdtEnums::ReadWrite, s.handle); },
     [](Scene& s, bool completed) {
         EXPECT_EQ(s.memory.data().data(), s.handle.buffer());
         EXPECT_NE(s.handle.isNull(), completed);
         EXPECT_EQ(s.handle.contains(0), completed) << "or as it was";
     }},
    {"making an adapter", Fails::kCalls, [](Scene& s) { s.next == nullptr ? void() : openAdapter(s); }},
    {"asking an adapter for bricks", Fails::kBoth,
     [](Scene& s) {
         for (Index4 const& p : kFarApart) {
             auto const brick = s.adapter->brick(0, p[0], p[1], p[2]);
             auto const* sample = s.adapter->buffer(0, IController::Addressed, nullptr, brick, AdtEnums::ReadWrite);
             EXPECT_EQ(*static_cast<float const*>(sample), s.data.at(p)) << p;
         }
     },
     [](Scene&, bool) {}, openAdapter},
};

TEST(ViewsAndControllers, SurviveEveryFailure) {
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
