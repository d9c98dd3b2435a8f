#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_extent_filter.h"
#include "dravik/adt/bulkview/filters/subset_range_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/typed_3d_views.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/lending_accessor.h"
#include "dravik/adt/testing/modelled_views.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Testing::BrickAccessor;
using Testing::callOut;
using Testing::Fails;
using Testing::PlainArray;
using Testing::refused;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Bricks = BrickAccessor<float>;
using Index = FixedVector<4, int>;
using Range = OpenEndedRange<4, int>;
using Extent = ExtentImpl<int>;

constexpr Range kBox{{1, 1, 1, 0}, {5, 4, 10, 1}};

// A client that may fail in whatever it is told.
struct HostClient : IBufferAccessor::IClient {
    void accessorUpdated() override { callOut("accessorUpdated"); }
    void bufferInvalidated(BufferHandle::Owner const*) override { callOut("bufferInvalidated"); }
    bool prepareBufferRelease(void const*, int&) override { return callOut("prepareBufferRelease"), false; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override { callOut("releaseBuffer"); }
    Accessor releaseAccessor() override { return callOut("releaseAccessor"), nullptr; }
};

// Opens the protected side of the bases.
struct OpenFilter : StatefulBufferAccessorFilter, HostClient {
    explicit OpenFilter(Accessor target) : StatefulBufferAccessorFilter(std::move(target)) {}
    OpenFilter(OpenFilter const& other) : StatefulBufferAccessorFilter(other), HostClient() {}
    using BufferAccessorFilter::targetAccessor;
    using StatefulBufferAccessorFilter::clientPtr;
    using StatefulBufferAccessorFilter::releaseTargetAccessor;
    using StatefulBufferAccessorFilter::replaceTargetAccessor;
    Index getSize() override { return targetAccessor().getSize(); }
    void setHint(HintType, Range const&, float) override {}
    void getBuffer(Index position, AdtEnums::Access access, BufferHandle& handle) override {
        targetAccessor().getBuffer(position, access, handle);
    }
    Accessor createClone() const override { return std::make_unique<OpenFilter>(*this); }
    void accessorUpdated() override {}
    void bufferInvalidated(BufferHandle::Owner const*) override {}
    bool prepareBufferRelease(void const*, int&) override { return false; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override {}
    Accessor releaseAccessor() override { return StatefulBufferAccessorFilter::releaseAccessor(); }
};

struct Scene {
    Scene() { std::iota(data.samples().begin(), data.samples().end(), 1000.0f); }

    std::unique_ptr<Bricks> makeBricks(bool givesOwner = true) const {
        return std::make_unique<Bricks>(
            data, Testing::BrickOptions{.brickSize = {4, 4, 8, 1}, .givesOwner = givesOwner});
    }
    Accessor cached(Accessor target) const { return CacheFilter::Apply(std::move(target), 4000, 100, 100); }
    Accessor proxied(Accessor target) const { return ProxyFilter::MakeProxy(std::move(target), controller); }

    // A sample of the data, through whatever is in `chain`.
    void reads(IBufferAccessor& accessor, Index const& at, Index const& inData) {
        BufferHandle handle;
        accessor.getBuffer(at, AdtEnums::Read, handle);
        EXPECT_EQ(static_cast<float const*>(handle.buffer())[handle.offset(at)], data.at(inData));
    }

    PlainArray<float> data{{6, 5, 11, 1}};
    HostClient client;
    boost::shared_ptr<ProxyFilter::ProxyTargetController> controller =
        boost::make_shared<ProxyFilter::ProxyTargetController>();
    Bricks* bricks = nullptr;  // at the bottom of the chain
    Accessor chain, next;
    Typed3dRwView<float> view, copy;
};

template <class Make>
void lay(Scene& s, Make make, bool givesOwner = true) {
    auto target = s.makeBricks(givesOwner);
    s.bricks = target.get();
    s.chain = make(std::move(target));
    s.chain->setClient(&s.client);
}

void useSubset(Scene& s) {
    s.reads(*s.chain, {2, 1, 3, 0}, {3, 2, 4, 0});
    s.chain->setHint(IBufferAccessor::Cache, kBox, 1.0f);
    s.reads(*s.chain->createClone(), {0, 0, 0, 0}, {1, 1, 1, 0});
    s.chain->setClient(nullptr);
    s.chain->setClient(&s.client);
    s.chain->dispose(/*flag=*/false);
    EXPECT_EQ(s.chain->getSize(), kBox.max - kBox.min);
}

template <bool givesOwner>
void keepTwoBlocks(Scene& s) {
    lay(
        s, [&](Accessor target) { return s.cached(std::move(target)); }, givesOwner);
    s.reads(*s.chain, {}, {});
    s.reads(*s.chain, {5, 4, 10, 0}, {5, 4, 10, 0});
}
boost::intrusive_ptr<Testing::Brick<float>> lentBrick(Scene& s) {
    return s.bricks->brickAt({5, 4, 10, 0});
}
// Whatever the client made of the news: the block is asked for anew, by any thread.
void keepsItNoLonger(Scene& s, bool) {
    int const before = s.bricks->requests();
    std::thread([&] { s.reads(*s.chain, {5, 4, 10, 0}, {5, 4, 10, 0}); }).join();
    EXPECT_EQ(s.bricks->requests(), before + 1);
}

void layProxies(Scene& s) {
    s.view.init(s.proxied(s.makeBricks()));
    s.copy = s.view;
    s.view.get(0, 0, 0), s.copy.get(0, 0, 0);
}
// Each proxy has one target or the other, and no view reads what the one before lent.
void showBoth(Scene& s, bool) {
    for (auto* view : {&s.view, &s.copy}) {
        float const sample = view->get(5, 4, 10);
        EXPECT_EQ(view->get(0, 0, 0) - sample, s.data.at({}) - s.data.at({5, 4, 10, 0}));
    }
    std::thread([&] { refused<ProxyFilter::Error>([&] { s.controller->setTarget(nullptr); }); }).join();
}

Accessor inMemory(float first) {
    auto const array = SharedArray<3>::Make<float>({{}, {6, 5, 11}});
    std::iota(reinterpret_cast<float*>(array.data()), reinterpret_cast<float*>(array.data()) + 6 * 5 * 11, first);
    return std::make_unique<Accessors::MemoryAccessor>(array);
}

Accessor converted(Accessor target) {
    auto const copy = Converters::ValueConverterFactory::getCopyConverter(32);
    return ValueConvertFilter::Apply(std::move(target), 4, copy, copy);
}

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"using a box", Fails::kBoth, useSubset, [](Scene&, bool) {},
     [](Scene& s) {
         lay(s, [](Accessor target) { return std::make_unique<SubsetRangeFilter>(std::move(target), kBox); });
     }},
    {"using an extent", Fails::kBoth, useSubset, [](Scene&, bool) {},
     [](Scene& s) {
         lay(s, [](Accessor target) {
             return std::make_unique<SubsetExtentFilter>(std::move(target), ExtentK<4, int>(kBox));
         });
     }},
    {"assigning subsets", Fails::kBoth,
     [](Scene& s) {
         auto& box = dynamic_cast<SubsetRangeFilter&>(*s.chain);
         box = SubsetRangeFilter(s.makeBricks(), Range::OfSize(s.data.size()));
     },
     [](Scene& s, bool completed) {
         completed ? s.reads(*s.chain, {}, {}) : s.reads(*s.chain, {}, {1, 1, 1, 0});
     },
     [](Scene& s) {
         lay(s, [](Accessor target) { return std::make_unique<SubsetRangeFilter>(std::move(target), kBox); });
     }},
    {"making a view", Fails::kBoth,
     [](Scene& s) {
         BulkDef::View::ArraySubsetDef<2> const turned({Extent{5, -1, 6}, Extent{0, 2, 3}});
         s.reads(*FilterFactory::MakeView(s.makeBricks(), turned), {0, 2, 7, 0}, {5, 4, 7, 0});
     }},
    {"refusing filters", Fails::kAllocations,
     [](Scene& s) {
         using Factory = FilterFactory;
         refused<std::invalid_argument>([] { Factory::MakeView(nullptr, Testing::ForeignView()); });
         refused<std::invalid_argument>([] { SubsetFilter::MakeSubset(nullptr, {}); });
         refused<std::invalid_argument>([] { CacheFilter::Apply(nullptr, 1, 1, 1); });
         refused<std::invalid_argument>([] { ProxyFilter::MakeProxy(nullptr, nullptr); });
         refused<std::invalid_argument>([] { ValueConvertFilter::Apply(nullptr, 4, nullptr, nullptr); });
         refused<Exceptions::PlainException>([&] { Factory::MakeView(inMemory(0), Testing::ForeignView()); });
         refused<std::invalid_argument>([&] { SubsetFilter::MakeSubset(inMemory(0), {{}, {7, 1, 1, 1}}); });
         refused<ProxyFilter::Error>([&] { s.controller->setTarget(nullptr); });
         refused<ProxyFilter::Error>([] { ProxyFilter::Error("text").clone()->throwClone(); });
     },
     [](Scene&, bool) {}, layProxies},
    {"making and cloning a cache", Fails::kBoth,
     [](Scene& s) {
         s.reads(*s.cached(s.makeBricks())->createClone(), {5, 4, 10, 0}, {5, 4, 10, 0});
     }},
    {"caching until all but one block goes", Fails::kBoth,
     [](Scene& s) {
         for (Index const& p : {Index(), Index(5, 4, 10, 0), Index(0, 4, 0, 0), Index()}) {
             s.reads(*s.chain, p, p);
         }
     },
     [](Scene&, bool) {},
     [](Scene& s) { lay(s, [](Accessor target) { return CacheFilter::Apply(std::move(target), 130, -1, -1); }); }},
    {"telling a cache of another size", Fails::kCalls, [](Scene& s) { s.bricks->client()->accessorUpdated(); },
     keepsItNoLonger, keepTwoBlocks<true>},
    {"telling a cache of an invalid block", Fails::kCalls,
     [](Scene& s) { s.bricks->client()->bufferInvalidated(lentBrick(s).get()); }, keepsItNoLonger, keepTwoBlocks<true>},
    {"telling a cache of invalid blocks", Fails::kBoth,
     [](Scene& s) { s.bricks->client()->bufferInvalidated(nullptr); }, keepsItNoLonger, keepTwoBlocks<false>},
    {"asking a cache for a block", Fails::kCalls,
     [](Scene& s) {
         int value = 0;
         s.bricks->client()->prepareBufferRelease(lentBrick(s)->memory(), value);
     },
     [](Scene& s, bool completed) { completed ? keepsItNoLonger(s, completed) : void(); }, keepTwoBlocks<true>},
    {"taking a block back from a cache", Fails::kCalls,
     [](Scene& s) { s.bricks->client()->releaseBuffer(lentBrick(s)->memory(), lentBrick(s)); }, keepsItNoLonger,
     keepTwoBlocks<true>},
    {"disposing of a cache", Fails::kCalls, [](Scene& s) { s.chain->dispose(/*flag=*/true); }, keepsItNoLonger,
     keepTwoBlocks<true>},
    {"making and cloning a proxy", Fails::kBoth,
     [](Scene& s) {
         s.reads(*s.proxied(s.makeBricks())->createClone(), {5, 4, 10, 0}, {5, 4, 10, 0});
     },
     [](Scene& s, bool) { s.controller->setTarget(nullptr); }},
    {"relaying through a proxy", Fails::kCalls,
     [](Scene& s) {
         int value = 0;
         auto* const proxy = s.bricks->client();
         proxy->bufferInvalidated(nullptr);
         proxy->prepareBufferRelease(nullptr, value);
         proxy->releaseBuffer(nullptr, nullptr);
         EXPECT_EQ(proxy->releaseAccessor(), nullptr);
         s.chain->setHint(IBufferAccessor::Cache, kBox, 1.0f);
     },
     [](Scene&, bool) {}, [](Scene& s) { lay(s, [&](Accessor target) { return s.proxied(std::move(target)); }); }},
    {"exchanging bricks by bricks", Fails::kBoth, [](Scene& s) { s.controller->setTarget(s.makeBricks()); }, showBoth,
     layProxies},
    {"exchanging memory by bricks", Fails::kBoth, [](Scene& s) { s.controller->setTarget(s.makeBricks()); }, showBoth,
     [](Scene& s) {
         layProxies(s);
         s.controller->setTarget(inMemory(0));
         s.view.get(0, 0, 0), s.copy.get(0, 0, 0);
     }},
    {"exchanging bricks below a conversion", Fails::kBoth, [](Scene& s) { s.controller->setTarget(s.makeBricks()); },
     showBoth,
     [](Scene& s) {
         s.view.init(converted(s.proxied(s.makeBricks())));
         s.copy = s.view;
         s.view.set(0, 0, 1, 4711.0f);
     }},
    {"replacing a target", Fails::kCalls,
     [](Scene& s) {
         auto& filter = dynamic_cast<OpenFilter&>(*s.chain);
         s.next = filter.replaceTargetAccessor(s.next != nullptr ? std::move(s.next) : s.makeBricks());
         OpenFilter giving(std::move(s.next));
         s.next = giving.releaseTargetAccessor();
     },
     [](Scene& s, bool) {
         s.reads(*s.chain, {5, 4, 10, 0}, {5, 4, 10, 0});
     },
     [](Scene& s) {
         lay(s, [](Accessor target) { return std::make_unique<OpenFilter>(std::move(target)); });
         s.next = s.makeBricks();
     }},
    {"changing clients", Fails::kCalls,
     [](Scene& s) {
         s.chain->setClient(nullptr);
         s.chain->setClient(&s.client);
     },
     [](Scene& s, bool) {
         auto const& filter = dynamic_cast<OpenFilter&>(*s.chain);
         EXPECT_EQ(filter.clientPtr() != nullptr, s.bricks->client() != nullptr);
     },
     [](Scene& s) { lay(s, [](Accessor target) { return std::make_unique<OpenFilter>(std::move(target)); }); }},
    {"writing through a stack", Fails::kBoth,
     [](Scene& s) {
         s.view.set(5, 4, 7, 4711.0f);
         s.view.setCacheHint(true);
         s.copy = s.view;
         EXPECT_EQ(s.view.get(0, 0, 1), s.data.at({0, 0, 1, 0}));
         EXPECT_EQ(s.view.get(5, 4, 7), 4711.0f);
     },
     [](Scene& s, bool) {
         EXPECT_EQ(s.view.get(5, 4, 6), s.data.at({5, 4, 6, 0}));
     },
     [](Scene& s) { s.view.init(converted(s.proxied(s.cached(s.makeBricks())))); }},
};

TEST(Filters, SurviveEveryFailure) {
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
