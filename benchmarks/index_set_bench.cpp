// What a set of boxes costs as it grows: beside R-trees, packed and grown box by box, in three dimensions, and beside a
// set of intervals in one.

#include "contest.h"

#include "dravik/adt/core/index_set.h"

#include <boost/geometry.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <boost/icl/interval_set.hpp>
#include <boost/iterator/function_output_iterator.hpp>

#include <random>
#include <span>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

namespace Geometry = boost::geometry;

constexpr int kSpacing = 16;       // distance of the cells that the boxes lie in
constexpr int kQuestions = 20000;  // per turn
constexpr int kMaxChanges = 1000;  // per turn

template <int N>
using Box = OpenEndedRange<N, int>;

/// Disjoint boxes in random order, a quarter of the cells of a cube full of them.
template <int N>
class Scene {
  public:
    explicit Scene(int count) : random_(count) {
        int const side = static_cast<int>(std::ceil(std::pow(4.0 * count, 1.0 / N)));
        int cells = 1;
        for (int axis = 0; axis < N; ++axis) {
            cells *= side;
        }
        std::vector<int> places(static_cast<std::size_t>(cells));
        std::iota(places.begin(), places.end(), 0);
        std::shuffle(places.begin(), places.end(), random_);
        end_ = side * kSpacing;
        for (int i = 0; i < count; ++i) {
            Box<N> box;
            for (int axis = 0, place = places[static_cast<std::size_t>(i)]; axis < N; ++axis, place /= side) {
                box.min[axis] = place % side * kSpacing + between(0, 5);
                box.max[axis] = box.min[axis] + between(1, 9);
            }
            boxes.push_back(box);
        }
        for (int i = 0; i < kQuestions; ++i) {
            Box<N> const& near = boxes[static_cast<std::size_t>(between(0, count - 1))];
            Box<N> question;
            for (int axis = 0; axis < N; ++axis) {
                bool const apart = i % 2 == 0;
                question.min[axis] = apart ? between(0, end_) : between(near.min[axis], near.max[axis] - 1);
                question.max[axis] = question.min[axis] + between(1, kSpacing);
            }
            questions.push_back(question);
        }
    }

    std::vector<Box<N>> boxes;
    std::vector<Box<N>> questions;  // half of them start in a box

  private:
    int between(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    std::mt19937 random_;
    int end_ = 0;
};

/// How each structure does the work of the contests.
template <int N>
struct OurSet {
    static constexpr char const* kName = "IndexSet";
    IndexSet<N, int> set;

    void add(Box<N> const& box) { set.add(box); }
    void remove(Box<N> const& box) { set.remove(box); }
    bool contains(FixedVector<N, int> const& point) const { return set.contains(point); }
    bool intersects(Box<N> const& box) const { return set.intersects(box); }
};

template <class Parameters>
struct RTree {
    using Point = Geometry::model::point<int, 3, Geometry::cs::cartesian>;
    using Value = Geometry::model::box<Point>;
    Geometry::index::rtree<Value, Parameters> tree;

    static Point point(FixedVector<3, int> const& at) { return {at.data()[0], at.data()[1], at.data()[2]}; }
    // Its boxes are closed.
    static Value value(Box<3> const& box) { return {point(box.min), point(box.max - FixedVector<3, int>::Filled(1))}; }

    void add(Box<3> const& box) { tree.insert(value(box)); }
    void remove(Box<3> const& box) { tree.remove(value(box)); }
    bool contains(FixedVector<3, int> const& at) const {
        bool found = false;
        auto const note = boost::make_function_output_iterator([&](Value const&) { found = true; });
        tree.query(Geometry::index::intersects(point(at)), note);
        return found;
    }
    bool intersects(Box<3> const& box) const {
        return tree.qbegin(Geometry::index::intersects(value(box))) != tree.qend();
    }
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

template <class Structure, int N>
void fill(Structure& structure, std::vector<Box<N>> const& boxes) {
    for (Box<N> const& box : boxes) {
        structure.add(box);
    }
}

template <int N>
std::string title(char const* what, Scene<N> const& scene) {
    return std::to_string(N) + "-D, " + std::to_string(scene.boxes.size()) + " boxes: " + what;
}

/// One contest for each kind of work; the structures come filled.
template <int N, class... Structures>
void compare(Scene<N> const& scene, std::pair<char const*, Structures&>... structures) {
    Contest contains(title("20000 x contains", scene));
    Contest intersects(title("20000 x intersects", scene));
    auto const enter = [&](char const* name, auto& structure) {
        contains.enter(name, [&] {
            return std::count_if(scene.questions.begin(), scene.questions.end(), [&](auto const& question) {
                return structure.contains(question.min);
            });
        });
        intersects.enter(name, [&] {
            return std::count_if(scene.questions.begin(), scene.questions.end(), [&](auto const& question) {
                return structure.intersects(question);
            });
        });
    };
    (enter(structures.first, structures.second), ...);
    contains.run();
    intersects.run();
}

template <int N, class... Structures>
void compareChanges(Scene<N> const& scene, std::pair<char const*, Structures&>... structures) {
    Contest build(title("add one after the other", scene));
    Contest change(title("1000 x remove, then add", scene));
    auto const enter = [&](char const* name, auto& structure) {
        build.enter(name, [&] {
            std::decay_t<decltype(structure)> fresh;
            fill(fresh, scene.boxes);
            return 1;
        });
        change.enter(name, [&] {
            for (std::size_t i = 0; i < kMaxChanges; ++i) {
                structure.remove(scene.boxes[i % scene.boxes.size()]);
                structure.add(scene.boxes[i % scene.boxes.size()]);
            }
            return 1;
        });
    };
    (enter(structures.first, structures.second), ...);
    build.run(scene.boxes.size() > 10000 ? 5 : 15);
    change.run();
}

void compareWithTrees(int count) {
    Scene<3> const scene(count);
    using Grown = RTree<Geometry::index::rstar<16>>;
    using Quadratic = RTree<Geometry::index::quadratic<16>>;
    using Linear = RTree<Geometry::index::linear<16>>;
    OurSet<3> ours;
    OurSet<3> bulk{IndexSet<3, int>(scene.boxes)};
    Grown grown;
    Quadratic quadratic;
    Linear linear;
    fill(ours, scene.boxes);
    fill(grown, scene.boxes);
    fill(quadratic, scene.boxes);
    fill(linear, scene.boxes);
    std::vector<Grown::Value> values;
    std::transform(scene.boxes.begin(), scene.boxes.end(), std::back_inserter(values), Grown::value);
    Quadratic packed{decltype(Quadratic::tree)(values)};
    compare<3>(
        scene, std::pair<char const*, OurSet<3>&>("IndexSet", ours),
        std::pair<char const*, OurSet<3>&>("IndexSet, bulk", bulk), std::pair<char const*, Grown&>("R-tree, R*", grown),
        std::pair<char const*, Quadratic&>("R-tree, quadratic", quadratic),
        std::pair<char const*, Linear&>("R-tree, linear", linear),
        std::pair<char const*, Quadratic&>("R-tree, packed", packed));
    compareChanges<3>(
        scene, std::pair<char const*, OurSet<3>&>("IndexSet", ours),
        std::pair<char const*, Quadratic&>("R-tree, quadratic", quadratic),
        std::pair<char const*, Linear&>("R-tree, linear", linear));
    Contest atOnce(title("build at once", scene));
    atOnce.enter("IndexSet", [&] { return IndexSet<3, int>(scene.boxes).size() > 0; });
    atOnce.enter("R-tree, packed", [&] { return decltype(Quadratic::tree)(values).size() > 0; });
    atOnce.run(7);
}

void compareWithIntervals(int count) {
    Scene<1> const scene(count);
    OurSet<1> ours;
    Intervals intervals;
    fill(ours, scene.boxes);
    fill(intervals, scene.boxes);
    compare<1>(
        scene, std::pair<char const*, OurSet<1>&>("IndexSet", ours),
        std::pair<char const*, Intervals&>("interval_set", intervals));
    compareChanges<1>(
        scene, std::pair<char const*, OurSet<1>&>("IndexSet", ours),
        std::pair<char const*, Intervals&>("interval_set", intervals));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    for (int const count : {100, 1000, 10000, 100000}) {
        Quorvel::Dravik::Adt::Benchmarks::compareWithTrees(count);
        Quorvel::Dravik::Adt::Benchmarks::compareWithIntervals(count);
    }
}
