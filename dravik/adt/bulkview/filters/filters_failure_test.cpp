// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_extent_filter.h"
#include "dravik/adt/bulkview/filters/subset_range_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <numeric>
#include <thread>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Testing::BrickAccessor;
using Testing::callOut;
using Testing::Fails;
using Testing::PlainArray;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Bricks = BrickAccessor<float>;
using Index = FixedVector<4, int>;
using Range = OpenEndedRange<4, int>;
using Extent = ExtentImpl<int>;
using Extent4 = ExtentK<4, int>;

constexpr Range kBox{{1, 1, 1, 0}, {5, 4, 10, 1}};

// A client that may fail in whatever it is told.
struct HostClient : IBufferAccessor::IClient {
    void accessorUpdated() override { callOut("accessorUpdated"), ++updates; }
    void bufferInvalidated(BufferHandle::Owner const*) override { callOut("bufferInvalidated"); }
    bool prepareBufferRelease(void const*, int&) override { return callOut("prepareBufferRelease"), false; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override { callOut("releaseBuffer"); }
    Accessor releaseAccessor() override { return callOut("releaseAccessor"), nullptr; }

    int updates = 0;
};

struct Scene {
    Scene() { std::iota(data.samples().begin(), data.samples().end(), 1000.0f); }

    std::unique_ptr<Bricks> makeBricks(bool givesOwner = true, float first = 1000) const {
        auto shown = data;
        std::iota(shown.samples().begin(), shown.samples().end(), first);
        return std::make_unique<Bricks>(
            shown, Testing::BrickOptions{.brickSize = {4, 4, 8, 1}, .givesOwner = givesOwner});
    }
    template <class Make>
    void lay(Make make, bool givesOwner = true) {
        auto target = makeBricks(givesOwner);
        bricks = target.get();
        chain = make(std::move(target));
        chain->setClient(&client);
    }
    Accessor proxied(Accessor target) const { return ProxyFilter::MakeProxy(std::move(target), controller); }

    // A sample of the data, through whatever is in `accessor`.
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
    Accessor chain;
    Typed3dRwView<float> view, copy;
};

constexpr Index kLast{5, 4, 10, 0};

Accessor cached(Accessor target, int budget = 4000) {
    return CacheFilter::Apply(std::move(target), budget, CacheFilter::kNever, CacheFilter::kNever);
}

template <class Subset, class Shape>
void layBox(Scene& s) {
    s.lay([](Accessor target) { return std::make_unique<Subset>(std::move(target), Shape(kBox)); });
}
void useBox(Scene& s) {
    s.reads(*s.chain, {2, 1, 3, 0}, {3, 2, 4, 0});
    s.chain->setHint(IBufferAccessor::Cache, kBox, 1.0f);
    s.reads(*s.chain->createClone(), {}, {1, 1, 1, 0});
    s.chain->dispose(/*flag=*/false);
    EXPECT_EQ(s.chain->getSize(), kBox.max - kBox.min);
}
template <class Subset, class Shape>
void assignWhole(Scene& s) {
    dynamic_cast<Subset&>(*s.chain) = Subset(s.makeBricks(), Shape(Range::OfSize(s.data.size())));
}
void isAssigned(Scene& s, bool completed) {
    s.reads(*s.chain, {}, completed ? Index() : Index(1, 1, 1, 0));
}

template <bool givesOwner>
void keepTwoBlocks(Scene& s) {
    s.lay([](Accessor target) { return cached(std::move(target)); }, givesOwner);
    s.reads(*s.chain, {}, {});
    s.reads(*s.chain, kLast, kLast);
}
boost::intrusive_ptr<Testing::Brick<float>> lentBrick(Scene& s) {
    return s.bricks->brickAt(kLast);
}
// Whatever the client made of the news: the block is asked for anew, by any thread.
void keepsItNoLonger(Scene& s, bool) {
    int const before = s.bricks->requests();
    std::thread([&] { s.reads(*s.chain, kLast, kLast); }).join();
    EXPECT_EQ(s.bricks->requests(), before + 1);
}

void layProxy(Scene& s) {
    s.lay([&](Accessor target) { return s.proxied(std::move(target)); });
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
        EXPECT_EQ(view->get(0, 0, 0) - sample, s.data.at({}) - s.data.at(kLast));
    }
    std::thread([&] { Testing::refused<ProxyFilter::Error>([&] { s.controller->setTarget(nullptr); }); }).join();
}

// Copies floats.
struct HostConverter : IValueConverter {
    std::type_info const& getInputType() const override { return typeid(float); }
    std::type_info const& getOutputType() const override { return typeid(float); }
    void convert(void const*, void*) const override {}
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        callOut("convert");
        for (int k = 0; k < count; ++k) {
            static_cast<float*>(out)[outIndex + k * outStride] = static_cast<float const*>(in)[inIndex + k * inStride];
        }
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    }
};

Accessor converted(Accessor target) {
    auto const copy = boost::make_shared<HostConverter>();
    return ValueConvertFilter::Apply(std::move(target), 4, copy, copy);
}

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"using a box", Fails::kBoth, useBox, [](Scene&, bool) {}, layBox<SubsetRangeFilter, Range>},
    {"using an extent", Fails::kBoth, useBox, [](Scene&, bool) {}, layBox<SubsetExtentFilter, Extent4>},
    {"assigning a box", Fails::kBoth, assignWhole<SubsetRangeFilter, Range>, isAssigned,
     layBox<SubsetRangeFilter, Range>},
    {"assigning an extent", Fails::kBoth, assignWhole<SubsetExtentFilter, Extent4>, isAssigned,
     layBox<SubsetExtentFilter, Extent4>},
    {"making filters that show a view of a view", Fails::kBoth,
     [](Scene& s) {
         BulkDef::View::ArraySubsetDef<2> const turned({Extent{5, -1, 6}, Extent{0, 2, 3}});
         auto const view = FilterFactory::MakeView(FilterFactory::MakeView(s.makeBricks(), turned), turned);
         s.reads(*view->createClone(), {0, 1, 7, 0}, {0, 4, 7, 0});
     }},
    {"making and cloning a cache", Fails::kBoth,
     [](Scene& s) { s.reads(*cached(s.makeBricks())->createClone(), kLast, kLast); }},
    {"making and cloning a proxy", Fails::kBoth,
     [](Scene& s) { s.reads(*s.proxied(s.makeBricks())->createClone(), kLast, kLast); }},
    {"caching until all but one block goes", Fails::kBoth,
     [](Scene& s) {
         for (Index const& p : {Index(), kLast, Index(0, 4, 0, 0), Index()}) {
             s.reads(*s.chain, p, p);
         }
     },
     [](Scene&, bool) {}, [](Scene& s) { s.lay([](Accessor target) { return cached(std::move(target), 130); }); }},
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
     [](Scene&, bool) {}, layProxy},
    {"exchanging bricks by bricks", Fails::kBoth, [](Scene& s) { s.controller->setTarget(s.makeBricks()); }, showBoth,
     layProxies},
    {"exchanging bricks without owners", Fails::kBoth, [](Scene& s) { s.controller->setTarget(s.makeBricks()); },
     showBoth,
     [](Scene& s) {
         layProxies(s);
         s.controller->setTarget(s.makeBricks(/*givesOwner=*/false, 0));
         s.view.get(0, 0, 0), s.copy.get(0, 0, 0);
     }},
    {"exchanging bricks below a conversion", Fails::kBoth, [](Scene& s) { s.controller->setTarget(s.makeBricks()); },
     showBoth,
     [](Scene& s) {
         s.view.init(converted(s.proxied(s.makeBricks())));
         s.copy = s.view;
         s.view.set(0, 0, 1, 4711.0f);
     }},
    {"changing clients", Fails::kCalls,
     [](Scene& s) {
         s.chain->setClient(nullptr);
         s.chain->setClient(&s.client);
     },
     [](Scene& s, bool) {
         int const before = s.client.updates;
         dynamic_cast<IBufferAccessor::IClient&>(*s.chain).accessorUpdated();
         EXPECT_EQ(s.client.updates - before, s.bricks->client() != nullptr ? 1 : 0);
     },
     layProxy},
    {"writing through a stack", Fails::kBoth,
     [](Scene& s) {
         s.view.set(5, 4, 7, 4711.0f);
         s.view.setCacheHint(true);
         s.copy = s.view;
         s.view.set(0, 0, 0, 4712.0f);  // in a longer row
         EXPECT_EQ(s.view.get(0, 0, 1), s.data.at({0, 0, 1, 0}));
         s.view.set(5, 4, 10, 4713.0f);
         EXPECT_EQ(s.view.get(5, 4, 7), 4711.0f);
     },
     [](Scene& s, bool completed) {
         EXPECT_EQ(s.view.get(5, 4, 6), s.data.at({5, 4, 6, 0}));
         auto written = s.data;
         written.at({5, 4, 7, 0}) = 4711, written.at({}) = 4712, written.at(kLast) = 4713;
         Testing::forEachIndex(written.box(), [&](Index const& p) {
             float const actual = s.bricks->brickAt(p)->at(p);
             bool const isRight = actual == written.at(p) || (!completed && actual == s.data.at(p));
             EXPECT_TRUE(isRight) << p << " holds " << actual;
             return isRight;
         });
     },
     [](Scene& s) {
         auto bricks = s.makeBricks();
         s.bricks = bricks.get();
         s.view.init(converted(s.proxied(cached(std::move(bricks)))));
     }},
};

TEST(Filters, SurviveEveryFailure) {
    Testing::failInEach(kScenarios);
}

TEST(ValueConvertFilter, KeepsALoanOrEmptiesItWhereItFails) {
    Scene s;
    s.lay(converted);
    BufferHandle handle;
    auto const ask = [&](AdtEnums::Access access) { s.chain->getBuffer({}, access, handle); };
    auto const failing = [](int call, auto act) {
        Testing::ArmedFailure const armed(Testing::CallFailure::plan(), call, Testing::Failing::kOnce);
        act();
    };
    ask(AdtEnums::ReadWrite);
    *static_cast<float*>(handle.buffer()) = 7;
    EXPECT_THROW(failing(0, [&] { s.chain->dispose(/*flag=*/true); }), Testing::CallOutError);
    EXPECT_THROW(failing(0, [&] { ask(AdtEnums::Read); }), Testing::CallOutError);
    EXPECT_EQ(*static_cast<float*>(handle.buffer()), 7) << "still lent";
    EXPECT_THROW(failing(1, [&] { ask(AdtEnums::Read); }), Testing::CallOutError);
    EXPECT_TRUE(handle.isNull() && handle.sampleCount() == 0 && handle.owner() != nullptr);
    EXPECT_EQ(s.bricks->brickAt({})->at({}), 7);
    ask(AdtEnums::ReadWrite);
    *static_cast<float*>(handle.buffer()) = 8;
    failing(0, [&] { handle.reset(/*releaseOwner=*/true); });
    EXPECT_EQ(s.bricks->brickAt({})->at({}), 7) << "nobody could be told";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
