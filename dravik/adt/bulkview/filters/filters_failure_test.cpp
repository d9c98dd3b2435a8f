// SPDX-License-Identifier: Apache-2.0
// Every allocation and every call out to a host fails in turn while each filter, alone and stacked, is used.

#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/filter_stacks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Testing::Accessor;
using Testing::BrickAccessor;
using Testing::BrickOptions;
using Testing::callOut;
using Testing::Stack;
using Index = FixedVector<4, int>;

// A client that may fail in whatever it is told.
struct HostClient : Testing::Borrower {
    void accessorUpdated() override { callOut("accessorUpdated"), ++updates; }
    void bufferInvalidated(BufferHandle::Owner const*) override { callOut("bufferInvalidated"); }
    bool prepareBufferRelease(void const*, int&) override { return callOut("prepareBufferRelease"), false; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override { callOut("releaseBuffer"); }
    Accessor releaseAccessor() override { return callOut("releaseAccessor"), nullptr; }
    int updates = 0;
};

constexpr Index kLast{5, 4, 10, 0};
constexpr Index kPlaces[] = {{}, kLast, {0, 4, 0, 0}, {}};

// A stack over bricks, all of which may fail.
struct Scene {
    Scene(Stack const& shown, bool givesOwner)
        : stack(shown), options{.brickSize = {4, 4, 8, 1}, .givesOwner = givesOwner} {
        for (int next = 0; float& sample : data.samples()) {
            sample = static_cast<float>(next++ * 7 % 101);
        }
        auto target = makeBricks();
        bottom = dynamic_cast<BrickAccessor<float>*>(target.get());
        Testing::lastController.reset();
        chain = stack.over(std::move(target));
        controller = Testing::lastController;
        chain->setClient(&client);
    }
    ~Scene() { Testing::lastController.reset(); }
    Accessor makeBricks() const { return Testing::bricks(data, stack.converts, options); }
    boost::intrusive_ptr<Testing::Brick<float>> lent() const { return bottom->brickAt(kLast); }
    IBufferAccessor::IClient& notified() {
        mustAsk = true;
        return *bottom->client();
    }

    void reads(IBufferAccessor& accessor, Index const& p, float expected) const {
        BufferHandle handle;
        accessor.getBuffer(p, AdtEnums::Read, handle);
        EXPECT_EQ(static_cast<float const*>(handle.buffer())[handle.offset(p)], expected) << stack.name << " at " << p;
    }
    void readsAll() const {
        BufferHandle handle;
        chain->getBuffer({}, AdtEnums::Read, handle);
        float const first = static_cast<float const*>(handle.buffer())[handle.offset(Index())];
        float const exchanged = isExchanged ? first - data.at({}) : 0;
        EXPECT_TRUE(exchanged == 0 || exchanged == kExchanged) << exchanged;
        for (Index const& p : kPlaces) {
            reads(*chain, p, data.at(p) + exchanged);
        }
    }
    // What the chain shows is there below, and a block that it was told to forget is asked for anew.
    void showsAll() {
        if (std::exchange(mustAsk, false)) {
            int const before = bottom->requests();
            std::thread([&] { reads(*chain, kLast, data.at(kLast)); }).join();
            EXPECT_EQ(bottom->requests(), before + 1) << stack.name;
        }
        readsAll();
    }

    static constexpr float kExchanged = 1000;
    Stack const& stack;
    BrickOptions options;
    bool mustAsk = false, isExchanged = false;
    boost::shared_ptr<ProxyFilter::ProxyTargetController> controller;  // of the uppermost proxy, if there is one
    Testing::PlainArray<float> data{{6, 5, 11, 1}};
    HostClient client;
    BrickAccessor<float>* bottom = nullptr;  // null below a converter
    Accessor chain;
};

struct Act {
    char const* name;
    void (*run)(Scene&);
    bool notifies = false;   // not below converters, which answer for their runs themselves
    bool takesMany = false;  // blocks without owners go all at once
};
constexpr Act kActs[] = {
    {"reading", [](Scene& s) { s.readsAll(); }},
    {"making", [](Scene& s) { s.reads(*s.stack.over(s.makeBricks()), kLast, s.data.at(kLast)); }},
    {"cloning",
     [](Scene& s) {
         auto const clone = s.chain->createClone();
         BufferHandle handle;
         clone->getBuffer(kLast, AdtEnums::Read, handle);
         clone->dispose(/*flag=*/false);
     }},
    {"hinting",
     [](Scene& s) {
         s.chain->setHint(IBufferAccessor::Cache, s.data.box(), 1.0f);
         EXPECT_EQ(s.chain->getSize(), s.data.size());
     }},
    {"writing",
     [](Scene& s) {
         for (Index const& p : kPlaces) {
             BufferHandle handle;
             s.chain->getBuffer(p, AdtEnums::ReadWrite, handle);
             static_cast<float*>(handle.buffer())[handle.offset(p)] = s.data.at(p);  // carried back, or lost
         }
     }},
    {"exchanging the target",
     [](Scene& s) {
         auto other = s.data;
         std::transform(other.samples().begin(), other.samples().end(), other.samples().begin(), [&](float sample) {
             return sample + s.kExchanged;
         });
         s.isExchanged = s.controller != nullptr;
         s.isExchanged ? s.controller->setTarget(Testing::bricks(other, /*converts=*/false, s.options)) : void();
     }},
    {"disposing", [](Scene& s) { s.chain->dispose(/*flag=*/true); }},
    {"changing clients",
     [](Scene& s) {
         s.chain->setClient(nullptr);
         s.chain->setClient(&s.client);
     }},
    {"hearing of another size", [](Scene& s) { s.notified().accessorUpdated(); }, true},
    {"hearing of an invalid block",
     [](Scene& s) { s.notified().bufferInvalidated(s.options.givesOwner ? s.lent().get() : nullptr); }, true, true},
    {"being asked for a block",
     [](Scene& s) {
         int value = 0;
         s.bottom->client()->prepareBufferRelease(s.lent()->memory(), value);
         s.mustAsk = true;
     },
     true},
    {"losing a block",
     [](Scene& s) { s.notified().releaseBuffer(s.lent()->memory(), s.options.givesOwner ? s.lent() : nullptr); }, true},
};

template <class Failure>
int survives(Stack const& stack, bool givesOwner, Act const& act) {
    auto const makeScene = [&] {
        auto scene = std::make_unique<Scene>(stack, givesOwner);
        scene->readsAll();
        return scene;
    };
    auto const check = [&](auto& scene, bool) {
        scene->showsAll();
        act.run(*scene);
        scene->showsAll();
    };
    SCOPED_TRACE(testing::Message() << act.name << (givesOwner ? "" : " without owners"));
    return Testing::failEverywhere<Failure>(
        stack.name, makeScene, [&](auto& scene) { act.run(*scene); }, check);
}

TEST(FilterStacks, SurviveEveryFailure) {
    for (Act const& act : kActs) {
        int calls = 0, allocations[2] = {};  // without and with owners
        for (Stack const& stack : Testing::kStacks) {
            for (bool const givesOwner : {false, true}) {
                if ((!act.notifies || !stack.converts) && !HasFailure()) {
                    allocations[givesOwner] += survives<Testing::AllocationFailure>(stack, givesOwner, act);
                    calls += survives<Testing::CallFailure>(stack, givesOwner, act);
                }
            }
        }
        EXPECT_GT(calls + allocations[false] + allocations[true], 0) << act.name;
        if (act.notifies) {
            EXPECT_EQ(allocations[true], 0) << act.name << ": one block goes without memory";
            EXPECT_EQ(allocations[false] > 0, act.takesMany) << act.name << ": many go together where there is memory";
        }
    }
}

TEST(ValueConvertFilter, KeepsOrEmptiesALoanWhenFailing) {
    BrickAccessor<short> const below(Testing::PlainArray<short>({6, 5, 11, 1}));
    auto const chain = Testing::hostConverted(std::make_unique<BrickAccessor<short>>(below));
    auto const stored = [&] {
        return BrickAccessor<short>(below).brickAt({})->at({}) * Testing::kScale + Testing::kOffset;
    };
    BufferHandle handle;
    auto const sample = [&]() -> float& { return *static_cast<float*>(handle.buffer()); };
    auto const ask = [&](AdtEnums::Access access) { chain->getBuffer({}, access, handle); };
    auto const failing = [](int call, auto act) {
        Testing::ArmedFailure const armed(Testing::CallFailure::plan(), call, Testing::Failing::kOnce);
        act();
    };
    ask(AdtEnums::ReadWrite);
    sample() = 7;
    EXPECT_THROW(failing(0, [&] { chain->dispose(/*flag=*/true); }), Testing::CallOutError);
    EXPECT_THROW(failing(0, [&] { ask(AdtEnums::Read); }), Testing::CallOutError);
    EXPECT_EQ(sample(), 7) << "still lent";
    EXPECT_THROW(failing(1, [&] { ask(AdtEnums::Read); }), Testing::CallOutError);
    EXPECT_TRUE(handle.isNull());
    EXPECT_EQ(handle.sampleCount(), 0);
    EXPECT_NE(handle.owner(), nullptr);
    EXPECT_EQ(stored(), 7);
    ask(AdtEnums::ReadWrite);
    sample() = 8;
    failing(0, [&] { handle.reset(/*releaseOwner=*/true); });
    EXPECT_EQ(stored(), 7) << "nobody could be told";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
