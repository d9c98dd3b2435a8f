// What a set of boxes costs as it grows from 100 to 100 000 of them: beside R-trees, packed and grown box by box, in
// three dimensions, and beside a set of intervals in one.

#include "contest.h"

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

constexpr int kSpacing = 16;       // of the cells that the boxes lie in
constexpr int kQuestions = 20000;  // per turn
constexpr int kChanges = 1000;     // per turn

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

    std::string title(std::string const& work) const {
        return std::to_string(N) + "-D, " + std::to_string(boxes.size()) + " boxes: " + work;
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
    char const* name;
    Structure structure;
};

template <class Structure, int N>
Structure grown(std::vector<Box<N>> const& boxes) {
    Structure structure;
    for (Box<N> const& box : boxes) {
        structure.add(box);
    }
    return structure;
}

template <int N, class... Structures>
void askAll(Scene<N> const& scene, Entrant<Structures> const&... entrants) {
    auto const count = [&](auto const& isTrue) {
        return static_cast<std::uint64_t>(std::count_if(scene.questions.begin(), scene.questions.end(), isTrue));
    };
    Contest contains(scene.title("20000 x contains a point"));
    (contains.enter(
         entrants.name,
         [&] { return count([&](auto const& question) { return entrants.structure.contains(question.min); }); }),
     ...);
    contains.run();
    Contest intersects(scene.title("20000 x intersects a box"));
    (intersects.enter(
         entrants.name,
         [&] { return count([&](auto const& question) { return entrants.structure.intersects(question); }); }),
     ...);
    intersects.run();
}

template <int N, class... Structures>
void changeAll(Scene<N> const& scene, Entrant<Structures>&&... entrants) {
    Contest build(scene.title("add one after the other"));
    (build.enter(
         entrants.name,
         [&]() -> std::uint64_t { return grown<Structures>(scene.boxes).contains(scene.boxes.back().min); }),
     ...);
    build.run();
    Contest change(scene.title("1000 x remove, then add again"));
    auto const swap = [&](auto& structure) -> std::uint64_t {
        for (std::size_t i = 0; i < kChanges; ++i) {
            structure.remove(scene.boxes[i % scene.boxes.size()]);
            structure.add(scene.boxes[i % scene.boxes.size()]);
        }
        return structure.contains(scene.boxes.front().min);
    };
    (change.enter(entrants.name, [&] { return swap(entrants.structure); }), ...);
    change.run();
}

/// What no other structure here does.
void askOurs(Scene<3> const& scene, IndexSet<3, int> const& set) {
    auto const alone = [&](char const* work, std::function<std::uint64_t()> const& run) {
        Contest contest(scene.title(work));
        contest.enter("IndexSet", run);
        contest.run();
    };
    alone("20000 x isSubset of a box", [&] {
        return static_cast<std::uint64_t>(std::count_if(
            scene.questions.begin(), scene.questions.end(), [&](auto const& box) { return set.isSubset(box); }));
    });
    alone("20000 x intersection with a box", [&] {
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
    alone("union with itself moved by 2", [&] {
        IndexSet<3, int> both(set);
        both.add(moved);
        return static_cast<std::uint64_t>(both.size());
    });
    alone("difference from itself moved by 2", [&] {
        IndexSet<3, int> rest(set);
        rest.remove(moved);
        return static_cast<std::uint64_t>(rest.size());
    });
    alone("intersection with itself moved by 2", [&] {
        return static_cast<std::uint64_t>(set.intersection(moved).size());
    });
    alone("equal to itself built at once", [&, again = IndexSet<3, int>(scene.boxes)] { return set == again; });
    alone("iteration", [&] {
        auto const boxes = set.boxes();
        return static_cast<std::uint64_t>(std::distance(boxes.begin(), boxes.end()));
    });
}

void compareWithTrees(int count) {
    using Quadratic = RTree<Index::quadratic<16>>;
    using RStar = RTree<Index::rstar<16>>;
    Scene<3> const scene(count);
    std::vector<Quadratic::Value> values;
    std::transform(scene.boxes.begin(), scene.boxes.end(), std::back_inserter(values), Quadratic::value);
    askAll<3>(
        scene, Entrant<OurSet<3>>{"IndexSet, grown", grown<OurSet<3>>(scene.boxes)},
        Entrant<OurSet<3>>{"IndexSet, built at once", {IndexSet<3, int>(scene.boxes)}},
        Entrant<RStar>{"R*-tree, grown", grown<RStar>(scene.boxes)},
        Entrant<Quadratic>{"R-tree with quadratic splits, grown", grown<Quadratic>(scene.boxes)},
        Entrant<Quadratic>{"R-tree, packed", {decltype(Quadratic::tree)(values)}});
    changeAll<3>(
        scene, Entrant<OurSet<3>>{"IndexSet", grown<OurSet<3>>(scene.boxes)},
        Entrant<RStar>{"R*-tree", grown<RStar>(scene.boxes)},
        Entrant<Quadratic>{"R-tree with quadratic splits", grown<Quadratic>(scene.boxes)});
    Contest atOnce(scene.title("build at once"));
    atOnce.enter("IndexSet", [&] { return IndexSet<3, int>(scene.boxes).isEmpty(); });
    atOnce.enter("R-tree, packed", [&] { return decltype(Quadratic::tree)(values).empty(); });
    atOnce.run();
    askOurs(scene, grown<OurSet<3>>(scene.boxes).set);
}

void compareWithIntervals(int count) {
    Scene<1> const scene(count);
    Entrant<OurSet<1>> ours{"IndexSet", grown<OurSet<1>>(scene.boxes)};
    Entrant<Intervals> intervals{"boost::icl::interval_set", grown<Intervals>(scene.boxes)};
    askAll<1>(scene, ours, intervals);
    changeAll<1>(scene, std::move(ours), std::move(intervals));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    for (int const count : {100, 1000, 10000, 100000}) {
        Quorvel::Dravik::Adt::Benchmarks::compareWithTrees(count);
        Quorvel::Dravik::Adt::Benchmarks::compareWithIntervals(count);
    }
}
