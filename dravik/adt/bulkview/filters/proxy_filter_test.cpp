// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/proxy_filter.h"

#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using testing::ElementsAre;
using Testing::Journal;
using Testing::RecordingAccessor;
using testing::ThrowsMessage;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Controller = ProxyFilter::ProxyTargetController;

static_assert(!std::is_copy_constructible_v<Controller> && std::has_virtual_destructor_v<Controller>);

Accessor accessor(char const* name, Journal const& journal) {
    return std::make_unique<RecordingAccessor>(name, journal);
}

struct Client : Testing::RecordingClient {
    using RecordingClient::RecordingClient;
    void accessorUpdated() override {
        RecordingClient::accessorUpdated();
        onUpdate();
    }
    std::function<void()> onUpdate = [] {};
};

TEST(ProxyFilter, ExchangesItsTargetInOrder) {
    EXPECT_THAT(
        [] { ProxyFilter::MakeProxy(nullptr, nullptr); },
        ThrowsMessage<std::invalid_argument>("[ProxyFilter::MakeProxy] Invalid argument: target is null."));
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    Client client("c", journal);
    auto const proxy = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    client.onUpdate = [&] { proxy->getSize(); };
    controller->setTarget(accessor("b", journal));
    EXPECT_THAT(journal.take(), ElementsAre("a.dispose(0)", "~a")) << "no client to tell";
    proxy->setClient(&client);
    auto next = accessor("c", journal);
    auto* const installed = next.get();
    controller->setTarget(std::move(next));
    controller->setTarget(Accessor(installed));
    EXPECT_THAT(
        journal.take(),
        ElementsAre(
            "b.setClient(client)", "b.dispose(0)", "c.setClient(client)", "c.accessorUpdated", "c.getSize", "~b"))
        << "and nothing for the accessor installed already";
    auto const swapFails = ThrowsMessage<ProxyFilter::Error>("[ProxyFilter::setTarget] target is null");
    EXPECT_THAT([&] { controller->setTarget(nullptr); }, swapFails);
    auto const error = ProxyFilter::Error("[ProxyFilter::setTarget] target is null").clone();
    EXPECT_THAT([&] { error->throwClone(); }, swapFails);
    proxy->getSize();
    EXPECT_THAT(journal.take(), ElementsAre("c.getSize"));
}

TEST(ProxyTargetController, ReachesWhatIsAttachedOnly) {
    struct Unclonable : RecordingAccessor {
        using RecordingAccessor::RecordingAccessor;
        Accessor createClone() const override { return nullptr; }
    };
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    auto proxy = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    auto copy = proxy->createClone();
    EXPECT_THROW(controller->setTarget(std::make_unique<Unclonable>("u", journal)), std::logic_error);
    EXPECT_THAT(journal.take(), ElementsAre("a.createClone", "~u")) << "nothing is exchanged";
    controller->setTarget(accessor("b", journal));
    EXPECT_THAT(
        journal.take(), testing::UnorderedElementsAre("b.createClone", "a.dispose(0)", "~a", "a'.dispose(0)", "~a'"));
    proxy.reset();
    auto last = std::make_unique<Testing::LendingAccessor>(FixedVector<4, int>(), nullptr);
    last->atEnd = [&] { EXPECT_EQ(controller.use_count(), 2) << "the copy and this test, not who let the target go"; };
    ProxyFilter::MakeProxy(std::move(last), controller).reset();
    controller->setTarget(accessor("c", journal));
    copy.reset();
    journal.take();
    controller->setTarget(accessor("d", journal));
    controller->setTarget(nullptr);
    EXPECT_THAT(journal.take(), ElementsAre("~d"));
}

TEST(ProxyTargetController, TellsTheClientOfHalfAnExchange) {
    struct Refusing : RecordingAccessor {
        using RecordingAccessor::RecordingAccessor;
        void setClient(IClient*) override { throw std::runtime_error("no client"); }
    };
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    auto const proxy = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    Client client("client", journal);
    proxy->setClient(&client);
    journal.take();
    EXPECT_THAT(
        [&] { controller->setTarget(std::make_unique<Refusing>("b", journal)); },
        ThrowsMessage<std::runtime_error>("no client"));
    EXPECT_THAT(journal.take(), ElementsAre("a.dispose(0)", "~a", "client.accessorUpdated"));
}

// The client of whichever proxy comes first destroys the other one, which is still to be reached.
TEST(ProxyTargetController, ForgetsAPendingProxyThatGoes) {
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    Client clients[2] = {{"client", journal}, {"client", journal}};
    Accessor proxies[2];
    proxies[0] = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    proxies[1] = proxies[0]->createClone();
    for (int i = 0; i < 2; ++i) {
        proxies[i]->setClient(&clients[i]);
        clients[i].onUpdate = [&, i] { proxies[1 - i].reset(); };
    }
    controller->setTarget(accessor("b", journal));
    auto const seen = journal.take();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "client.accessorUpdated"), 1);
    EXPECT_THAT(seen, testing::IsSupersetOf({"~a", "~a'", "~b'"}));
}

// The client of whichever proxy comes first sets the next target, destroys both proxies and makes another one.
TEST(ProxyTargetController, StandsClientsThatComeBackMeanwhile) {
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    Client clients[2] = {{"client", journal}, {"client", journal}};
    Accessor proxies[2], late;
    proxies[0] = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    proxies[1] = proxies[0]->createClone();
    bool isFirst = true;
    for (int i = 0; i < 2; ++i) {
        proxies[i]->setClient(&clients[i]);
        clients[i].onUpdate = [&, i] {
            if (std::exchange(isFirst, false)) {
                controller->setTarget(accessor("next", journal));
                proxies[1 - i].reset();
                late = ProxyFilter::MakeProxy(accessor("late", journal), controller);
                proxies[i].reset();
            }
        };
    }
    controller->setTarget(accessor("b", journal));
    late->getSize();
    auto const seen = journal.take();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "client.accessorUpdated"), 3) << "once for b, twice for the next";
    EXPECT_THAT(seen, testing::IsSupersetOf({"~a", "~a'", "~b", "~b'", "~next", "~next'", "late.getSize"}));
}

// A view stays open over two grids in turn; its thread pauses for each exchange. Other proxies come and go meanwhile.
TEST(ProxyTargetController, ExchangesTheGridUnderAnOpenView) {
    constexpr int kRounds = 2000;
    Testing::PlainArray<float> grids[2] = {
        Testing::PlainArray<float>({7, 5, 1, 1}), Testing::PlainArray<float>({4, 6, 1, 1})};
    grids[1].samples().back() = 1;
    auto const bricks = [&](int which) { return std::make_unique<Testing::BrickAccessor<float>>(grids[which]); };
    auto const controller = boost::make_shared<Controller>();
    Typed2dRoView<float> view(ProxyFilter::MakeProxy(bricks(0), controller));
    std::mutex pause;
    int shown = 0;
    auto const pausing = [&](auto act) {
        for (int round = 0; round < kRounds && !testing::Test::HasFatalFailure(); ++round) {
            std::lock_guard const lock(pause);
            act();
        }
    };
    std::thread exchanger(pausing, [&] { controller->setTarget(bricks(shown = 1 - shown)); });
    std::thread visitor([&] {
        for (int round = 0; round < kRounds; ++round) {
            ProxyFilter::MakeProxy(bricks(0), controller);
        }
    });
    pausing([&] {
        auto const size = grids[shown].size();
        ASSERT_EQ(view.size(), (FixedVector<2, int>(size[0], size[1])));
        ASSERT_EQ(view(size[0] - 1, size[1] - 1), grids[shown].samples().back());
    });
    exchanger.join();
    visitor.join();
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
