#include "dravik/adt/bulkview/typed_2d_views.h"
#include "dravik/adt/bulkview/typed_3d_views.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <iterator>
#include <ranges>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Accessors::MemoryAccessor;
using Testing::BrickAccessor;
using Testing::BrickOptions;
using testing::ElementsAre;
using Testing::forEachIndex;
using Testing::Journal;
using Testing::LendingAccessor;
using Testing::PlainArray;
using Index3 = FixedVector<3, int>;
using Index4 = FixedVector<4, int>;

static_assert(std::input_iterator<TypedViewIterBase<3, float>>);
static_assert(std::sentinel_for<std::default_sentinel_t, TypedViewIterBase<3, float>>);
static_assert(std::ranges::input_range<TypedViewBox<2, char>>);
static_assert(!std::is_convertible_v<Typed2dRoView<float>*, IBufferAccessor::IClient*>, "not part of the public face");
static_assert(Typed3dRwView<float>::ndims() == 3);

constexpr char kUninitialised[] = "[Adt::BulkView] Attempt to use an uninitialized or disposed view.";

// A volume of ascending whole numbers.
PlainArray<float> ramp(Index4 const& size) {
    PlainArray<float> data(size);
    for (std::size_t place = 0; place < data.samples().size(); ++place) {
        data.samples()[place] = static_cast<float>(place);
    }
    return data;
}

// A view over bricks of (2,2,4,1) of a ramp of size (4,5,6).
struct OverBricks {
    explicit OverBricks(BrickOptions options = {}) {
        options.brickSize = {2, 2, 4, 1};
        auto accessor = std::make_unique<BrickAccessor<float>>(data, options);
        bricks = accessor.get();
        view.init(std::move(accessor));
    }
    float expected(int i, int j, int k) const { return data.at({i, j, k, 0}); }

    PlainArray<float> data = ramp({4, 5, 6, 1});
    BrickAccessor<float>* bricks;
    Typed3dRwView<float> view;
};

std::unique_ptr<IBufferAccessor> zeros(OpenEndedRange<2, int> const& range) {
    return std::make_unique<MemoryAccessor>(SharedArray<2>::Make<float>(range));
}

template <class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (std::exception const& failure) {
        return failure.what();
    }
    return "no exception";
}

TEST(TypedViews, NeedAnAccessorForAllButTheEmptyTrace) {
    Typed3dRwView<float> view;
    EXPECT_TRUE(view.isWritable() && !Typed3dRoView<float>().isWritable() && !Typed2dRoView<float>().isWritable());
    EXPECT_EQ(view.valueType(), typeid(float));
    EXPECT_TRUE(view.isNull());
    EXPECT_EQ(view.size(), Index3());
    float out = 0;
    EXPECT_EQ(messageOf([&] { view.get(0, 0, 0); }), kUninitialised);
    EXPECT_EQ(messageOf([&] { view.set(0, 0, 0, 1); }), kUninitialised);
    EXPECT_EQ(messageOf([&] { view.setPrefetchHint({}, {}); }), kUninitialised);
    EXPECT_EQ(messageOf([&] { view.cancelPrefetch(); }), kUninitialised);
    EXPECT_EQ(messageOf([&] { view.setCacheHint(false); }), kUninitialised);
    EXPECT_EQ(messageOf([&] { view.prototypeGetKTrace(0, 0, 0, &out, 1); }), kUninitialised);
    EXPECT_NO_THROW(view.prototypeGetKTrace(0, 0, 0, &out, 0));
    EXPECT_EQ(view.samples().begin(), std::default_sentinel);
}

TEST(TypedViews, CheckTheBoundsOfWhatTheBlockDoesNotHold) {
    OverBricks over;
    struct Row {
        Index3 index;
        char const* text;
    };
    Row const rows[] = {
        {{4, 0, 0}, "(4,0,0)"},
        {{-1, 0, 0}, "(-1,0,0)"},
        {{0, 5, 0}, "(0,5,0)"},
        {{3, 4, 6}, "(3,4,6)"},
        {{0, 0, INT_MIN}, "(0,0,-2147483648)"}};
    for (Row const& row : rows) {
        std::string const tail = std::string(" value outside the view: ") + row.text + " bounds: (4,5,6)";
        std::string const head = "[Adt::BulkView] Index out of bounds. Attempt to ";
        EXPECT_EQ(messageOf([&] { over.view.get(row.index); }), head + "access" + tail);
        EXPECT_EQ(messageOf([&] { over.view.set(row.index, 1); }), head + "set" + tail);
    }
    EXPECT_EQ(over.bricks->requests(), 0);
    EXPECT_EQ(over.view.get(3, 4, 5), over.expected(3, 4, 5));
}

TEST(TypedViews, ServeWhatTheBlockHoldsBeyondTheView) {
    Typed2dRwView<float> view(zeros({{-2, 0}, {4, 3}}));
    EXPECT_THROW(view.get(-1, 2), ViewBoundsException);
    view.set(0, 0, 1);
    view.set(-1, 2, 5);
    EXPECT_EQ(view(-1, 2), 5);
    EXPECT_THROW(view.get(-3, 2), ViewBoundsException);
}

TEST(TypedViews, ServeABlockThatEndsAtZeroOnTheFirstAxis) {
    Journal journal;
    auto accessor = std::make_unique<Testing::RecordingAccessor>("a", journal, Index4(4, 4, 1, 1));
    accessor->setBlock({{{-5, -5, 0, 0}, {0, 0, 1, 1}}, {}, 0});
    auto* const client = accessor.get();
    Typed2dRwView<float> view(std::move(accessor));
    view.get(0, 0);
    journal.take();
    EXPECT_TRUE(std::isnan(view.get(-5, -1)));
    view.set(-5, -1, 3);
    EXPECT_TRUE(journal.take().empty());
    client->client()->releaseBuffer(nullptr, nullptr);
    EXPECT_THROW(view.get(-5, -1), ViewBoundsException) << "taken back, and nobody can ask for it";
}

TEST(TypedViews, HoldNothingOfAnEmptyBlock) {
    Journal journal;
    auto accessor = std::make_unique<Testing::RecordingAccessor>("a", journal, Index4(4, 4, 1, 1));
    accessor->setBlock({{{0, 3, 0, 0}, {4, 2, 1, 1}}, {}, 0});
    Typed2dRoView<float> const view(std::move(accessor));
    journal.take();
    view.get(1, 3);
    view.get(1, 3);
    EXPECT_EQ(journal.take().size(), 2u);

    auto beside = std::make_unique<Testing::RecordingAccessor>("a", journal, Index4(4, 4, 4, 1));
    beside->setBlock({{{}, {4, 4, 2, 1}}, {}, 0});
    float out[2] = {};
    Typed3dRoView<float>(std::move(beside)).prototypeGetKTrace(0, 0, 2, out, 2);
    EXPECT_THAT(out, testing::Each(testing::IsNan())) << "one request for each sample that no block holds";
}

TEST(TypedViews, AskOncePerBlockAndOnceMoreToWriteIntoIt) {
    for (bool both : {false, true}) {
        OverBricks over({.grantedForRead = both ? AdtEnums::ReadWrite : AdtEnums::Read});
        over.view.get(0, 0, 0);
        over.view.get(1, 1, 3);
        EXPECT_EQ(over.bricks->requests(), 1);
        over.view.set(1, 1, 1, -1);
        EXPECT_EQ(over.bricks->requests(), both ? 1 : 2);
        EXPECT_EQ(over.view.get(1, 1, 1), -1);
        over.view.set(0, 0, 0, -2);
        EXPECT_EQ(over.bricks->requests(), both ? 1 : 2) << "a block for writing serves both";
    }
}

TEST(TypedViews, ReadTheNullValueAndAbsorbWritesWithoutMemory) {
    auto const lendsNothing = [](auto sample) {
        PlainArray<decltype(sample)> const data({3, 3, 1, 1});
        return std::make_unique<BrickAccessor<decltype(sample)>>(data, BrickOptions{.hasMemory = false});
    };
    Typed2dRwView<float> floats(lendsNothing(0.0f));
    Typed2dRwView<char> chars(lendsNothing(char()));
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(std::isnan(floats.get(2, 2)));
        EXPECT_EQ(chars.get(2, 2), 0);
        floats.set(2, 2, 1);
        chars.set(2, 2, 1);
    }
    EXPECT_THROW(floats.get(3, 0), ViewBoundsException);

    ArrayRef<4> const unallocated({{}, {3, 4, 1, 1}}, {4, 1, 0, 0}, nullptr, 0, typeid(float), 32);
    SharedArray<4> const array(unallocated, SharedBuffer(new SharedBuffer::BasicArrayOwner(48)));
    Typed2dRwView<float> readFirst(std::make_unique<MemoryAccessor>(array));
    Typed2dRwView<float> wroteFirst(std::make_unique<MemoryAccessor>(array));
    EXPECT_TRUE(std::isnan(readFirst.get(0, 0)));
    readFirst.set(0, 0, 1);
    EXPECT_TRUE(std::isnan(readFirst.get(0, 0))) << "the block without memory stays";
    wroteFirst.set(0, 0, 1);
    EXPECT_EQ(wroteFirst.get(0, 0), 1);
}

TEST(TypedViews, AskAgainAfterAnInvalidationOfTheirLoan) {
    OverBricks over;
    float const& sample = over.view.get(0, 0, 0);
    auto const other = over.bricks->brickAt({2, 2, 0, 0});
    over.bricks->client()->bufferInvalidated(other.get());
    over.bricks->client()->bufferInvalidated(nullptr);
    EXPECT_EQ(&over.view.get(0, 0, 0), &sample);
    EXPECT_EQ(over.bricks->requests(), 1);
    over.bricks->change({0, 0, 0, 0}, -7);
    EXPECT_EQ(over.view.get(0, 0, 0), -7);
    EXPECT_EQ(over.bricks->requests(), 3) << "the first answer still bears the mark";
    over.view.get(1, 1, 1);
    EXPECT_EQ(over.bricks->requests(), 3);
}

TEST(TypedViews, GoOnShowingTheNullValueAfterAnInvalidation) {
    OverBricks over({.hasMemory = false, .givesOwner = false});
    over.view.get(0, 0, 0);
    over.bricks->client()->bufferInvalidated(nullptr);
    over.view.get(0, 0, 0);
    EXPECT_EQ(over.bricks->requests(), 1);
}

TEST(TypedViews, GiveTheirBlockBack) {
    OverBricks over;
    auto* const client = over.bricks->client();
    int untouched = 5;
    char elsewhere[1];
    EXPECT_FALSE(client->prepareBufferRelease(elsewhere, untouched));
    EXPECT_EQ(untouched, 5);
    over.view.get(0, 0, 0);
    EXPECT_EQ(over.bricks->prepareRelease({0, 0, 0, 0}, 500), 10000);
    EXPECT_EQ(over.bricks->prepareRelease({0, 0, 0, 0}, 20000), 20000);
    EXPECT_EQ(over.bricks->prepareRelease({2, 0, 0, 0}, 500), 500);
    EXPECT_EQ(over.view.get(0, 0, 0), 0);
    EXPECT_EQ(over.bricks->requests(), 3);
    auto const held = over.bricks->brickAt({0, 0, 0, 0});
    client->releaseBuffer(held->memory(), over.bricks->brickAt({2, 0, 0, 0}));
    over.view.get(0, 0, 0);
    EXPECT_EQ(over.bricks->requests(), 3) << "another owner's release";
    over.bricks->release({0, 0, 0, 0});
    EXPECT_TRUE(held->isUniqueRef()) << "the view let go";
    EXPECT_EQ(over.view.get(1, 1, 3), over.expected(1, 1, 3)) << "not what the old memory holds now";
    EXPECT_EQ(over.bricks->requests(), 4);
}

// Shows another size than it has, and fails after it has filled the handle.
struct Moody : BrickAccessor<float> {
    using BrickAccessor::BrickAccessor;
    Index4 getSize() override { return failing ? throw std::runtime_error("moody") : size; }
    void getBuffer(Index4 position, AdtEnums::Access access, BufferHandle& handle) override {
        BrickAccessor::getBuffer(position, access, handle);
        if (failing) {
            throw std::runtime_error("moody");
        }
    }
    Index4 size = {4, 4, 1, 1};
    bool failing = false;
};

TEST(TypedViews, KeepNothingOfARequestThatFailed) {
    auto accessor = std::make_unique<Moody>(ramp({4, 4, 1, 1}), BrickOptions{.brickSize = {4, 2, 1, 1}});
    auto* const moody = accessor.get();
    Typed2dRwView<float> view(std::move(accessor));
    view.get(0, 0);
    moody->failing = true;
    EXPECT_THROW(view.get(0, 2), std::runtime_error);
    EXPECT_THROW(view.get(0, 0), std::runtime_error) << "the block before has gone from the handle";
    moody->failing = false;
    EXPECT_EQ(view.get(0, 0), 0);
    EXPECT_EQ(view.get(0, 2), 2);
}

TEST(TypedViews, ReadTheSizeAgainWhenTheAccessorChanged) {
    auto accessor = std::make_unique<Moody>(ramp({4, 4, 1, 1}), BrickOptions{});
    auto* const moody = accessor.get();
    Typed2dRwView<float> view(std::move(accessor));
    view.get(1, 1);
    moody->size = {1, 2, 1, 1};
    moody->client()->accessorUpdated();
    EXPECT_EQ(view.size(), (FixedVector<2, int>(1, 2)));
    EXPECT_THROW(view.get(1, 1), ViewBoundsException) << "the block that held it is not trusted any more";
    moody->failing = true;
    moody->size = {4, 4, 1, 1};
    EXPECT_THROW(moody->client()->accessorUpdated(), std::runtime_error);
    EXPECT_EQ(view.size(), (FixedVector<2, int>(1, 2)));
}

TEST(TypedViews, StayUsableWhenTheNewChainIsNoneOrFails) {
    Typed2dRwView<float> view(zeros({{0, 0}, {2, 3}}));
    view.set(1, 1, 4);
    EXPECT_EQ(messageOf([&] { view.init(nullptr); }), "[BulkView::ViewBase::init] Accessor is null.");
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

TEST(TypedViews, LetGoOfTheBlockBeforeTheChainThatLentIt) {
    struct Row {
        char const* name;
        std::function<void(std::unique_ptr<Typed2dRoView<float>>&, LendingAccessor&)> end;
    };
    Row const rows[] = {
        {"init",
         [](auto& view, auto&) {
             view->init(zeros({{0, 0}, {1, 1}}));
         }},
        {"assignment",
         [](auto& view, auto&) {
             *view = Typed2dRoView<float>(zeros({{0, 0}, {1, 1}}));
         }},
        {"assignment of nothing", [](auto& view, auto&) { *view = Typed2dRoView<float>(); }},
        {"dispose", [](auto& view, auto&) { view->dispose(); }},
        {"destruction", [](auto& view, auto&) { view.reset(); }},
        {"release", [](auto&, auto& chain) { EXPECT_EQ(chain.client()->releaseAccessor(), nullptr); }},
    };
    for (Row const& row : rows) {
        std::vector<std::string> ended;
        auto chain = std::make_unique<LendingAccessor>(Index4(2, 2, 1, 1), [&](auto, auto access, auto& handle) {
            handle.setOwner(new Testing::CallingOwner([&] { ended.emplace_back("owner"); }));
            handle.update(nullptr, {{{}, {2, 2, 1, 1}}, {}, 0}, access);
        });
        chain->atEnd = [&] { ended.emplace_back("chain"); };
        auto& lender = *chain;
        auto view = std::make_unique<Typed2dRoView<float>>(std::move(chain));
        view->get(0, 0);
        row.end(view, lender);
        EXPECT_THAT(ended, ElementsAre("owner", "chain")) << row.name;
    }
}

TEST(TypedViews, OwnAChainOfTheirOwnAsCopies) {
    OverBricks over;
    over.view.set(1, 1, 1, -1);
    Typed3dRoView<float> copy(over.view);
    EXPECT_EQ(copy.get(1, 1, 1), -1);
    over.view = over.view;
    int const requests = over.bricks->requests();
    EXPECT_EQ(over.view.get(1, 1, 1), -1);
    EXPECT_EQ(over.bricks->requests(), requests + 1) << "assigned to itself, a view asks anew";
    over.view.dispose();
    EXPECT_EQ(copy.get(3, 4, 5), over.expected(3, 4, 5));
}

TEST(TypedViews, HintInTheirOwnBounds) {
    Journal journal;
    Typed3dRoView<float> view(std::make_unique<Testing::RecordingAccessor>("a", journal, Index4(4, 5, 6, 1)));
    journal.take();
    view.setPrefetchHint({2, 2, 2}, {10, 10, 10});
    view.setPrefetchHint({4, 7, 1}, {1, 1, 1});
    view.cancelPrefetch();
    view.setCacheHint(true);
    view.setCacheHint(false);
    EXPECT_THAT(
        journal.take(), ElementsAre(
                            "a.setHint(0 [2,4)x[2,5)x[2,6)x[0,1) 1)", "a.setHint(0 [4,4)x[0,0)x[1,2)x[0,1) 1)",
                            "a.setHint(1 [0,0)x[0,0)x[0,0)x[0,0) 1)", "a.setHint(3 [0,4)x[0,5)x[0,6)x[0,1) 1)",
                            "a.setHint(3 [0,0)x[0,0)x[0,0)x[0,0) 1)"));
}

// A row of a large volume lent with the strides of all of it.
TEST(TypedViews, ReachPositionsBeyondThirtyTwoBits) {
    float row[] = {0, 1, 2, 3, 4, 5};
    Typed3dRwView<float> view(std::make_unique<LendingAccessor>(
        Index4(1000, 3000, 6, 1), [&row](Index4 p, AdtEnums::Access access, BufferHandle& handle) {
            OpenEndedRange<4, int> const range{{p[0], p[1], 0, 0}, {p[0] + 1, p[1] + 1, 6, 1}};
            handle.update(row, {range, {6'000'000, 2000, 1, 0}, 0}, access);
        }));
    EXPECT_EQ(view.get(999, 2999, 5), 5);
    view.set(999, 2999, 4, -4);
    EXPECT_EQ(view.get(999, 2999, 4), -4);
}

TEST(TypedViewTrace, EqualsThePlainArray) {
    BrickOptions const layouts[] = {
        {}, {.fastestAxis = 2, .padding = 2}, {.fastestAxis = 2, .backwards = true}, {.fastestAxis = 0, .padding = 1}};
    for (BrickOptions const& layout : layouts) {
        OverBricks over(layout);
        for (int first = 0; first < 6; ++first) {
            for (int count = -1; count <= 6 - first; ++count) {
                std::vector<float> out(8, -1), slow(8, -1), expected(8, -1);
                for (int k = 0; k < count; ++k) {
                    expected[static_cast<std::size_t>(k)] = over.expected(3, 2, first + k);
                }
                over.view.prototypeGetKTrace(3, 2, first, out.data(), count);
                over.view.prototypeGetFloatKTrace(3, 2, first, slow.data(), count);
                EXPECT_EQ(out, expected) << first << " + " << count;
                EXPECT_EQ(slow, expected) << first << " + " << count;
            }
        }
    }
}

TEST(TypedViewTrace, KeepsWhatItCopiedBeforeItLeftTheView) {
    OverBricks over;
    std::vector<float> out(6, -1);
    EXPECT_THROW(over.view.prototypeGetKTrace(0, 0, 2, out.data(), 5), ViewBoundsException);
    EXPECT_THAT(out, ElementsAre(2, 3, 4, 5, -1, -1));
    OverBricks null({.hasMemory = false});
    null.view.prototypeGetKTrace(0, 0, 0, out.data(), 6);
    EXPECT_THAT(out, testing::Each(testing::IsNan()));
}

TEST(TypedViewIterator, WalksAnyBoxLastAxisFastest) {
    OverBricks over;
    Testing::Random random;
    for (int round = 0; round < 60; ++round) {
        Index3 start, count;
        for (int axis = 0; axis < 3; ++axis) {
            start[axis] = random.between(0, over.view.size(axis) - 1);
            count[axis] = random.between(random.chance(10) ? -1 : 1, over.view.size(axis) - start[axis]);
        }
        TypedViewIterBase<3, float> at;
        over.view.getIterator(at, start, count);
        EXPECT_EQ(at.index(), start - Index3(0, 0, 1));
        Index3 const end = start + count;
        std::vector<float> expected;
        forEachIndex({{start[0], start[1], start[2], 0}, {end[0], end[1], end[2], 1}}, [&](Index4 const& p) {
            expected.push_back(over.data.at(p));
            EXPECT_TRUE(at.next() && at.index() == Index3(p[0], p[1], p[2]) && *at == expected.back()) << p;
            return !testing::Test::HasFailure();
        });
        EXPECT_FALSE(at.next());
        std::vector<float> ranged;
        std::ranges::copy(over.view.samples(start, count), std::back_inserter(ranged));
        EXPECT_EQ(ranged, expected);
    }
}

TEST(TypedViewIterator, OutlivesWhateverHappensToItsBlock) {
    struct Row {
        char const* name;
        std::function<void(OverBricks&, Index4 const&)> disturb;
    };
    Row const rows[] = {
        {"nothing", [](auto&, auto&) {}},
        {"a read elsewhere", [](auto& over, auto&) { over.view.get(3, 4, 5); }},
        {"a read in the brick beside", [](auto& over, auto& p) { over.view.get(p[0], p[1], (p[2] + 4) % 6); }},
        {"a read in the brick beside, and the block gone",
         [](auto& over, auto& p) {
             over.view.get(p[0], p[1], (p[2] + 4) % 6);
             over.bricks->release(p);
         }},
        {"a write", [](auto& over, auto& p) { over.view.set(p[0], p[1], p[2], over.view.get(p[0], p[1], p[2])); }},
        {"a block prepared for release", [](auto& over, auto& p) { over.bricks->prepareRelease(p); }},
        {"a block taken back", [](auto& over, auto& p) { over.bricks->release(p); }},
        {"new samples", [](auto& over, auto& p) { over.bricks->change(p, over.data.at(p)); }},
        {"another size told", [](auto& over, auto&) { over.bricks->client()->accessorUpdated(); }},
        {"an assignment", [](auto& over, auto&) { over.view = over.view; }},
    };
    for (Row const& row : rows) {
        for (int every : {1, 3}) {
            OverBricks over;
            auto at = over.view.samples().begin();
            int step = 0;
            forEachIndex(over.data.box(), [&](Index4 const& p) {
                if (step++ % every == 0) {
                    row.disturb(over, p);
                }
                bool const same = at != std::default_sentinel && *at == over.data.at(p);
                EXPECT_TRUE(same) << row.name << " at " << p;
                ++at;
                return same;
            });
            EXPECT_EQ(at, std::default_sentinel) << row.name;
        }
    }
    OverBricks over;
    auto at = over.view.samples().begin();
    EXPECT_EQ(*at, 0);
    over.view.dispose();
    EXPECT_THROW(*++at, ViewException);
}

TEST(TypedViewIterator, ReportsABoxBeyondTheViewWhereItLeavesIt) {
    OverBricks over;
    auto at = over.view.samples({3, 4, 5}, {1, 1, 3}).begin();
    EXPECT_EQ(*at, over.expected(3, 4, 5));
    EXPECT_THROW(*++at, ViewBoundsException);
    TypedViewIterBase<3, float> none;
    EXPECT_EQ(none, std::default_sentinel);
    over.view.getIterator(none, {INT_MAX, 0, INT_MIN}, {1, 1, 1});
    EXPECT_FALSE(none.next()) << "a box that wraps is empty";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
