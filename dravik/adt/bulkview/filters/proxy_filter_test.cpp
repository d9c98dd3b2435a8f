#include "dravik/adt/bulkview/filters/proxy_filter.h"

#include "dravik/adt/bulkview/typed_2d_views.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/recording_chain.h"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using Testing::Journal;
using Testing::RecordingAccessor;
using Testing::RecordingClient;
using testing::ThrowsMessage;
using testing::UnorderedElementsAre;
using Controller = ProxyFilter::ProxyTargetController;

static_assert(!std::is_copy_constructible_v<Controller> && std::has_virtual_destructor_v<Controller>);

std::unique_ptr<RecordingAccessor> accessor(char const* name, Journal const& journal) {
    return std::make_unique<RecordingAccessor>(name, journal);
}

struct Client : RecordingClient {
    using RecordingClient::RecordingClient;
    void accessorUpdated() override {
        RecordingClient::accessorUpdated();
        onUpdate();
    }
    std::function<void()> onUpdate = [] {};
};

TEST(ProxyFilter, PassesEverythingOn) {
    Journal const journal;
    Client client("c", journal);
    auto target = accessor("a", journal);
    auto* const below = target.get();
    auto const proxy = ProxyFilter::MakeProxy(std::move(target), nullptr);
    int value = 4;
    EXPECT_FALSE(dynamic_cast<IBufferAccessor::IClient&>(*proxy).prepareBufferRelease(nullptr, value));
    proxy->setClient(&client);
    proxy->getSize();
    proxy->setHint(IBufferAccessor::Prefetch, {{1, 2, 3, 4}, {5, 6, 7, 8}}, 0.5f);
    BufferHandle handle;
    proxy->getBuffer({1, 2, 3, 4}, AdtEnums::Populate, handle);
    EXPECT_EQ(handle.access(), AdtEnums::Populate);
    below->client()->accessorUpdated();
    below->client()->bufferInvalidated(nullptr);
    EXPECT_TRUE(below->client()->prepareBufferRelease(below, value));
    EXPECT_EQ(value, 5);
    below->client()->releaseBuffer(below, nullptr);
    EXPECT_THAT(
        journal.take(), ElementsAre(
                            "a.setClient(client)", "a.getSize", "a.setHint(0 [1,5)x[2,6)x[3,7)x[4,8) 0.5)",
                            "a.getBuffer((1,2,3,4) 4)", "c.accessorUpdated", "c.bufferInvalidated(null)",
                            "c.prepareBufferRelease(buffer 4)", "c.releaseBuffer(buffer null)"));
    client.chain = accessor("other", journal);
    EXPECT_NE(below->client()->releaseAccessor(), nullptr);
}

TEST(ProxyFilter, ExchangesItsTargetInOrder) {
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    Client client("c", journal);
    auto const proxy = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    client.onUpdate = [&] { proxy->getSize(); };
    controller->setTarget(accessor("b", journal));
    EXPECT_THAT(journal.take(), ElementsAre("a.dispose(0)", "~a")) << "no client to tell";
    proxy->setClient(&client);
    journal.take();
    auto next = accessor("c", journal);
    auto* const installed = next.get();
    controller->setTarget(std::move(next));
    EXPECT_THAT(
        journal.take(), ElementsAre("b.dispose(0)", "c.setClient(client)", "c.accessorUpdated", "c.getSize", "~b"));
    controller->setTarget(std::unique_ptr<IBufferAccessor>(installed));
    EXPECT_THAT(journal.take(), IsEmpty()) << "the accessor installed already";
    EXPECT_THAT(
        [&] { controller->setTarget(nullptr); },
        ThrowsMessage<ProxyFilter::Error>("[ProxyFilter::setTarget] target is null"));
    proxy->getSize();
    EXPECT_THAT(journal.take(), ElementsAre("c.getSize"));
}

TEST(ProxyFilter, NeedsATarget) {
    EXPECT_THAT(
        [] { ProxyFilter::MakeProxy(nullptr, nullptr); },
        ThrowsMessage<std::invalid_argument>("[ProxyFilter::MakeProxy] Invalid argument: target is null."));
    auto const error = ProxyFilter::Error("text").clone();
    EXPECT_THAT([&] { error->throwClone(); }, ThrowsMessage<ProxyFilter::Error>("text"));
}

TEST(ProxyTargetController, ReachesWhatIsAttachedOnly) {
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    auto proxy = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    auto copy = proxy->createClone();
    journal.take();
    controller->setTarget(accessor("b", journal));
    EXPECT_THAT(journal.take(), UnorderedElementsAre("b.createClone", "a.dispose(0)", "~a", "a'.dispose(0)", "~a'"));
    proxy.reset();
    EXPECT_EQ(controller.use_count(), 2) << "the copy and this test";
    controller->setTarget(accessor("c", journal));
    copy.reset();
    journal.take();
    controller->setTarget(accessor("d", journal));
    controller->setTarget(nullptr);
    EXPECT_THAT(journal.take(), ElementsAre("~d"));
}

// The client of whichever proxy comes first sets the next target, destroys both proxies and makes another one.
TEST(ProxyTargetController, StandsClientsThatComeBackMeanwhile) {
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    std::unique_ptr<IBufferAccessor> proxies[2], late;
    Client clients[2] = {{"client", journal}, {"client", journal}};
    proxies[0] = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    proxies[1] = proxies[0]->createClone();
    bool isFirst = true;
    for (int i = 0; i < 2; ++i) {
        proxies[i]->setClient(&clients[i]);
        clients[i].onUpdate = [&, i] {
            if (!std::exchange(isFirst, false)) {
                return;
            }
            controller->setTarget(accessor("next", journal));
            proxies[1 - i].reset();
            late = ProxyFilter::MakeProxy(accessor("late", journal), controller);
            proxies[i].reset();
        };
    }
    journal.take();
    controller->setTarget(accessor("b", journal));
    late->getSize();
    auto const seen = journal.take();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "client.accessorUpdated"), 3) << "once for b, twice for the next";
    EXPECT_THAT(seen, IsSupersetOf({"~a", "~a'", "~b", "~b'", "~next", "~next'", "late.getSize"}));
}

TEST(ProxyTargetController, ChangesNothingWhenATargetCannotBeCloned) {
    struct Unclonable : RecordingAccessor {
        using RecordingAccessor::RecordingAccessor;
        std::unique_ptr<IBufferAccessor> createClone() const override {
            return fails ? throw std::runtime_error("no") : nullptr;
        }
        bool fails = false;
    };
    Journal const journal;
    auto const controller = boost::make_shared<Controller>();
    auto const proxy = ProxyFilter::MakeProxy(accessor("a", journal), controller);
    auto const copy = proxy->createClone();
    for (bool const fails : {false, true}) {
        auto target = std::make_unique<Unclonable>("b", journal);
        target->fails = fails;
        journal.take();
        EXPECT_ANY_THROW(controller->setTarget(std::move(target)));
        proxy->getSize();
        copy->getSize();
        EXPECT_THAT(journal.take(), ElementsAre("~b", "a.getSize", "a'.getSize"));
    }
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
    std::thread exchanger([&] {
        for (int round = 0; round < kRounds; ++round) {
            std::lock_guard const lock(pause);
            shown = 1 - shown;
            controller->setTarget(bricks(shown));
        }
    });
    std::thread visitor([&] {
        for (int round = 0; round < kRounds; ++round) {
            ProxyFilter::MakeProxy(bricks(0), controller);
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        std::lock_guard const lock(pause);
        auto const size = grids[shown].size();
        ASSERT_EQ(view.size(), (FixedVector<2, int>(size[0], size[1])));
        ASSERT_EQ(view(size[0] - 1, size[1] - 1), grids[shown].samples().back());
    }
    exchanger.join();
    visitor.join();
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
