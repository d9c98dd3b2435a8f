// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/index_set.h"

#include "dravik/adt/core/detail/index_set_node.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/index_bitmap.h"
#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <sstream>

namespace Quorvel::Dravik::Adt {
namespace {

using Testing::IndexBitmap;
using Testing::Random;
using Set1 = IndexSet<1, int>;
using Set2 = IndexSet<2, int>;

static_assert(std::forward_iterator<Set2::BoxIterator>);
static_assert(std::is_nothrow_move_constructible_v<Set2> && std::is_nothrow_move_assignable_v<Set2>);
static_assert(sizeof(IndexSet<3, int>) == 8 * sizeof(int), "one box and one pointer");

Set1::Box box(int min, int max) {
    return {Set1::Point(min), Set1::Point(max)};
}

// Stored boxes in order, each with its depth in the tree.
template <int N>
using StoredBoxes = std::vector<std::pair<OpenEndedRange<N, int>, int>>;

// What toString() shows, read back.
template <int N>
StoredBoxes<N> stored(IndexSet<N, int> const& set) {
    StoredBoxes<N> all;
    std::istringstream lines(set.toString());
    std::string word;
    char mark = 0;
    for (int depth = 0; lines >> word >> depth;) {
        OpenEndedRange<N, int> each;
        for (int axis = 0; axis < N; ++axis) {
            lines >> mark >> each.min[axis] >> mark >> each.max[axis] >> mark >> mark;
        }
        all.emplace_back(each, depth);
    }
    return all;
}

// Boxes that neither touch nor overlap, in the order of their corners.
template <int N>
std::vector<OpenEndedRange<N, int>> lattice(int sideCount) {
    std::vector<OpenEndedRange<N, int>> boxes;
    auto const all = OpenEndedRange<N, int>::OfSize(FixedVector<N, int>::Filled(sideCount));
    Testing::forEachPoint(all, [&](FixedVector<N, int> const& place) {
        auto const corner = place + place + place;
        boxes.push_back({corner, corner + FixedVector<N, int>::Filled(2)});
    });
    return boxes;
}

template <int N>
int depthOf(IndexSet<N, int> const& set) {
    int deepest = 0;
    for (auto const& [each, depth] : stored(set)) {
        deepest = std::max(deepest, depth);
    }
    return deepest;
}

struct IntervalRow {
    char const* name;
    Set1 set;
    std::vector<Set1::Box> added, removed;
    char const* text;
};

std::vector<IntervalRow> intervalRows() {
    auto const grid = [](int granularity, Set1::Box const& range) { return Set1(Set1::Point(granularity), range); };
    int const low = INT_MIN;
    int const high = INT_MAX;
    return {
        {"EmptyChangesNothing", {}, {box(5, 5), box(7, 3)}, {}, " L 0 (0-0) , \n"},
        {"Touching", {}, {box(0, 2), box(2, 4)}, {}, " L 0 (0-4) , \n"},
        {"TouchingBelow", {}, {box(2, 4), box(0, 2)}, {}, " L 0 (0-4) , \n"},
        {"Apart", {}, {box(0, 2), box(4, 6)}, {}, " L 1 (0-2) , \n L 1 (4-6) , \n"},
        {"CoveredNode", {}, {box(0, 2), box(4, 6), box(-1, 10)}, {}, " L 0 (-1-10) , \n"},
        {"CoveredBox", {}, {box(2, 3), box(0, 10)}, {}, " L 0 (0-10) , \n"},
        {"CutBack", {}, {box(0, 10)}, {box(5, 12)}, " L 0 (0-5) , \n"},
        {"Split", {}, {box(0, 10)}, {box(3, 5)}, " L 1 (0-3) , \n L 1 (5-10) , \n"},
        {"CutBackInPlace", {}, {box(0, 8), box(9, 11)}, {box(6, 9)}, " L 1 (0-6) , \n L 1 (9-11) , \n"},
        {"Emptied", {}, {box(3, 10)}, {box(3, 10)}, " L 0 (0-0) , \n"},
        {"EmptiedNode", {}, {box(0, 2), box(4, 6)}, {box(0, 6)}, ""},
        {"OneLeft", {}, {box(0, 2), box(4, 6)}, {box(1, 6)}, " L 0 (0-1) , \n"},
        {"Rounded", grid(10, box(3, 27)), {box(0, 30)}, {}, " L 2 (0-10) , \n L 2 (10-20) , \n L 2 (20-30) , \n"},
        {"CellsMergeInside", grid(10, box(3, 27)), {box(1, 4), box(4, 12)}, {}, " L 2 (1-10) , \n L 2 (10-12) , \n"},
        {"CoverKeepsCells", grid(10, box(3, 17)), {box(1, 4), box(0, 20)}, {}, " L 2 (0-10) , \n L 2 (10-20) , \n"},
        {"Grown", grid(10, box(0, 20)), {box(-15, 32)}, {}, " L 2 (-15-10) , \n L 2 (10-32) , \n"},
        {"TowardsZero",
         grid(2, box(-10, 0)),
         {box(-10, 0)},
         {},
         " L 3 (-10--8) , \n L 3 (-8--6) , \n L 2 (-6--4) , \n L 2 (-4--2) , \n L 2 (-2-0) , \n"},
        {"OneCellIsNone", grid(10, box(3, 7)), {box(1, 4), box(6, 9)}, {}, " L 1 (1-4) , \n L 1 (6-9) , \n"},
        {"NoGranularity", grid(0, box(3, 27)), {box(8, 12)}, {}, " L 0 (8-12) , \n"},
        {"EmptyRange", grid(10, box(3, 3)), {box(8, 12)}, {}, " L 0 (8-12) , \n"},
        {"VastCells",
         grid(1 << 30, box(0, high)),
         {box(0, high)},
         {},
         " L 2 (0-1073741824) , \n L 2 (1073741824-2147483647) , \n"},
        {"LowestInt",
         grid(10, box(low, low + 11)),
         {box(low, low + 11)},
         {},
         " L 2 (-2147483648--2147483640) , \n L 2 (-2147483640--2147483637) , \n"},
        {"HighestInt",
         grid(10, box(high - 9, high)),
         {box(high - 9, high)},
         {},
         " L 2 (2147483638-2147483640) , \n L 2 (2147483640-2147483647) , \n"},
    };
}

TEST(IndexSet, StoresIntervalsByTheRules) {
    for (IntervalRow const& row : intervalRows()) {
        Set1 set = row.set;
        EXPECT_TRUE(set.isEmpty()) << row.name;
        EXPECT_EQ(set, Set1()) << row.name;
        for (auto const& each : row.added) {
            set.add(each);
        }
        for (auto const& each : row.removed) {
            set.remove(each);
        }
        EXPECT_EQ(set.toString(), row.text) << row.name;
    }
}

TEST(IndexSet, DividesVastGridsOnlyWhereTouched) {
    using Set3 = IndexSet<3, int>;
    Set3 vast({1, 1, 1}, {{INT_MIN, 0, 0}, {INT_MAX, 1000, 1000000}});
    vast.add(Set3::Point(5, 6, 7));
    vast.add(Set3::Box{{-2, 999, 999999}, {0, 1001, 1000001}});
    EXPECT_EQ(vast.size(), 1 + 8);
    EXPECT_EQ(stored(vast).size(), 1u + 2u) << "beyond the old edge the outermost cells reach out";
    vast.remove(Set3::Point(5, 6, 7));
    vast.add(Set3::Box{{5, 6, 7}, {6, 8, 8}});
    EXPECT_EQ(stored(vast).size(), 2u + 2u) << "however deep, the cells stand";
    vast.remove(vast.bounds());
    vast.add(Set3::Box{{-2, 0, 0}, {0, 1, 1}});
    EXPECT_EQ(stored(vast).size(), 2u) << "an emptied grid still has cells";
}

TEST(IndexSet, EmptySetsKeepTheirBounds) {
    EXPECT_EQ(Set1(box(5, 5)).bounds(), box(5, 5));
    EXPECT_NE(Set1(box(5, 5)), Set1());
    EXPECT_EQ(Set1(box(5, 3)), Set1());
    EXPECT_EQ(Set1(box(5, 3)), box(5, 3));
    EXPECT_TRUE(Set1().isSubset(box(5, 5)));
    EXPECT_TRUE(Set1().isSubset(Set1(box(5, 5))));
    EXPECT_FALSE(Set1(box(0, 9)).intersects(box(5, 5)));
    EXPECT_EQ(Set1(box(0, 4)).intersection(box(7, 9)), Set1());
    EXPECT_EQ(Set1(Set1::Point(INT_MAX)), Set1()) << "no box holds the last index";
}

TEST(IndexSet, IntersectionIsOneBoxWhereItCan) {
    // Five boxes around a centre, of which no two make a box.
    Set2 wheel;
    for (Set2::Box const& each :
         {Set2::Box{{0, 0}, {1, 2}}, Set2::Box{{0, 2}, {2, 3}}, Set2::Box{{2, 1}, {3, 3}}, Set2::Box{{1, 0}, {3, 1}},
          Set2::Box{{1, 1}, {2, 2}}}) {
        wheel.add(each);
    }
    ASSERT_EQ(stored(wheel).size(), 5u);
    Set2 apart(Set2::Box{{-1, -1}, {4, 4}});
    apart.add(Set2::Box{{9, 9}, {10, 10}});
    for (Set2 const& other : {Set2(Set2::Box{{0, 0}, {3, 3}}), apart}) {
        EXPECT_EQ(wheel.intersection(other).toString(), " L 0 (0-3) , (0-3) , \n");
    }
}

TEST(IndexSet, BoxesOfATemporaryKeepIt) {
    auto const boxes = lattice<2>(6);
    Set2 const set(boxes);
    std::vector<Set2::Box> seen;
    for (auto const& each : set.intersection(set).boxes()) {
        seen.push_back(each);
    }
    EXPECT_EQ(Set2(seen), set);
    EXPECT_EQ(seen.size(), boxes.size());
    auto const own = static_cast<Set2 const&&>(set).boxes();
    EXPECT_EQ(std::distance(own.begin(), own.end()), 36);
    EXPECT_EQ(set.size(), 4 * 36) << "a constant is copied";
}

// A set and the flags of the points it should have.
template <int N>
struct Modelled {
    IndexSet<N, int> set;
    IndexBitmap<N> bitmap;

    void change(OpenEndedRange<N, int> const& box, bool add) {
        add ? set.add(box) : set.remove(box);
        bitmap.set(box, add);
    }

    // The boxes are those points, each once, and every total agrees.
    void expectSound() const {
        using Box = OpenEndedRange<N, int>;
        IndexBitmap<N> seen(bitmap.universe());
        std::size_t count = 0;
        auto const dumped = stored(set);
        for (auto next = set.boxes().begin(); next != set.boxes().end();) {
            auto const before = next;
            Box const each = *next++;
            ASSERT_NE(next, before);
            ASSERT_LT(count, dumped.size());
            ASSERT_EQ(each, dumped[count++].first);
            ASSERT_FALSE(each.isEmpty());
            ASSERT_EQ(seen.countIn(each), 0) << each << " overlaps others of " << set;
            seen.set(each, true);
        }
        ASSERT_TRUE(seen == bitmap) << set;
        ASSERT_EQ(set.size(), bitmap.size()) << set;
        ASSERT_EQ(set.isEmpty(), bitmap.size() == 0);
        ASSERT_EQ(set.isEmpty() ? Box() : set.bounds(), bitmap.bounds()) << set;
        ASSERT_EQ(set.isRange(), set.boundsSize() == bitmap.size()) << set;
        ASSERT_EQ(set.getAnyRange().isEmpty(), set.isEmpty());
    }
};

template <class Axes>
class IndexSetLaws : public testing::Test {
  protected:
    static constexpr int kAxes = Axes::value;
    using Set = IndexSet<kAxes, int>;
    using Box = typename Set::Box;
    using Point = typename Set::Point;

    static constexpr Box universe() {
        constexpr int kHalf[] = {40, 7, 4, 3};
        return {Point::Filled(-kHalf[kAxes - 1]), Point::Filled(kHalf[kAxes - 1] - 1)};
    }

    Point anyPoint() {
        Point point;
        for (int axis = 0; axis < kAxes; ++axis) {
            point[axis] = random.between(universe().min[axis], universe().max[axis] - 1);
        }
        return point;
    }

    // Mostly small, some as long as the universe on an axis, some empty or inverted.
    Box anyBox() {
        Box any;
        for (int axis = 0; axis < kAxes; ++axis) {
            int const lowest = universe().min[axis];
            int const highest = universe().max[axis];
            int const low = std::clamp(random.edgy(lowest, highest), lowest, highest);
            int const other = random.chance(70) ? low + random.between(1, 3) : random.edgy(lowest, highest);
            int const high = std::clamp(other, lowest, highest);
            any.min[axis] = random.chance(95) ? std::min(low, high) : high;
            any.max[axis] = random.chance(95) ? std::max(low, high) : low;
        }
        return any;
    }

    Modelled<kAxes> anySet(Modelled<kAxes> const& similar) {
        Modelled<kAxes> any = random.chance(30) ? similar : Modelled<kAxes>{Set(), IndexBitmap<kAxes>(universe())};
        for (int i = random.between(0, 5); i > 0; --i) {
            any.change(anyBox(), random.chance(70));
        }
        return any;
    }

    // Up to action 93 a grid stays a grid.
    void changeOnce(Modelled<kAxes>& subject, int lastAction) {
        auto& [set, bitmap] = subject;
        int const action = random.between(0, lastAction);
        if (action < 60) {
            subject.change(anyBox(), action < 35);
        } else if (action < 75) {
            Point const point = anyPoint();
            action < 70 ? set.add(point) : set.remove(point);
            bitmap.set({point, point + Point::Filled(1)}, action < 70);
        } else if (action < 90) {
            Modelled<kAxes> const other = anySet(subject);
            action < 83 ? set.add(other.set) : set.remove(other.set);
            bitmap.combine(
                other.bitmap, [&](int here, int there) { return action < 83 ? here | there : here & ~there; });
        } else if (action < 91) {
            set.add(set);
        } else if (action < 92) {
            set.add(set.bounds());
            bitmap.set(bitmap.bounds(), true);
        } else if (action < 94) {
            random.chance(50) ? set.clear() : random.chance(50) ? set.remove(set) : set.remove(set.bounds());
            bitmap.set(universe(), false);
        } else if (action < 96) {
            Box const box = anyBox();
            bool const allIn = !box.isEmpty() && set.isSubset(box);
            set = set.intersection(box);
            EXPECT_TRUE(!allIn || stored(set).size() == 1) << set;
            IndexBitmap<kAxes> inside(universe());
            inside.set(box, true);
            bitmap.combine(inside, std::bit_and<>());
        } else if (action < 98) {
            Set copy(set);
            Set moved(std::move(copy));
            EXPECT_EQ(copy, Set());
            set = std::move(moved);
            EXPECT_EQ(moved, Set());
        } else {
            int const length = random.chance(50) ? random.between(0, 40) : random.between(15, 18);
            std::vector<Box> list(static_cast<std::size_t>(length));
            std::generate(list.begin(), list.end(), [&] { return anyBox(); });
            set = Set(list);
            bitmap.set(universe(), false);
            Set inTurn;
            for (Box const& box : list) {
                bitmap.set(box, true);
                inTurn.add(box);
            }
            EXPECT_TRUE(list.size() > 16 || set.toString() == inTurn.toString()) << set << inTurn;
        }
    }

    void ask(Modelled<kAxes> const& subject) {
        auto const& [set, bitmap] = subject;
        Point const point = anyPoint();
        ASSERT_EQ(set.contains(point), bitmap.contains(point)) << point << set;
        Box const at = set.getAnyRange(point);
        ASSERT_EQ(at.contains(point), bitmap.contains(point)) << point << set;
        ASSERT_TRUE(bitmap.contains(point) || at == Box()) << point << set;
        Box const box = anyBox();
        ASSERT_EQ(set.isSubset(box), bitmap.countIn(box) == box.pointCount()) << box << set;
        ASSERT_EQ(set.intersects(box), bitmap.countIn(box) > 0) << box << set;
        ASSERT_EQ(set == box, bitmap.bounds() == Set(box).bounds() && bitmap.size() == box.pointCount()) << box << set;
        Modelled<kAxes> const other = anySet(subject);
        IndexBitmap<kAxes> both = bitmap;
        both.combine(other.bitmap, std::bit_and<>());
        ASSERT_EQ(set.isSubset(other.set), both == other.bitmap) << set << other.set;
        ASSERT_EQ(set.intersects(other.set), both.size() > 0) << set << other.set;
        ASSERT_EQ(set == other.set, bitmap == other.bitmap) << set << other.set;
        Modelled<kAxes> const common{set.intersection(other.set), both};
        common.expectSound();
        ASSERT_TRUE(both.size() > 0 || common.set == Set());
    }

    void runScript(Modelled<kAxes> subject, int steps, int lastAction, StoredBoxes<kAxes> const& cells = {}) {
        for (int step = 0; step < steps; ++step) {
            changeOnce(subject, lastAction);
            ASSERT_NO_FATAL_FAILURE(subject.expectSound()) << "step " << step;
            ASSERT_NO_FATAL_FAILURE(ask(subject)) << "step " << step;
            for (Box const& each : subject.set.boxes()) {
                auto const holds = [&](auto const& cell) { return Detail::encloses(cell.first, each); };
                ASSERT_TRUE(cells.empty() || std::any_of(cells.begin(), cells.end(), holds)) << each;
            }
        }
    }

    Random random;
};

using AllAxes = testing::Types<
    std::integral_constant<int, 1>, std::integral_constant<int, 2>, std::integral_constant<int, 3>,
    std::integral_constant<int, 4>>;
TYPED_TEST_SUITE(IndexSetLaws, AllAxes);

TYPED_TEST(IndexSetLaws, EveryOperationMatchesABitmap) {
    this->runScript({{}, IndexBitmap<TestFixture::kAxes>(this->universe())}, 1500, 99);
}

TYPED_TEST(IndexSetLaws, GridsStoreInTheirCells) {
    constexpr int N = TestFixture::kAxes;
    for (int round = 0; round < 100; ++round) {
        FixedVector<N, int> granularity;
        std::generate(granularity.begin(), granularity.end(), [&] { return this->random.between(1, 6); });
        auto const range = this->anyBox();
        Modelled<N> const grid{{granularity, range}, IndexBitmap<N>(this->universe())};
        EXPECT_EQ(grid.set, (IndexSet<N, int>()));
        auto full = grid.set;
        full.add(this->universe());
        ASSERT_EQ(full.size(), this->universe().pointCount()) << "the outer cells reach out";
        auto cells = stored(full);
        if (cells.size() < 2) {
            continue;
        }
        full.clear();
        auto shuffled = cells;
        std::shuffle(shuffled.begin(), shuffled.end(), this->random.engine());
        for (auto const& [cell, depth] : shuffled) {
            full.add(cell);
        }
        ASSERT_EQ(stored(full), cells) << "in the order of the cuts" << granularity << range;
        this->runScript(grid, 12, 93, cells);
    }
}

// What a set stores and where, after every change of fixed scripts, in one number.
template <int N>
std::uint64_t digest(int granularity, int scale, int shift) {
    std::mt19937 engine;  // the same everywhere, unlike distributions
    auto const below = [&](int end) { return static_cast<int>(engine() % static_cast<unsigned>(end)); };
    constexpr int kSides[] = {80, 14, 8, 6};
    std::uint64_t sum = 0xcbf29ce484222325;
    for (int script = 0; script < 30; ++script) {
        // Most boxes of some scripts meet no other one; those of others come one above the other.
        bool const isSparse = script % 3 != 0, isAscending = script % 3 == 1 && scale > 0;
        int const side = kSides[N - 1] * (isSparse ? 4 : 1);
        int const unit = scale > 0 ? scale : (1 << 30) / (side / 2);
        int const changes = isAscending ? 200 : 60;
        int change = 0;
        auto const anyBox = [&] {
            OpenEndedRange<N, int> box;
            for (int axis = 0; axis < N; ++axis) {
                int const first = isAscending && axis == 0 ? 2 * change : below(side);
                bool const isLong = below(4) == 0 && !isSparse;
                box.min[axis] = (first - side / 2) * unit + shift;
                int const length = 1 + below(isLong ? side - first : isAscending ? 1 : 3);
                box.max[axis] = (first - side / 2 + length) * unit + shift;
            }
            return box;
        };
        auto const cell = FixedVector<N, int>::Filled(below(granularity));  // of sides 0 there is no grid
        IndexSet<N, int> set(cell, anyBox());
        for (; change < changes; ++change) {
            below(10) < 8 ? set.add(anyBox()) : set.remove(anyBox());
            for (char const character : set.toString()) {
                sum = (sum ^ static_cast<unsigned char>(character)) * 0x100000001b3;
            }
        }
    }
    return sum;
}

TEST(IndexSet, StoresFixedScriptsInTheSameBoxes) {
    // Far from zero costs are summed in another way, and the greatest gaps count alike.
    constexpr int kFar = 1 << 28;
    struct Row {
        char const* name;
        int granularity, scale, shift;
        std::uint64_t digests[4];
    };
    constexpr Row kRows[] = {
        {"NearZero", 1, 1, 0, {0xb6542b514aa71440, 0x69dea55f31ced309, 0xf5adf5050854c39f, 0xd2dda15b3b08d939}},
        {"FarBelow", 1, 1, -kFar, {0x670348914862de23, 0x4441d3b8527f7696, 0x67ab12236906e2f4, 0x3756a3bfc26ce327}},
        {"FarAbove", 1, 1, kFar, {0x4867db6952c51602, 0xdf02023fec43ff0f, 0xd8d937dd7ab79cc1, 0x186a1182859f67cf}},
        {"GreatGaps", 1, 0, 0, {0x8b79f27210697848, 0x2c560621295a80ba, 0x128559617c4466ce, 0x904dcfdc886a7ab5}},
        {"Grid", 6, 1, 0, {0xb8ce345bbdf4aff9, 0x9be798f59b134587, 0x25c7daf2727bfc9c, 0x5187519523a00532}},
    };
    for (auto const& [name, granularity, scale, shift, digests] : kRows) {
        EXPECT_EQ(digest<1>(granularity, scale, shift), digests[0]) << name;
        EXPECT_EQ(digest<2>(granularity, scale, shift), digests[1]) << name;
        EXPECT_EQ(digest<3>(granularity, scale, shift), digests[2]) << name;
        EXPECT_EQ(digest<4>(granularity, scale, shift), digests[3]) << name;
    }
}

TEST(IndexSet, HoldsFarMorePointsThanAnInt) {
    using Set4 = IndexSet<4, int>;
    EXPECT_EQ(Set4(Set4::Box{{}, {100000, 100000, 10, 10}}).size(), 1'000'000'000'000);
    auto const all = Set4::Box{Set4::Point::Filled(INT_MIN), Set4::Point::Filled(INT_MAX)};
    Set4 set(all);
    EXPECT_EQ(set.size(), INT64_MAX);
    set.remove(Set4::Point(0, 0, 0, 0));
    EXPECT_FALSE(set.isRange()) << "one of 2^128 points is missing";
    EXPECT_FALSE(set == all);
    EXPECT_FALSE(set.contains({0, 0, 0, 0}));
    EXPECT_FALSE(set.isSubset(all));
    EXPECT_TRUE(set.contains({INT_MIN, INT_MAX - 1, 0, 1}));
    EXPECT_EQ(set.boundsSize(), INT64_MAX);
    set.add(Set4::Point(0, 0, 0, 0));
    EXPECT_EQ(set, all);
    EXPECT_TRUE(set.isSubset(all));
}

template <int N>
void expectShallowInEveryOrder(int sideCount) {
    Random random;
    auto boxes = lattice<N>(sideCount);
    for (std::string const order : {"ascending", "descending", "random"}) {
        SCOPED_TRACE(testing::Message() << order << " on " << N << " axes");
        auto const before = Testing::liveMemory();
        IndexSet<N, int> set;
        auto const expectHolds = [&](std::size_t from) {
            auto const boxCount = boxes.size() - from;
            EXPECT_LE(depthOf(set), 8 + 2 * std::log2(boxCount));
            EXPECT_EQ(set.size(), static_cast<std::int64_t>(boxCount) << N);
            for (std::size_t i = 0; i < boxes.size(); ++i) {
                ASSERT_EQ(set.contains(boxes[i].min), i >= from);
                ASSERT_FALSE(set.contains(boxes[i].max));
            }
        };
        std::for_each(boxes.begin(), boxes.end(), [&](auto const& each) { set.add(each); });
        expectHolds(0);
        auto const byteSize = static_cast<std::size_t>(Testing::liveMemory().byteSize - before.byteSize);
        EXPECT_LT(byteSize, boxes.size() * sizeof(Detail::IndexNode<N>)) << "a rebuilt tree gives up the old one";
        EXPECT_TRUE(set == (IndexSet<N, int>(boxes)));
        auto const kept = boxes.size() / 10;
        std::for_each(boxes.rbegin() + static_cast<std::ptrdiff_t>(kept), boxes.rend(), [&](auto const& each) {
            set.remove(each);
        });
        expectHolds(boxes.size() - kept);
        std::reverse(boxes.begin(), boxes.end());
        if (order == "descending") {
            std::shuffle(boxes.begin(), boxes.end(), random.engine());
        }
    }
}

TEST(IndexSet, StaysShallowInWhateverOrderItGrows) {
    expectShallowInEveryOrder<1>(20000);
    expectShallowInEveryOrder<2>(140);
    expectShallowInEveryOrder<3>(27);
    expectShallowInEveryOrder<4>(11);
}

TEST(IndexSet, TakesAMillionBoxesUpwardsAndDownwards) {
    auto boxes = lattice<2>(1000);
    std::reverse(boxes.begin() + 500'000, boxes.end());
    Set2 set;
    for (auto const& each : boxes) {
        set.add(each);
    }
    EXPECT_EQ(set.size(), 4'000'000);
}

TEST(IndexSet, UsesAgainWhatItHasGivenUp) {
    auto const boxes = lattice<2>(50);
    auto const before = Testing::liveMemory();
    Set2 set;
    for (std::size_t round = 0; round < 30; ++round) {
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            i % 5 > round % 5 ? set.remove(boxes[i]) : set.add(boxes[i]);
        }
    }
    EXPECT_EQ(set.size(), 4 * 2500);
    EXPECT_LE(Testing::liveMemory().byteSize - before.byteSize, 100 * 2500);
}

TEST(IndexSet, OfManyBoxesFillsItsNodes) {
    std::vector<Set2::Box> tiles(100, Set2::Box{});
    for (int i = 0; i < 100; ++i) {
        int const apart = i < 50 ? 0 : 1;
        tiles.push_back({{i % 10, i / 10 + apart}, {i % 10 + 1, i / 10 + apart + 1}});
    }
    EXPECT_EQ(Set2(tiles).toString(), " L 1 (0-10) , (0-5) , \n L 1 (0-10) , (6-11) , \n");
    tiles.push_back({{5, 5}, {20, 20}});
    EXPECT_EQ(Set2(tiles).size(), 100 + 225 - 25);
    std::vector<Set2::Box> zigzag;
    for (int i = 0; i < 400; ++i) {
        Set2::Point const corner(i % 2 * 3, 3 * i);
        zigzag.push_back({corner, corner + Set2::Point(2, 2)});
    }
    std::shuffle(zigzag.begin(), zigzag.end(), Random().engine());
    for (std::size_t count = 17; count <= zigzag.size(); ++count) {
        Set2 const set{std::span(zigzag).first(count)};
        ASSERT_EQ(set.size(), 4 * static_cast<int>(count));
        ASSERT_EQ(depthOf(set), std::ceil(std::log2(count) / 2)) << count;
    }
    int place = 0;
    for (auto const& [each, depth] : stored(Set2(zigzag))) {
        EXPECT_NEAR(each.min[1] / 3, place++, 3) << "nodes are neighbourhoods";
    }
}

TEST(IndexSet, OutOfMemoryItStaysSound) {
    auto const universe = Set2::Box::OfSize({48, 48});
    auto const survives = [&](char const* change, Set2 const& before, auto const& act) {
        Set2 after = before;
        act(after);
        bool const adding = before.size() < after.size();
        auto const check = [&](Set2 const& set, bool completed) {
            Modelled<2> sound{set, IndexBitmap<2>(universe)};
            Testing::forEachPoint(universe, [&](Set2::Point const& point) {
                sound.bitmap.set({point, point + Set2::Point(1, 1)}, set.contains(point));
            });
            sound.expectSound();
            EXPECT_TRUE(set.isSubset(adding ? before : after));
            EXPECT_TRUE((adding ? after : before).isSubset(set));
            EXPECT_TRUE(!completed || set == after);
        };
        // A copy has no room to spare.
        Testing::failEverywhere<Testing::AllocationFailure>(
            change, [&] { return Set2(before); }, act, check);
    };
    auto boxes = lattice<2>(16);
    Set2 holes;
    for (auto const& each : boxes) {
        holes.add(each.min);
    }
    for (Set2 set : {Set2(), Set2({10, 10}, universe)}) {
        for (std::size_t i = 0; i < boxes.size(); i += 5) {
            set.add(boxes[i]);
        }
        survives("IndexSet::add", set, [](Set2& changed) { changed.add(Set2::Box{{2, 3}, {45, 44}}); });
        survives("IndexSet::remove", set, [&](Set2& changed) { changed.remove(holes); });
    }
    std::shuffle(boxes.begin(), boxes.end(), Random().engine());
    survives("rebuilding an IndexSet", Set2(boxes[0]), [&](Set2& changed) {
        std::for_each(boxes.begin(), boxes.end(), [&](auto const& each) { changed.add(each); });
    });
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
