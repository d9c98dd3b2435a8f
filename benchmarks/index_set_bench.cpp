// SPDX-License-Identifier: Apache-2.0
// What a set of boxes costs as it grows from 100 to 100 000 of them: beside R-trees, packed and grown box by box, in
// three dimensions, and beside a set of intervals in one.

#include "report.h"

#include "dravik/adt/core/index_set.h"

#include <boost/geometry.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <boost/icl/interval_set.hpp>
#include <boost/iterator/function_output_iterator.hpp>

#include <cmath>
#include <numeric>
#include <random>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

namespace Index = boost::geometry::index;

constexpr int kCounts[] = {100, 1000, 10000, 100000};  // of boxes
constexpr int kSpacing = 16;                           // of the cells that the boxes lie in
constexpr int kQuestions = 20000;                      // per call
constexpr int kChanges = 1000;                         // per call

template <int N>
using Box = OpenEndedRange<N, int>;

/// Disjoint boxes in random order: a quarter of the cells of a cube have one.
template <int N>
class Scene {
  public:
    explicit Scene(int count) : random_(static_cast<unsigned>(count)) {
        int const side = static_cast<int>(std::ceil(std::pow(4.0 * count, 1.0 / N)));
        std::vector<int> places(static_cast<std::size_t>(std::lround(std::pow(side, N))));
        std::iota(places.begin(), places.end(), 0);
        std::shuffle(places.begin(), places.end(), random_);
        places.resize(static_cast<std::size_t>(count));
        for (int place : places) {
            Box<N> box;
            for (int axis = 0; axis < N; ++axis, place /= side) {
                box.min[axis] = place % side * kSpacing + between(0, 5);
                box.max[axis] = box.min[axis] + between(1, 9);
            }
            boxes.push_back(box);
        }
        for (int i = 0; i < kQuestions; ++i) {
            Box<N> const& near = boxes[static_cast<std::size_t>(between(0, count - 1))];
            Box<N> question;
            for (int axis = 0; axis < N; ++axis) {
                bool const anywhere = i % 2 == 0;
                question.min[axis] =
                    anywhere ? between(0, side * kSpacing) : between(near.min[axis], near.max[axis] - 1);
                question.max[axis] = question.min[axis] + between(1, kSpacing);
            }
            questions.push_back(question);
        }
    }

    int count() const { return static_cast<int>(boxes.size()); }

    Contest contest(std::string const& work) const {
        return Contest(std::to_string(count()) + (N == 1 ? " intervals, " : " boxes, ") + work);
    }

    std::vector<Box<N>> boxes;
    std::vector<Box<N>> questions;  // half of them start in a box

  private:
    int between(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    std::mt19937 random_;
};

/// What the contests ask of each structure.
template <int N>
struct OurSet {
    IndexSet<N, int> set;

    void add(Box<N> const& box) { set.add(box); }
    void remove(Box<N> const& box) { set.remove(box); }
    bool contains(FixedVector<N, int> const& point) const { return set.contains(point); }
    bool intersects(Box<N> const& box) const { return set.intersects(box); }
};

template <class Parameters>
struct RTree {
    using Point = boost::geometry::model::point<int, 3, boost::geometry::cs::cartesian>;
    using Value = boost::geometry::model::box<Point>;

    static Point point(FixedVector<3, int> const& at) { return {at.data()[0], at.data()[1], at.data()[2]}; }
    // Its boxes are closed.
    static Value value(Box<3> const& box) { return {point(box.min), point(box.max - FixedVector<3, int>(1, 1, 1))}; }

    void add(Box<3> const& box) { tree.insert(value(box)); }
    void remove(Box<3> const& box) { tree.remove(value(box)); }
    bool contains(FixedVector<3, int> const& at) const {
        bool found = false;
        tree.query(
            Index::intersects(point(at)), boost::make_function_output_iterator([&](Value const&) { found = true; }));
        return found;
    }
    bool intersects(Box<3> const& box) const { return tree.qbegin(Index::intersects(value(box))) != tree.qend(); }

    Index::rtree<Value, Parameters> tree;
};

struct Intervals {
    using Interval = boost::icl::interval<int>::type;
    boost::icl::interval_set<int> set;

    static Interval value(Box<1> const& box) { return Interval(box.min.data()[0], box.max.data()[0]); }

    void add(Box<1> const& box) { set.add(value(box)); }
    void remove(Box<1> const& box) { set.subtract(value(box)); }
    bool contains(FixedVector<1, int> const& at) const { return boost::icl::contains(set, at.data()[0]); }
    bool intersects(Box<1> const& box) const { return boost::icl::intersects(set, value(box)); }
};

template <class Structure>
struct Entrant {
    std::string name;
    Structure structure;
};

/// What every operation costs as the set grows. Printed as a table when it goes.
class Growth {
  public:
    explicit Growth(char const* subject) : subject_(subject) {}
    Growth(Growth const&) = delete;
    Growth& operator=(Growth const&) = delete;
    ~Growth() {
        std::printf("## %s\n\nNanoseconds per box, question or change.\n\n| boxes in the set |", subject_);
        for (int const count : kCounts) {
            std::printf(" %d |", count);
        }
        std::printf("\n|---|---|---|---|---|\n");
        for (auto const& [operation, prices] : rows_) {
            std::printf("| %s |", operation.c_str());
            for (double const price : prices) {
                std::printf(price < 10 ? " %.1f |" : " %.0f |", price);
            }
            std::printf("\n");
        }
        std::printf("\n");
    }

    /// The next price, in the order of kCounts, of the operation that the contest's title says after its comma.
    void note(Contest const& contest, std::string const& entry, int parts) {
        std::string const operation = contest.title().substr(contest.title().find(',') + 2);
        auto row = std::find_if(rows_.begin(), rows_.end(), [&](auto const& each) { return each.first == operation; });
        if (row == rows_.end()) {
            row = rows_.insert(row, {operation, {}});
        }
        row->second.push_back(contest.nanoseconds(entry).median / parts);
    }

  private:
    char const* subject_;
    std::vector<std::pair<std::string, std::vector<double>>> rows_;
};

template <class Structure, int N>
Structure grown(std::vector<Box<N>> const& boxes) {
    Structure structure;
    for (Box<N> const& box : boxes) {
        structure.add(box);
    }
    return structure;
}

/// Whether points lie in the entrants and boxes meet them; `tell(contest)` takes the figures.
template <int N, class Tell, class... Structures>
void askAll(Scene<N> const& scene, Tell const& tell, Entrant<Structures> const&... entrants) {
    auto const count = [&](auto const& isTrue) {
        return static_cast<std::uint64_t>(std::count_if(scene.questions.begin(), scene.questions.end(), isTrue));
    };
    Contest contains = scene.contest("contains a point");
    (contains.enter(
         entrants.name,
         [&] { return count([&](auto const& question) { return entrants.structure.contains(question.min); }); }),
     ...);
    contains.run();
    tell(contains);
    Contest intersects = scene.contest("intersects a box");
    (intersects.enter(
         entrants.name,
         [&] { return count([&](auto const& question) { return entrants.structure.intersects(question); }); }),
     ...);
    intersects.run();
    tell(intersects);
}

template <int N, class... Structures>
Contest addAll(Scene<N> const& scene, Entrant<Structures> const&... entrants) {
    Contest contest = scene.contest("add one after the other");
    (contest.enter(
         entrants.name,
         [&]() -> std::uint64_t { return grown<Structures>(scene.boxes).contains(scene.boxes.back().min); }),
     ...);
    contest.run();
    return contest;
}

template <int N, class... Structures>
Contest changeAll(Scene<N> const& scene, Entrant<Structures>&... entrants) {
    Contest contest = scene.contest("remove, then add again");
    auto const swap = [&](auto& structure) -> std::uint64_t {
        for (std::size_t i = 0; i < kChanges; ++i) {
            structure.remove(scene.boxes[i % scene.boxes.size()]);
            structure.add(scene.boxes[i % scene.boxes.size()]);
        }
        return structure.contains(scene.boxes.front().min);
    };
    (contest.enter(entrants.name, [&] { return swap(entrants.structure); }), ...);
    contest.run();
    return contest;
}

/// What no other structure here does.
void askOurs(Scene<3> const& scene, IndexSet<3, int> const& set, Growth& growth) {
    auto const alone = [&](char const* work, int parts, std::function<std::uint64_t()> const& run) {
        Contest contest = scene.contest(work);
        contest.enter("IndexSet", run);
        contest.run();
        growth.note(contest, "IndexSet", parts);
    };
    alone("isSubset of a box", kQuestions, [&] {
        return static_cast<std::uint64_t>(std::count_if(
            scene.questions.begin(), scene.questions.end(), [&](auto const& box) { return set.isSubset(box); }));
    });
    alone("intersection with a box", kQuestions, [&] {
        return std::accumulate(
            scene.questions.begin(), scene.questions.end(), std::uint64_t{0},
            [&](std::uint64_t sum, auto const& box) { return sum + set.intersection(box).boundsSize(); });
    });
    IndexSet<3, int> const moved = [&] {
        IndexSet<3, int> all;
        for (Box<3> const& box : scene.boxes) {
            all.add(Box<3>{box.min + FixedVector<3, int>(2, 2, 2), box.max + FixedVector<3, int>(2, 2, 2)});
        }
        return all;
    }();
    alone("union with itself moved by 2", scene.count(), [&] {
        IndexSet<3, int> both(set);
        both.add(moved);
        return static_cast<std::uint64_t>(both.size());
    });
    alone("difference from itself moved by 2", scene.count(), [&] {
        IndexSet<3, int> rest(set);
        rest.remove(moved);
        return static_cast<std::uint64_t>(rest.size());
    });
    alone("intersection with itself moved by 2", scene.count(), [&] {
        return static_cast<std::uint64_t>(set.intersection(moved).size());
    });
    alone("equal to itself built at once", scene.count(), [&, again = IndexSet<3, int>(scene.boxes)] {
        return set == again;
    });
    alone("iteration", scene.count(), [&] {
        auto const boxes = set.boxes();
        return static_cast<std::uint64_t>(std::distance(boxes.begin(), boxes.end()));
    });
}

constexpr char const* kLevels = "at this size the nodes no longer fit the second-level cache, and a level is a miss; "
                                "the trees beside have up to 16 "
                                "children in a node and so fewer levels than ours, which has 4.";
constexpr char const* kFewNodes =
    "so few boxes are a handful of nodes to a tree with 16 children in a node; ours already has several levels.";

void compareWithTrees(Report& report, Growth& growth, int count) {
    using Quadratic = RTree<Index::quadratic<16>>;
    using RStar = RTree<Index::rstar<16>>;
    std::string const ours = "grown", atOnce = "built at once";
    std::string const rstar = "R*-tree", quadratic = "R-tree with quadratic splits", packed = "packed R-tree";
    Scene<3> const scene(count);
    std::vector<Quadratic::Value> values;
    std::transform(scene.boxes.begin(), scene.boxes.end(), std::back_inserter(values), Quadratic::value);
    Entrant<OurSet<3>> grownSet{ours, grown<OurSet<3>>(scene.boxes)};
    Entrant<RStar> grownStar{rstar, grown<RStar>(scene.boxes)};
    Entrant<Quadratic> grownTree{quadratic, grown<Quadratic>(scene.boxes)};
    askAll(
        scene,
        [&](Contest const& contest) {
            Wanted const wanted{count >= 1000 ? 0.35 : 0, kLevels};
            report.ratioToBest(contest, ours, {rstar, quadratic, packed}, wanted);
            report.ratioToBest(contest, atOnce, {rstar, quadratic, packed}, wanted);
            growth.note(contest, ours, kQuestions);
        },
        grownSet, Entrant<OurSet<3>>{atOnce, {IndexSet<3, int>(scene.boxes)}}, grownStar, grownTree,
        Entrant<Quadratic>{packed, {decltype(Quadratic::tree)(values)}});

    Contest const build = addAll(scene, grownSet, grownStar, grownTree);
    Contest buildAtOnce = scene.contest("build at once");
    buildAtOnce.enter(atOnce, [&] { return IndexSet<3, int>(scene.boxes).isEmpty(); });
    buildAtOnce.enter(packed, [&] { return decltype(Quadratic::tree)(values).empty(); });
    buildAtOnce.run();
    askOurs(scene, grownSet.structure.set, growth);
    Contest const change = changeAll(scene, grownSet, grownStar, grownTree);
    for (std::string const& peer : {rstar, quadratic}) {
        report.ratio(build, ours, peer, {0.8, count < 1000 ? kFewNodes : kLevels});
        report.ratio(change, ours, peer, {1.2, count < 1000 ? kFewNodes : kLevels});
    }
    report.ratio(buildAtOnce, atOnce, packed);
    growth.note(build, ours, count);
    growth.note(buildAtOnce, atOnce, count);
    growth.note(change, ours, kChanges);
}

constexpr char const* kOneForAll =
    "one code for every number of axes: it tests the bounds of four children on each level, and what touches is placed "
    "and balanced as in three dimensions, where interval_set compares single numbers.";

void compareWithIntervals(Report& report, Growth& growth, int count) {
    std::string const ours = "grown", peer = "boost::icl::interval_set";
    Scene<1> const scene(count);
    Entrant<OurSet<1>> set{ours, grown<OurSet<1>>(scene.boxes)};
    Entrant<Intervals> intervals{peer, grown<Intervals>(scene.boxes)};
    askAll(
        scene,
        [&](Contest const& contest) {
            report.ratio(contest, ours, peer, {count >= 10000 ? 0.5 : 0, kOneForAll});
            growth.note(contest, ours, kQuestions);
        },
        set, intervals);
    Contest const build = addAll(scene, set, intervals);
    Contest const change = changeAll(scene, set, intervals);
    report.ratio(build, ours, peer, {1.5, kOneForAll});
    report.ratio(change, ours, peer);
    growth.note(build, ours, count);
    growth.note(change, ours, kChanges);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    {
        Growth growth("Index sets in three dimensions: growth");
        Report report(
            "Index sets in three dimensions", "Disjoint boxes in random order, beside Boost.Geometry's trees.");
        for (int const count : kCounts) {
            compareWithTrees(report, growth, count);
        }
    }
    Growth growth("Index sets in one dimension: growth");
    Report report("Index sets in one dimension", "Disjoint intervals in random order.");
    for (int const count : kCounts) {
        compareWithIntervals(report, growth, count);
    }
}
