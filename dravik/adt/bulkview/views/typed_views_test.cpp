// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/counted_storage.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <numeric>
#include <ranges>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Accessors::MemoryAccessor;
using testing::Each;
using testing::ElementsAre;
using Testing::forEachIndex;
using testing::IsNan;
using Testing::LendingAccessor;
using testing::ThrowsMessage;
using Index3 = FixedVector<3, int>;
using Index4 = FixedVector<4, int>;
using View3 = Typed3dRwView<float>;

static_assert(std::input_iterator<TypedViewIterBase<3, float>>);
static_assert(std::sentinel_for<std::default_sentinel_t, TypedViewIterBase<3, float>>);
static_assert(std::ranges::input_range<TypedViewBox<2, char>>);
static_assert(!std::is_convertible_v<Typed2dRoView<float>*, IBufferAccessor::IClient*>, "not part of the public face");
static_assert(View3::ndims() == 3);

// A view over bricks of (2,2,8,1) of ascending numbers on (4,5,16).
struct OverBricks {
    explicit OverBricks(Testing::BrickOptions options = {}) {
        std::iota(data.samples().begin(), data.samples().end(), 0.0f);
        options.brickSize = {2, 2, 8, 1};
        auto accessor = std::make_unique<Testing::BrickAccessor<float>>(data, options);
        bricks = accessor.get();
        view.init(std::move(accessor));
    }
    float expected(int i, int j, int k) const { return data.at({i, j, k, 0}); }
    // What requests `use` makes.
    template <class Use>
    int requestsFor(Use use) const {
        int const before = bricks->requests();
        use();
        return bricks->requests() - before;
    }

    Testing::PlainArray<float> data{{4, 5, 16, 1}};
    Testing::BrickAccessor<float>* bricks;
    View3 view;
};

// Answers every request for data of `size` with one block.
std::unique_ptr<LendingAccessor> lending(Index4 const& size, BufferHandle::ArrayInfo const& block, void* memory) {
    return std::make_unique<LendingAccessor>(
        size, [=](auto, AdtEnums::Access access, BufferHandle& handle) { handle.update(memory, block, access); });
}

std::unique_ptr<IBufferAccessor> zeros(OpenEndedRange<2, int> const& range) {
    return std::make_unique<MemoryAccessor>(SharedArray<2>::Make<float>(range));
}

TEST(TypedViews, NeedAnAccessor) {
    static float out = 0;
    constexpr void (*kUses[])(View3&) = {
        [](View3& view) { view.get(0, 0, 0); },
        [](View3& view) { view.set(0, 0, 0, 1); },
        [](View3& view) { view.setPrefetchHint({}, {}); },
        [](View3& view) { view.cancelPrefetch(); },
        [](View3& view) { view.setCacheHint(false); },
        [](View3& view) { view.prototypeGetKTrace(0, 0, 0, &out, 1); },
    };
    View3 view;
    for (auto const use : kUses) {
        EXPECT_THAT(
            [&] { use(view); },
            ThrowsMessage<ViewException>("[Adt::BulkView] Attempt to use an uninitialized or disposed view."));
    }
    view.prototypeGetKTrace(0, 0, 0, &out, 0);
    EXPECT_TRUE(view.isNull());
    EXPECT_EQ(view.size(), Index3());
    EXPECT_EQ(view.samples().begin(), std::default_sentinel);
    EXPECT_TRUE(view.isWritable());
    EXPECT_FALSE(Typed3dRoView<float>().isWritable());
    EXPECT_TRUE(Typed2dRwView<char>().isWritable());
    EXPECT_FALSE(Typed2dRoView<float>().isWritable());
    EXPECT_EQ(view.valueType(), typeid(float));
}

TEST(TypedViews, CheckBoundsOutsideTheBlock) {
    OverBricks over;
    for (Index3 const& index :
         {Index3(4, 0, 0), Index3(-1, 0, 0), Index3(0, 5, 0), Index3(3, 4, 16), Index3(0, 0, INT_MIN)}) {
        std::ostringstream tail;
        tail << " value outside the view: " << index << " bounds: (4,5,16)";
        std::string const head = "[Adt::BulkView] Index out of bounds. Attempt to ";
        EXPECT_THAT([&] { over.view.get(index); }, ThrowsMessage<ViewBoundsException>(head + "access" + tail.str()));
        EXPECT_THAT([&] { over.view.set(index, 1); }, ThrowsMessage<ViewBoundsException>(head + "set" + tail.str()));
    }
    EXPECT_EQ(over.bricks->requests(), 0);

    Typed2dRwView<float> beyond(zeros({{-2, 0}, {4, 3}}));
    EXPECT_THROW(beyond.get(-1, 2), ViewBoundsException);
    beyond.set(0, 0, 1);
    beyond.set(-1, 2, 5);
    EXPECT_EQ(beyond(-1, 2), 5) << "what a block holds is served";
    EXPECT_THROW(beyond.get(-3, 2), ViewBoundsException);
}

TEST(TypedViews, ServeOddBlocks) {
    auto endsAtZero = lending({4, 4, 1, 1}, {{{-5, -5, 0, 0}, {0, 0, 1, 1}}, {}, 0}, nullptr);
    auto& accessor = *endsAtZero;
    Typed2dRwView<float> view(std::move(endsAtZero));
    view.get(0, 0);
    view.set(-5, -1, 3);
    EXPECT_TRUE(std::isnan(view.get(-5, -1)));
    accessor.client()->releaseBuffer(nullptr, nullptr);
    EXPECT_THROW(view.get(-5, -1), ViewBoundsException) << "taken back, and nobody can ask for it";

    float samples[] = {7, 8};
    view.init(lending({4, 4, 1, 1}, {{{0, 3, 0, 0}, {4, 2, 1, 1}}, {}, 0}, samples));
    EXPECT_THROW(view.get(1, 3), ViewBoundsException) << "the block lent is empty";
    view.init(zeros({{2, 3}, {4, 4}}));
    EXPECT_EQ(view.get(2, 3), 0);
    EXPECT_THROW(view.get(0, 3), ViewBoundsException) << "inside the size, and before the memory";
    EXPECT_THROW(view.set(3, 2, 1), ViewBoundsException);
    float out[2] = {};
    View3(lending({4, 4, 4, 1}, {{{}, {4, 4, 2, 1}}, {}, 0}, nullptr)).prototypeGetKTrace(0, 0, 2, out, 2);
    EXPECT_THAT(out, Each(IsNan())) << "one request for each sample that no block holds";
}

TEST(TypedViews, AskOncePerBlockAndAccess) {
    for (bool both : {false, true}) {
        OverBricks over({.grantedForRead = both ? AdtEnums::ReadWrite : AdtEnums::Read});
        over.view.get(0, 0, 0);
        over.view.get(1, 1, 3);
        EXPECT_EQ(over.bricks->requests(), 1);
        over.view.set(1, 1, 1, -1);
        over.view.set(0, 0, 0, -2);
        EXPECT_EQ(over.view.get(1, 1, 1), -1);
        EXPECT_EQ(over.bricks->requests(), both ? 1 : 2) << "a block for writing serves both";
    }
}

TEST(TypedViews, ReadNullsAndAbsorbWritesWithoutMemory) {
    BufferHandle::ArrayInfo const block{{{}, {3, 3, 1, 1}}, {3, 1, 0, 0}, 1};
    Typed2dRwView<float> floats(lending({3, 3, 1, 1}, block, nullptr));
    Typed2dRwView<char> chars(lending({3, 3, 1, 1}, block, nullptr));
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(std::isnan(floats.get(2, 2)));
        EXPECT_EQ(chars.get(2, 2), 0);
        floats.set(2, 2, 1);
        chars.set(2, 2, 1);
    }
    SharedArray<4> const array = Testing::unallocatedPlane(48);
    Typed2dRwView<float> readFirst(std::make_unique<MemoryAccessor>(array));
    Typed2dRwView<float> wroteFirst(std::make_unique<MemoryAccessor>(array));
    EXPECT_TRUE(std::isnan(readFirst.get(0, 0)));
    readFirst.set(0, 0, 1);
    wroteFirst.set(0, 0, 1);
    EXPECT_TRUE(std::isnan(readFirst.get(0, 0))) << "the block without memory stays";
    EXPECT_EQ(wroteFirst.get(0, 0), 1);
}

TEST(TypedViews, AskAgainAfterANotification) {
    OverBricks over;
    Index4 const p, elsewhere(2, 2, 0, 0);
    auto const get = [&] { EXPECT_EQ(over.view.get(0, 0, 0), over.bricks->brickAt(p)->at(p)); };
    int value = 5;
    EXPECT_FALSE(over.bricks->client()->prepareBufferRelease(&value, value)) << "not the buffer of a handle without";
    get();
    auto const held = over.bricks->brickAt(p);
    struct Row {
        char const* name;
        std::function<void(IBufferAccessor::IClient&)> notify;
        int requests;
    };
    Row const rows[] = {
        {"OtherOwner", [&](auto& to) { to.bufferInvalidated(over.bricks->brickAt(elsewhere).get()); }, 0},
        {"NoOwner", [&](auto& to) { to.bufferInvalidated(nullptr); }, 0},
        {"Owner", [&](auto& to) { to.bufferInvalidated(held.get()); }, 2},
        {"OtherBuffer", [&](auto&) { EXPECT_EQ(over.bricks->prepareRelease(elsewhere, 500), 500); }, 0},
        {"LowValue", [&](auto&) { EXPECT_EQ(over.bricks->prepareRelease(p, 500), 10000); }, 2},
        {"HighValue", [&](auto&) { EXPECT_EQ(over.bricks->prepareRelease(p, 20000), 20000); }, 2},
        {"ReleaseByOther", [&](auto& to) { to.releaseBuffer(held->memory(), over.bricks->brickAt(elsewhere)); }, 0},
        {"Release", [&](auto&) { over.bricks->release(p); }, 1},
        {"Change", [&](auto&) { over.bricks->change(p, -7); }, 2},
    };
    for (Row const& row : rows) {
        row.notify(*over.bricks->client());
        EXPECT_EQ(over.requestsFor(get), row.requests) << row.name << ": the first answer may still bear the mark";
        EXPECT_EQ(over.requestsFor(get), 0) << row.name;
    }
    EXPECT_TRUE(held->isUniqueRef()) << "the view let go";

    OverBricks null({.hasMemory = false, .givesOwner = false});
    null.view.get(0, 0, 0);
    null.bricks->client()->bufferInvalidated(nullptr);
    null.view.get(0, 0, 0);
    EXPECT_EQ(null.bricks->requests(), 1) << "the null value goes on to be shown";
}

TEST(TypedViews, ReadTheSizeAgainAfterAnUpdate) {
    struct Resized : Testing::BrickAccessor<float> {
        using BrickAccessor::BrickAccessor;
        Index4 getSize() override { return size[0] > 0 ? size : throw std::runtime_error("no size"); }
        Index4 size = {4, 4, 1, 1};
    };
    auto accessor = std::make_unique<Resized>(Testing::PlainArray<float>({4, 4, 1, 1}));
    auto& resized = *accessor;
    Typed2dRwView<float> view(std::move(accessor));
    view.get(1, 1);
    resized.size = {1, 2, 1, 1};
    resized.client()->accessorUpdated();
    EXPECT_THROW(view.get(1, 1), ViewBoundsException) << "the block that held it is not trusted any more";
    resized.size = {};
    EXPECT_THROW(resized.client()->accessorUpdated(), std::runtime_error);
    EXPECT_EQ(view.size(), (FixedVector<2, int>(1, 2)));
}

TEST(TypedViews, StayUsableWhenANewChainFails) {
    Typed2dRwView<float> view(zeros({{0, 0}, {2, 3}}));
    view.set(1, 1, 4);
    EXPECT_THAT(
        [&] { view.init(nullptr); },
        ThrowsMessage<std::invalid_argument>("[BulkView::ViewBase::init] Accessor is null."));
    EXPECT_EQ(view.get(1, 1), 4);
    EXPECT_THROW(view.init(std::make_unique<MemoryAccessor>()), std::runtime_error);
    EXPECT_FALSE(view.isNull()) << "the new chain stays";
    EXPECT_EQ(view.size(), (FixedVector<2, int>(2, 3))) << "and the size is the old one";
    auto next = zeros({{0, 0}, {5, 5}});
    auto* const same = next.get();
    view.init(std::move(next));
    view.set(4, 4, 1);
    view.init(std::unique_ptr<IBufferAccessor>(same));
    EXPECT_EQ(view.get(4, 4), 1) << "taken over once more, not destroyed";
    view.dispose();
    EXPECT_TRUE(view.isNull());
    EXPECT_EQ(view.size(), (FixedVector<2, int>()));
}

TEST(TypedViews, RefuseSamplesOfAnotherType) {
    Typed2dRwView<float> view(zeros({{0, 0}, {2, 2}}));
    auto const doubles = [] {
        return std::make_unique<MemoryAccessor>(SharedArray<2>::Make<double>({{0, 0}, {2, 2}}));
    };
    EXPECT_THAT(
        [&] { view.init(doubles()); },
        ThrowsMessage<std::invalid_argument>(
            "[BulkView::ViewBase::init] The accessor's samples are double of 64 bits, the view's float of 32."));
    EXPECT_EQ(view.get(1, 1), 0) << "the view as it was";
    EXPECT_THROW(Typed2dRoView<unsigned char>{doubles()}, std::invalid_argument);
    EXPECT_NO_THROW(
        Typed2dRoView<char>(std::make_unique<MemoryAccessor>(SharedArray<2>::Make<signed char>({{0, 0}, {2, 2}}))));
}

struct LockedOwner : Testing::CallingOwner {
    explicit LockedOwner(std::vector<std::string>& itsLog)
        : CallingOwner([&itsLog] { itsLog.emplace_back("owner"); }), log(itsLog) {
        enableLocking();
    }
    void lock() override { log.emplace_back("lock"); }
    std::vector<std::string>& log;
};

TEST(TypedViews, LetGoOfTheBlockFirst) {
    using View = Typed2dRoView<float>;
    struct Row {
        char const* name;
        void (*end)(std::unique_ptr<View>&, IBufferAccessor::IClient&);
    };
    constexpr Row kRows[] = {
        {"init",
         [](auto& view, auto&) {
             view->init(zeros({{}, {1, 1}}));
         }},
        {"assignment",
         [](auto& view, auto&) {
             *view = View(zeros({{}, {1, 1}}));
         }},
        {"assignment of nothing", [](auto& view, auto&) { *view = View(); }},
        {"dispose", [](auto& view, auto&) { view->dispose(); }},
        {"destruction", [](auto& view, auto&) { view.reset(); }},
        {"release", [](auto&, auto& client) { EXPECT_EQ(client.releaseAccessor(), nullptr); }},
    };
    for (Row const& row : kRows) {
        std::vector<std::string> log;
        auto chain = std::make_unique<LendingAccessor>(Index4(2, 2, 1, 1), [&](auto, auto access, auto& handle) {
            handle.update(nullptr, {{{}, {2, 2, 1, 1}}, {}, 0}, access);
            handle.setOwner(new LockedOwner(log));
        });
        chain->atEnd = [&] { log.emplace_back("chain"); };
        auto& lender = *chain;
        auto view = std::make_unique<View>(std::move(chain));
        view->get(0, 0);
        row.end(view, *lender.client());
        EXPECT_THAT(log, ElementsAre("lock", "owner", "chain")) << row.name;
    }
}

TEST(TypedViews, OwnTheirChainsAsCopies) {
    OverBricks over;
    over.view.set(1, 1, 1, -1);
    Typed3dRoView<float> copy(over.view);
    over.view = over.view;
    EXPECT_EQ(over.requestsFor([&] { over.view.get(1, 1, 1); }), 1) << "assigned to itself, a view asks anew";
    over.view.dispose();
    EXPECT_EQ(copy.get(1, 1, 1), -1);
}

// A target that takes its block back, or invalidates it, while the request for it is under way.
TEST(TypedViews, AskAgainForBlocksThatGoMeanwhile) {
    float samples[] = {11, 12};
    float elsewhere[] = {11, 12};
    for (bool const releases : {false, true}) {
        int requests = 0;
        LendingAccessor* target = nullptr;
        auto accessor =
            std::make_unique<LendingAccessor>(Index4(2, 1, 1, 1), [&](auto, auto access, BufferHandle& handle) {
                bool const isFirst = ++requests % 2 == 1;
                handle.update(isFirst ? samples : elsewhere, {{{}, {2, 1, 1, 1}}, {1, 0, 0, 0}, 0}, access);
                int value = 0;
                isFirst ? void(target->client()->prepareBufferRelease(samples, value)) : void();
                isFirst&& releases ? target->client()->releaseBuffer(samples, nullptr) : void();
            });
        target = accessor.get();
        Typed2dRwView<float> view(std::move(accessor));
        EXPECT_EQ(view.get(0, 0), 11);
        view.set(0, 0, 9);
        EXPECT_EQ(view.get(0, 0), 9);
        EXPECT_EQ(elsewhere[0], 9);
        EXPECT_EQ(samples[0], 11);
        EXPECT_EQ(requests, 4);
        elsewhere[0] = 11;
    }
}

TEST(TypedViews, MoveWithChainAndBlock) {
    OverBricks over;
    over.view.set(0, 0, 1, -5);
    EXPECT_EQ(
        over.requestsFor([&] {
            std::vector<View3> views;
            views.push_back(std::move(over.view));
            for (int more = 0; more < 8; ++more) {
                views.emplace_back();
            }
            EXPECT_TRUE(over.view.isNull());
            EXPECT_EQ(over.view.size(), Index3());
            EXPECT_THROW(over.view.get(0, 0, 0), ViewException);
            EXPECT_EQ(views[0].get(0, 0, 1), -5);
            views[0].set(0, 0, 2, -6);
            over.view = std::move(views[0]);
        }),
        0);
    EXPECT_EQ(over.view.get(0, 0, 2), -6);
    over.bricks->client()->bufferInvalidated(nullptr);
    Typed2dRwView<float> absorbing(lending({4, 4, 1, 1}, {{{}, {4, 4, 1, 1}}, {}, 0}, nullptr));
    absorbing.set(1, 1, 3);
    Typed2dRwView<float> const moved(std::move(absorbing));
    EXPECT_TRUE(std::isnan(moved.get(1, 1)));
}

TEST(TypedViews, EndThoughTheOwnersLockFails) {
    struct StuckOwner : BufferHandle::Owner {
        StuckOwner() { enableLocking(); }
        void lock() override {
            if (isStuck) {
                throw std::runtime_error("stuck");
            }
        }
        bool isStuck = false;
    };
    boost::intrusive_ptr<StuckOwner> const owner(new StuckOwner);
    float sample = 0;
    auto accessor = std::make_unique<LendingAccessor>(Index4(1, 1, 1, 1), [&](auto, auto access, BufferHandle& handle) {
        handle.setOwner(owner.get());
        handle.update(&sample, {{{}, {1, 1, 1, 1}}, {}, 0}, access);
    });
    {
        Typed2dRoView<float> view(std::move(accessor));
        view.get(0, 0);
        owner->isStuck = true;
        EXPECT_THROW(view.dispose(), std::runtime_error);
    }
    EXPECT_TRUE(owner->isUniqueRef());
}

// As a consumer with traits of its own would have it.
TEST(TypedViews, CompileWithOtherTraits) {
    struct OtherTraits {};
    Typed2dRwView<float, OtherTraits> view(zeros({{0, 0}, {2, 3}}));
    view.set(1, 2, 5);
    float sum = 0;
    for (float const sample : view.samples()) {
        sum += sample;
    }
    EXPECT_EQ(sum, 5);
}

TEST(TypedViews, HintInTheirOwnBounds) {
    Testing::Journal journal;
    Typed3dRoView<float> view(std::make_unique<Testing::RecordingAccessor>("a", journal, Index4(4, 5, 6, 1)));
    journal.take();
    view.setPrefetchHint({2, 2, 2}, {10, 10, 10});
    view.setPrefetchHint({4, 7, 1}, {1, 1, 1});
    view.setPrefetchHint({2, 0, 1}, {INT_MAX, 100, INT_MAX});
    view.cancelPrefetch();
    view.setCacheHint(true);
    view.setCacheHint(false);
    EXPECT_THAT(
        journal.take(), ElementsAre(
                            "a.setHint(0 [2,4)x[2,5)x[2,6)x[0,1) 1)", "a.setHint(0 [4,4)x[0,0)x[1,2)x[0,1) 1)",
                            "a.setHint(0 [2,4)x[0,5)x[1,6)x[0,1) 1)", "a.setHint(1 [0,0)x[0,0)x[0,0)x[0,0) 1)",
                            "a.setHint(3 [0,4)x[0,5)x[0,6)x[0,1) 1)", "a.setHint(3 [0,0)x[0,0)x[0,0)x[0,0) 1)"));
}

TEST(TypedViews, ComputePositionsOfAnyWidth) {
    float row[] = {0, 1, 2, 3, 4, 5};
    // A row of a large volume lent with the strides of all of it.
    View3 view(lending({1000, 3000, 6, 1}, {{{999, 2999, 0, 0}, {1000, 3000, 6, 1}}, {6'000'000, 2000, 1, 0}, 0}, row));
    EXPECT_EQ(view(999, 2999, 5), 5);
    view.set(999, 2999, 4, -4);
    EXPECT_EQ(view.get(999, 2999, 4), -4);

    struct Derived : Typed3dRoView<float> {
        using Typed3dRoView::offset;
        using Typed3dRoView::Typed3dRoView;
    };
    Derived const derived(lending({2, 3, 4, 1}, {{{1, 2, 3, 0}, {2, 3, 4, 1}}, {1, 20, 300, 4000}, 0}, row));
    derived.get(1, 2, 3);
    EXPECT_THAT(
        (std::vector{derived.offset(1), derived.offset(1, 2), derived.offset(1, 2, 3), derived.offset(1, 2, 3, 1)}),
        ElementsAre(-940, -900, 0, 4000));
}

TEST(TypedViewTrace, EqualsThePlainArray) {
    Testing::BrickOptions const layouts[] = {
        {},
        {.padding = 1},
        {.fastestAxis = 2, .padding = 2},
        {.fastestAxis = 2, .backwards = true},
        {.fastestAxis = 1},
        {.fastestAxis = 0, .padding = 1}};
    for (auto const& layout : layouts) {
        OverBricks over(layout);
        for (auto const read : {&View3::prototypeGetKTrace, &View3::prototypeGetFloatKTrace}) {
            for (int first = 0; first < 16; ++first) {
                for (int count = -1; count <= 17 - first; ++count) {
                    std::vector<float> out(18, -1), expected(18, -1);
                    for (int k = 0; k < count && first + k < 16; ++k) {
                        expected[static_cast<std::size_t>(k)] = over.expected(3, 2, first + k);
                    }
                    try {
                        (over.view.*read)(3, 2, first, out.data(), count);
                        EXPECT_LE(first + count, 16);
                    } catch (ViewBoundsException const&) {
                        EXPECT_GT(first + count, 16) << "left the view";
                    }
                    EXPECT_EQ(out, expected) << first << " + " << count;
                }
            }
        }
    }
}

void readBeside(OverBricks& over, Index4 const& p) {
    over.view.get(p[0], p[1], (p[2] + 8) % 16);
}

// Whatever happens to the block of the sample that comes next.
TEST(TypedViewIterator, WalksAnyBoxLastAxisFastest) {
    constexpr void (*kDisturbances[])(OverBricks&, Index4 const&) = {
        [](auto&, auto&) {},
        [](auto& over, auto&) { over.view.get(3, 4, 5); },
        readBeside,
        [](auto& over, auto& p) { readBeside(over, p), over.bricks->release(p); },
        [](auto& over, auto& p) { over.view.set(p[0], p[1], p[2], over.view.get(p[0], p[1], p[2])); },
        [](auto& over, auto& p) { over.bricks->prepareRelease(p); },
        [](auto& over, auto& p) { over.bricks->release(p); },
        [](auto& over, auto& p) { over.bricks->change(p, over.data.at(p)); },
        [](auto& over, auto&) { over.bricks->client()->accessorUpdated(); },
        [](auto& over, auto&) { over.view = over.view; },
    };
    Testing::Random random;
    for (int round = 0; round < 400; ++round) {
        OverBricks over;
        int const what = random.between(0, 9);
        int const percent = random.oneOf({10, 100});
        Index3 start, count;
        for (int axis = 0; axis < 3; ++axis) {
            start[axis] = random.chance(50) ? 0 : random.between(0, over.view.size(axis) - 1);
            count[axis] = random.between(random.chance(10) ? -1 : 1, over.view.size(axis) - start[axis]);
        }
        TypedViewIterBase<3, float> at;
        over.view.getIterator(at, start, count);
        EXPECT_EQ(at.index(), start - Index3(0, 0, 1));
        std::vector<float> expected, ranged;
        forEachIndex({Index4(start, 0), Index4(start + count, 1)}, [&](Index4 const& p) {
            random.chance(percent) ? kDisturbances[what](over, p) : void();
            expected.push_back(over.data.at(p));
            EXPECT_TRUE(at.next()) << p << ", disturbed by " << what;
            EXPECT_EQ(at.index(), Index3(p[0], p[1], p[2])) << p << ", disturbed by " << what;
            EXPECT_EQ(*at, expected.back()) << p << ", disturbed by " << what;
            return !testing::Test::HasFailure();
        });
        EXPECT_FALSE(at.next());
        std::ranges::copy(over.view.samples(start, count), std::back_inserter(ranged));
        EXPECT_EQ(ranged, expected);
    }
}

TEST(TypedViewIterator, LeavesABlockAfterAFailedRequest) {
    std::vector<float> columns[2] = {{1, 2}, {3, 4}};
    bool fails = false;
    Typed2dRwView<float> view(
        std::make_unique<LendingAccessor>(Index4(2, 2, 1, 1), [&](Index4 position, auto access, BufferHandle& handle) {
            int const column = position[1];
            auto& samples = columns[column];
            handle.update(samples.data(), {{{0, column, 0, 0}, {2, column + 1, 1, 1}}, {1, 0, 0, 0}, 0}, access);
            if (fails) {
                throw std::runtime_error("late");
            }
        }));
    view.get(1, 0);
    auto const at = view.samples({1, 0}, {1, 1}).begin();
    fails = true;
    EXPECT_THROW(view.get(0, 1), std::runtime_error);
    fails = false;
    columns[0] = {5, 6};
    EXPECT_EQ(*at, 6) << "asked for anew";
}

TEST(TypedViewIterator, ReportsWhereItCanNotRead) {
    OverBricks over;
    auto at = over.view.samples({3, 4, 15}, {1, 1, 3}).begin();
    EXPECT_EQ(*at, over.expected(3, 4, 15));
    EXPECT_THROW(*++at, ViewBoundsException);
    TypedViewIterBase<3, float> none;
    EXPECT_EQ(none, std::default_sentinel);
    over.view.getIterator(none, {INT_MAX, 0, INT_MIN}, {1, 1, 1});
    EXPECT_FALSE(none.next()) << "a box that wraps is empty";
    over.view.getIterator(at);
    EXPECT_TRUE(at.next());
    EXPECT_EQ(*at, 0);
    over.view.dispose();
    EXPECT_THROW(*++at, ViewException);
}

float readSample(View3& view, Index4 const& p) {
    return view.get(p[0], p[1], p[2]);
}

float writeSampleBack(View3& view, Index4 const& p) {
    view.set(p[0], p[1], p[2], readSample(view, p));
    return readSample(view, p);
}

float readByIterator(View3& view, Index4 const& p) {
    auto at = view.samples({p[0], p[1], 0}, {1, 1, p[2] + 1}).begin();
    std::ranges::advance(at, p[2]);
    return *at;
}

float readByTrace(View3& view, Index4 const& p) {
    float trace[16];
    view.prototypeGetKTrace(p[0], p[1], 0, trace, p[2] + 1);
    return trace[p[2]];
}

std::recursive_mutex lockOfAllBricks;

// The owner's lock, held by the reader as well, keeps the block while a sample is read.
float readUnderTheLock(View3& view, Index4 const& p) {
    std::lock_guard const guard(lockOfAllBricks);
    return readSample(view, p);
}

struct Disturbance {
    char const* name;
    Testing::BrickOptions options;
    void (*disturb)(OverBricks&, Index4 const&);
    std::vector<float (*)(View3&, Index4 const&)> reads;
};

void expectReads(Disturbance const& row, float (*read)(View3&, Index4 const&)) {
    OverBricks over(row.options);
    std::atomic<bool> done = false;
    std::atomic<int> disturbances = 0;
    std::thread foreign([&] {
        Testing::Random random(Testing::randomSeed() + 1);
        for (; !done; ++disturbances) {
            row.disturb(over, over.data.randomIndex(random));
        }
    });
    Testing::Random random;
    int wrong = 0;
    for (int round = 0; round < 2000 || disturbances < 500; ++round) {
        Index4 const p = over.data.randomIndex(random);
        wrong += read(over.view, p) != over.data.at(p);
    }
    done = true;
    foreign.join();
    EXPECT_EQ(wrong, 0) << row.name;
    EXPECT_EQ(readSample(over.view, {3, 4, 5, 0}), over.expected(3, 4, 5)) << "left in a state of use";
}

// A view that is read by this thread, and now and then written, while another one keeps notifying it.
TEST(TypedViewThreads, ReadWhileAnotherThreadNotifies) {
    std::vector const allReads{readSample, writeSampleBack, readByIterator, readByTrace};
    Disturbance const rows[] = {
        {"Invalidate",
         {.grantedForRead = AdtEnums::ReadWrite},
         [](OverBricks& over, Index4 const& p) {
             over.bricks->client()->bufferInvalidated(over.bricks->brickAt(p).get());
             over.bricks->client()->bufferInvalidated(nullptr);
         },
         allReads},
        {"Prepare", {.locksOwner = true}, [](auto& over, auto& p) { over.bricks->prepareRelease(p); }, allReads},
        {"TakeBack",
         {.locksOwner = true, .sharedLock = &lockOfAllBricks},
         [](auto& over, auto& p) { over.bricks->prepareRelease(p), over.bricks->release(p); },
         {readUnderTheLock}},
    };
    for (Disturbance const& row : rows) {
        for (auto* const read : row.reads) {
            expectReads(row, read);
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
