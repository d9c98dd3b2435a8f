// SPDX-License-Identifier: Apache-2.0
// Two index sets under any sequence of operations, against one flag per cell of a small universe. The universe is laid
// at some place of index space with cells of some length, so that coordinates come from everywhere in int.

#include "dravik/adt/core/index_set.h"
#include "dravik/adt/testing/index_bitmap.h"

#include "input.h"

#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

template <int N>
class Script {
  public:
    explicit Script(Input& input) : input_(input) {
        constexpr int kOrigins[] = {0, -7, 1 << 26, -2147483647 - 1};
        constexpr int kLengths[] = {1, 3, 1 << 12, 1 << 25};
        origin_ = kOrigins[input_.between(0, 3)];
        length_ = kLengths[input_.between(0, 3)];
        for (Subject& subject : subjects_) {
            if (input_.between(0, 3) == 0) {
                Point granularity;
                for (int axis = 0; axis < N; ++axis) {
                    granularity[axis] = input_.between(0, 3) * length_;
                }
                subject.set = Set(granularity, placed(anyBox()));
            }
        }
    }

    void run() {
        while (!input_.isEmpty()) {
            bool const isFirst = input_.between(0, 1) == 0;
            step(subjects_[isFirst ? 0 : 1], subjects_[isFirst ? 1 : 0]);
        }
        compare(subjects_[0]);
        compare(subjects_[1]);
    }

  private:
    using Set = IndexSet<N, int>;
    using Box = typename Set::Box;
    using Point = typename Set::Point;
    using Bitmap = Testing::IndexBitmap<N>;

    struct Subject {
        Set set;
        Bitmap bitmap{Box::OfSize(Point::Filled(kSide))};
    };

    // Cells along each axis.
    static constexpr int kSide = N == 1 ? 60 : N == 2 ? 12 : N == 3 ? 6 : 4;

    /// In cells; may be empty or inverted.
    Box anyBox() {
        Box box;
        for (int axis = 0; axis < N; ++axis) {
            box.min[axis] = input_.between(0, kSide);
            box.max[axis] = input_.between(0, 3) == 0 ? input_.between(0, kSide) : std::min(box.min[axis] + 1, kSide);
        }
        return box;
    }

    /// Where the corner of a cell lies.
    Point placed(Point const& cell) const {
        Point point;
        for (int axis = 0; axis < N; ++axis) {
            point[axis] = static_cast<int>(std::int64_t{origin_} + std::int64_t{cell[axis]} * length_);
        }
        return point;
    }
    Box placed(Box const& cells) const { return {placed(cells.min), placed(cells.max)}; }

    /// The points of so many cells, as far as 64 bits go.
    std::int64_t points(std::int64_t cells) const {
        std::int64_t points = cells;
        bool isBeyond = false;
        for (int axis = 0; axis < N; ++axis) {
            isBeyond = __builtin_mul_overflow(points, std::int64_t{length_}, &points) || isBeyond;
        }
        return isBeyond ? std::numeric_limits<std::int64_t>::max() : points;
    }

    void step(Subject& subject, Subject const& other) {
        auto& [set, bitmap] = subject;
        auto const& [otherSet, otherBitmap] = other;
        switch (input_.between(0, 12)) {
        case 0:
        case 1:
        case 2:
            return change(subject, /*add=*/true);
        case 3:
        case 4:
            return change(subject, /*add=*/false);
        case 5:
            set.add(otherSet);
            return bitmap.combine(otherBitmap, [](int here, int there) { return here | there; });
        case 6:
            set.remove(otherSet);
            return bitmap.combine(otherBitmap, [](int here, int there) { return here & ~there; });
        case 7:
            set = set.intersection(otherSet);
            return bitmap.combine(otherBitmap, [](int here, int there) { return here & there; });
        case 8:
            input_.between(0, 1) == 0 ? set.clear() : set.remove(set);
            return bitmap.set(bitmap.universe(), false);
        case 9:
            return rebuild(subject);
        case 10:
            return ask(subject, anyBox());
        case 11:
            return compare(subject);
        default:
            return relate(subject, other);
        }
    }

    void change(Subject& subject, bool add) {
        Box const cells = anyBox();
        add ? subject.set.add(placed(cells)) : subject.set.remove(placed(cells));
        subject.bitmap.set(cells, add);
    }

    void rebuild(Subject& subject) {
        std::vector<Box> boxes(static_cast<std::size_t>(input_.between(0, 40)));
        subject.bitmap.set(subject.bitmap.universe(), false);
        for (Box& box : boxes) {
            box = anyBox();
            subject.bitmap.set(box, true);
            box = placed(box);
        }
        subject.set = Set(boxes);
    }

    void ask(Subject const& subject, Box const& cells) const {
        auto const& [set, bitmap] = subject;
        std::int64_t const inside = cells.isEmpty() ? 0 : bitmap.countIn(cells);
        require(set.isSubset(placed(cells)) == (inside == cells.pointCount()), "isSubset of a box");
        require(set.intersects(placed(cells)) == (inside > 0), "intersects a box");
        Set const common = set.intersection(placed(cells));
        require(common.size() == points(inside), "intersection with a box");
        require(set.isSubset(common) && Set(placed(cells)).isSubset(common), "intersection is a part of both");
    }

    void compare(Subject const& subject) const {
        Set const& set = subject.set;
        Bitmap const& bitmap = subject.bitmap;
        require(set.size() == points(bitmap.size()), "size");
        Box const bounds = bitmap.bounds();
        require(set.isEmpty() ? bounds.isEmpty() : set.bounds() == placed(bounds), "bounds");
        Set seen;
        for (Box const& box : set.boxes()) {
            require(!box.isEmpty() && !seen.intersects(box), "stored boxes are disjoint");
            seen.add(box);
        }
        Testing::forEachPoint(bitmap.universe(), [&](Point const& cell) {
            Point const last = placed(cell + Point::Filled(1)) - Point::Filled(1);
            require(set.contains(placed(cell)) == bitmap.contains(cell), "contains the first point of a cell");
            require(set.contains(last) == bitmap.contains(cell), "contains the last point of a cell");
            require(set.getAnyRange(last).contains(last) == bitmap.contains(cell), "getAnyRange of a point");
        });
    }

    static void relate(Subject const& left, Subject const& right) {
        Bitmap both = left.bitmap;
        both.combine(right.bitmap, [](int here, int there) { return here & there; });
        require(left.set.intersects(right.set) == (both.size() > 0), "intersects a set");
        require(left.set.isSubset(right.set) == (both == right.bitmap), "isSubset of a set");
        bool const equal = left.bitmap == right.bitmap && left.set.bounds() == right.set.bounds();
        require((left.set == right.set) == equal, "equality");
    }

    Input& input_;
    int origin_ = 0;
    int length_ = 1;
    Subject subjects_[2];
};

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    switch (input.between(1, 4)) {
    case 1:
        Script<1>(input).run();
        break;
    case 2:
        Script<2>(input).run();
        break;
    case 3:
        Script<3>(input).run();
        break;
    default:
        Script<4>(input).run();
        break;
    }
    return 0;
}
