// SPDX-License-Identifier: Apache-2.0
// What a request costs that the cache serves: a sweep that repeats, beside an array that knows the order, and requests
// at random, beside a scan over arrays of bounds and a spatial index.

#include "report.h"

#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/detail/cache_index.h"

#include <boost/geometry.hpp>
#include <boost/geometry/geometries/box.hpp>
#include <boost/geometry/geometries/point.hpp>
#include <boost/geometry/index/rtree.hpp>

#include <atomic>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using BulkView::AdtEnums;
using BulkView::BufferHandle;
using BulkView::IBufferAccessor;
using BulkView::Filters::CacheFilter;
using BulkView::Filters::Detail::CacheIndex;
using Box = OpenEndedRange<4, int>;
using Position = FixedVector<4, int>;

constexpr int kSide = 32;         // samples of a brick along each axis
constexpr int kRequests = 20000;  // per call

/// The bricks of a volume of `count` bricks, row after row; uneven ones reach one sample into the next.
std::vector<Box> bricks(int count, bool uneven) {
    int side = 1;
    while (side * side * side < count) {
        ++side;
    }
    std::vector<Box> boxes;
    for (int number = 0; number < count; ++number) {
        Position const low(number / (side * side) * kSide, number / side % side * kSide, number % side * kSide, 0);
        int const extra = uneven && number % 2 == 0 ? 1 : 0;
        boxes.push_back({low, low + Position(kSide, kSide, kSide + extra, 1)});
    }
    return boxes;
}

CacheIndex indexOf(std::vector<Box> const& boxes) {
    CacheIndex index(3, {CacheFilter::kNever, CacheFilter::kNever, CacheFilter::kNever});
    index.reserve(static_cast<int>(boxes.size()));
    for (Box const& box : boxes) {
        index.store(box, AdtEnums::Read, /*unusable=*/false);
    }
    return index;
}

/// One request after the other, each a call of its own as through an accessor.
template <class Serve>
std::uint64_t serveAll(std::vector<Position> const& positions, Serve serve) {
    std::uint64_t sum = 0;
    auto at = positions.begin();
    for (int request = 0; request < kRequests; ++request) {
        sum += static_cast<std::uint64_t>(serve(*at));
        at = ++at == positions.end() ? positions.begin() : at;
    }
    return sum;
}

/// What is fastest while requests come in the one order it knows: tests the next block and no other.
class KnownOrder {
  public:
    explicit KnownOrder(std::vector<Box> boxes) : boxes_(std::move(boxes)) {}

    void restart() { next_ = 0; }
    [[gnu::noinline]] int lookUp(Position const& position) {
        std::size_t const at = next_;
        next_ = at + 1 == boxes_.size() ? 0 : at + 1;
        return boxes_[at].contains(position) ? static_cast<int>(at) : -1;
    }

  private:
    std::vector<Box> boxes_;
    std::size_t next_ = 0;
};

[[gnu::noinline]] int lookUp(CacheIndex& index, Position const& position) {
    return index.lookUp<3>(position, AdtEnums::Read);
}

void sweepOverBoxes(Report& report, int count) {
    auto const boxes = bricks(count, /*uneven=*/false);
    std::vector<Position> positions;
    for (Box const& box : boxes) {
        positions.push_back(box.min + Position(3, 4, 5, 0));
    }
    KnownOrder known(boxes);
    CacheIndex index = indexOf(boxes);
    Contest contest(std::to_string(count) + " blocks swept again and again");
    contest.enter("array that knows the order", [&] {
        known.restart();
        return serveAll(positions, [&](Position const& p) { return known.lookUp(p); });
    });
    contest.enter("look-up", [&] { return serveAll(positions, [&](Position const& p) { return lookUp(index, p); }); });
    contest.run();
    report.ratio(
        contest, "look-up", "array that knows the order",
        {1.25, "about 1.8 ns beside 1.5 ns: the prediction is tested, and then renewed."});
}

/// Lends every brick with an owner of its own.
class Bricks : public IBufferAccessor {
  public:
    explicit Bricks(Position const& size) : size_(size) {}
    Position getSize() override { return size_; }
    void setClient(IClient*) override {}
    void setHint(HintType, Box const&, float) override {}
    void getBuffer(Position p, AdtEnums::Access access, BufferHandle& handle) override {
        Position const low(p[0] / kSide * kSide, p[1] / kSide * kSide, p[2] / kSide * kSide, 0);
        handle.setOwner(new NoLock);
        handle.update(&memory_, {{low, low + Position(kSide, kSide, kSide, 1)}, {}, lent_++}, access);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return nullptr; }
    void dispose(bool) override {}

  private:
    struct NoLock : BufferHandle::Owner {
        void lock() override {}
        void unlock() override {}
    };

    Position size_;
    int lent_ = 0;
    char memory_ = 0;
};

/// As KnownOrder, with a copy of the block's handle.
class KnownHandles {
  public:
    void add(BufferHandle const& handle) { handles_.push_back(handle); }
    void restart() { next_ = 0; }
    [[gnu::noinline]] void getBuffer(Position const& position, BufferHandle& handle) {
        std::size_t const at = next_;
        next_ = at + 1 == handles_.size() ? 0 : at + 1;
        if (handles_[at].contains(position)) {
            handle = handles_[at];
        }
    }

  private:
    std::vector<BufferHandle> handles_;
    std::size_t next_ = 0;
};

void sweepThroughTheFilter(Report& report, int count) {
    auto const boxes = bricks(count, /*uneven=*/false);
    auto const cache = CacheFilter::Apply(
        std::make_unique<Bricks>(boxes.back().max), CacheFilter::kNever, CacheFilter::kNever, CacheFilter::kNever);
    KnownHandles known;
    std::vector<Position> positions;
    BufferHandle handle;
    for (Box const& box : boxes) {
        positions.push_back(box.min + Position(3, 4, 5, 0));
        cache->getBuffer(positions.back(), AdtEnums::Read, handle);
        known.add(handle);
    }
    Contest contest(std::to_string(count) + " blocks swept again and again");
    KnownOrder order(boxes);
    contest.enter("array that knows the order, no lock and no handle", [&] {
        order.restart();
        return serveAll(positions, [&](Position const& p) { return order.lookUp(p); });
    });
    contest.enter("array of handles that knows the order, no lock", [&] {
        known.restart();
        return serveAll(positions, [&](Position const& p) {
            known.getBuffer(p, handle);
            return handle.info().offset;
        });
    });
    contest.enter("through the filter", [&] {
        return serveAll(positions, [&](Position const& p) {
            cache->getBuffer(p, AdtEnums::Read, handle);
            return handle.info().offset;
        });
    });
    contest.run();
    report.ratio(contest, "through the filter", "array of handles that knows the order, no lock", {3.5});
    report.ratio(contest, "through the filter", "array that knows the order, no lock and no handle");
    report.time(contest, "through the filter", kRequests, {18});
}

/// The same, at random: the look-up alone costs most of it.
void requestAtRandomThroughTheFilter(Report& report, int count) {
    auto const boxes = bricks(count, /*uneven=*/false);
    auto const cache = CacheFilter::Apply(
        std::make_unique<Bricks>(boxes.back().max), CacheFilter::kNever, CacheFilter::kNever, CacheFilter::kNever);
    CacheIndex index = indexOf(boxes);
    std::mt19937 random(7);
    std::vector<Position> positions;
    BufferHandle handle;
    for (Box const& box : boxes) {
        cache->getBuffer(box.min, AdtEnums::Read, handle);
    }
    for (int i = 0; i < kRequests; ++i) {
        positions.push_back(boxes[random() % boxes.size()].min + Position(3, 4, 5, 0));
    }
    Contest contest(std::to_string(count) + " blocks, requests at random");
    contest.enter("look-up, no lock and no handle", [&] {
        return serveAll(positions, [&](Position const& p) { return lookUp(index, p); });
    });
    contest.enter("through the filter", [&] {
        return serveAll(positions, [&](Position const& p) {
            cache->getBuffer(p, AdtEnums::Read, handle);
            return handle.info().offset;
        });
    });
    contest.run();
    report.ratio(contest, "through the filter", "look-up, no lock and no handle");
    report.time(
        contest, "through the filter", kRequests,
        {25,
         "half of it is the look-up, which misses the nearest memory for the cell and for the box; the rest is what a "
         "sweep costs through the filter, the lock and the counted owner above all."});
}

/// One array per bound, looked through from the first block on.
class BoundsScan {
  public:
    explicit BoundsScan(std::vector<Box> const& boxes) {
        for (Box const& box : boxes) {
            for (int axis = 0; axis < 3; ++axis) {
                min_[axis].push_back(box.min[axis]);
                max_[axis].push_back(box.max[axis]);
            }
        }
    }

    [[gnu::noinline]] int lookUp(Position const& p) const {
        for (std::size_t i = 0; i < min_[0].size(); ++i) {
            if (isIn(0, i, p) && isIn(1, i, p) && isIn(2, i, p)) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }

  private:
    bool isIn(int axis, std::size_t i, Position const& p) const {
        return min_[axis][i] <= p.data()[axis] && p.data()[axis] < max_[axis][i];
    }

    std::vector<int> min_[3], max_[3];
};

class SpatialIndex {
    using Point = boost::geometry::model::point<int, 3, boost::geometry::cs::cartesian>;
    using Cube = boost::geometry::model::box<Point>;
    using Entry = std::pair<Cube, int>;

  public:
    explicit SpatialIndex(std::vector<Box> const& boxes) {
        std::vector<Entry> entries;
        for (Box const& box : boxes) {
            Position const last = box.max - Position::Filled(1);
            entries.emplace_back(Cube(point(box.min), point(last)), static_cast<int>(entries.size()));
        }
        tree_ = Tree(entries);
    }

    int lookUp(Position const& position) const {
        auto const found = tree_.qbegin(boost::geometry::index::covers(point(position)));
        return found == tree_.qend() ? -1 : found->second;
    }

  private:
    using Tree = boost::geometry::index::rtree<Entry, boost::geometry::index::rstar<8>>;

    static Point point(Position const& p) { return {p[0], p[1], p[2]}; }

    Tree tree_;
};

/// Requests at random in places that one block only holds, so that every way to look serves the same.
void requestAtRandom(Report& report, int count, bool uneven) {
    auto boxes = bricks(count, uneven);
    std::mt19937 random(7);
    std::shuffle(boxes.begin(), boxes.end(), random);
    std::vector<Position> positions;
    for (int i = 0; i < kRequests; ++i) {
        Box const& box = boxes[random() % boxes.size()];
        auto const inside = [&] { return static_cast<int>(1 + random() % (kSide - 2)); };
        positions.push_back(box.min + Position(inside(), inside(), inside(), 0));
    }
    CacheIndex index = indexOf(boxes);
    BoundsScan const scan(boxes);
    SpatialIndex const tree(boxes);
    Contest contest(
        std::to_string(count) + " blocks" + (uneven ? " that overlap" : " of one bricking") + ", requests at random");
    contest.enter("scan over arrays of bounds", [&] {
        return serveAll(positions, [&](Position const& p) { return scan.lookUp(p); });
    });
    contest.enter("look-up", [&] { return serveAll(positions, [&](Position const& p) { return lookUp(index, p); }); });
    contest.enter("boost::geometry rtree", [&] {
        return serveAll(positions, [&](Position const& p) { return tree.lookUp(p); });
    });
    contest.run();
    constexpr int kUnevenFrom = 1000;
    if (count >= kUnevenFrom) {
        report.ratio(contest, "look-up", "scan over arrays of bounds", {0.55});
    }
    report.ratio(contest, "look-up", "boost::geometry rtree");
    report.time(contest, "look-up", kRequests, uneven ? Wanted{} : Wanted{40});
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    // A second thread, since locks and counts are cheaper in a process that has one only.
    std::atomic<bool> isDone = false;
    std::thread other([&] { isDone.wait(false); });
    Report report(
        "Caching",
        "Requests that the cache serves. The look-up alone takes no lock and copies no handle; the filter does.");
    for (int const count : {10, 1000, 10000}) {
        sweepOverBoxes(report, count);
        sweepThroughTheFilter(report, count);
    }
    requestAtRandomThroughTheFilter(report, 1000);
    requestAtRandom(report, 1000, /*uneven=*/true);
    for (int const count : {10, 1000, 10000}) {
        requestAtRandom(report, count, /*uneven=*/false);
    }
    isDone = true;
    isDone.notify_all();
    other.join();
}
