// SPDX-License-Identifier: Apache-2.0
// How costs grow: regions over their samples, look-ups over the blocks kept, requests over the depth of a chain, and
// whole reads over threads and processes.

#include "report.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/core/index_set.h"
#include "dravik/adt/core/shared_array.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using namespace BulkView;
using Filters::CacheFilter;
using Box = OpenEndedRange<4, int>;
using Index = FixedVector<4, int>;
using Accessor = std::unique_ptr<IBufferAccessor>;

constexpr int kLookUps = 1 << 14;

/// The title of a row: the series and where along its axis it is.
std::string row(char const* series, std::int64_t size) {
    return std::string(series) + ": " + std::to_string(size);
}

Accessor overMemory(SharedArray<4> const& array) {
    return std::make_unique<Accessors::MemoryAccessor>(array);
}

/// Regions of bytes, a little less than what the memory has along each axis, so that rows do not lie end to end.
void growRegions(Report& report) {
    for (int const side : {10, 32, 100, 316, 1000}) {
        auto const memory = SharedArray<4>::Make<char>(Box::OfSize({side, side, side + 8, 1}));
        auto const accessor = overMemory(memory);
        std::vector<char> read(static_cast<std::size_t>(side) * static_cast<std::size_t>(side * side));
        ArrayRef<4> const array(
            Box::OfSize({side, side, side, 1}), {side * side, side, 1, 0}, read.data(), 0, typeid(char), 8);
        Contest contest(row("a region, per 1000 samples, of samples", static_cast<std::int64_t>(read.size())));
        contest.enter("", [&] {
            readRegion(*accessor, ExtentK<4, int>(array.range()), array);
            return keep(read.data()), std::uint64_t{0};
        });
        contest.run();
        report.time(contest, "", static_cast<int>(read.size() / 1000));
    }
}

/// Blocks of one sample along axis 0, as a store and as an accessor that keeps one handle's worth for each.
class Samples final : public IBrickStore {
  public:
    explicit Samples(int count) : count_(count) {}
    Index size() const override { return {count_, 4, 4, 1}; }
    AccessTraits traits() const override {
        AccessTraits traits;
        traits.naturalBlock = {1, 4, 4, 1};
        traits.sampleType = &typeid(char);
        traits.bitSize = 8;
        traits.concurrency = AccessTraits::Concurrency::PerClone;
        return traits;
    }
    void read(Box const& box, void* samples) const override {
        std::fill_n(static_cast<char*>(samples), box.pointCount(), static_cast<char>(box.min[0]));
    }

  private:
    int count_;
};

void growLookUps(Report& report, std::string const& title, int count, IBufferAccessor& chain) {
    std::mt19937 random(5);
    std::vector<Index> positions;
    for (int number = 0; number < kLookUps; ++number) {
        positions.emplace_back(static_cast<int>(random() % static_cast<unsigned>(count)), 1, 2, 0);
    }
    BufferHandle handle;
    for (int block = 0; block < count; ++block) {
        chain.getBuffer({block, 0, 0, 0}, AdtEnums::Read, handle);
    }
    Contest contest(title);
    contest.enter("", [&] {
        std::uint64_t sum = 0;
        for (Index const& position : positions) {
            chain.getBuffer(position, AdtEnums::Read, handle);
            sum += static_cast<unsigned char>(*static_cast<char const*>(handle.buffer()));
        }
        return sum;
    });
    contest.run();
    report.time(contest, "", kLookUps);
}

Accessor overStore(int count) {
    return StoreAccessor::Make(std::make_shared<Samples>(count), std::make_shared<BrickPool>(std::int64_t{1} << 32));
}

void growBlocks(Report& report) {
    for (int const count : {100, 1000, 10000, 100000, 1000000}) {
        growLookUps(report, row("a brick of the pool, of bricks", count), count, *overStore(count));
    }
    for (int const count : {100, 1000, 10000, 100000, 1000000}) {
        auto const cache =
            CacheFilter::Apply(overStore(count), CacheFilter::kNever, CacheFilter::kNever, CacheFilter::kNever);
        growLookUps(report, row("a block of the cache, of blocks", count), count, *cache);
    }
}

void growIndexSets(Report& report) {
    for (int const count : {100, 1000, 10000, 100000, 1000000}) {
        // A quarter of the cells of a grid, so that boxes do not touch.
        int const side = static_cast<int>(std::ceil(std::cbrt(4.0 * count)));
        std::mt19937 random(3);
        auto const any = [&] { return static_cast<int>(random() % static_cast<unsigned>(side)); };
        std::vector<OpenEndedRange<3, int>> boxes;
        for (int number = 0; number < count; ++number) {
            FixedVector<3, int> const corner(10 * any(), 10 * any(), 10 * any());
            boxes.push_back({corner, corner + FixedVector<3, int>(7, 7, 7)});
        }
        IndexSet<3, int> const set(boxes);
        std::vector<FixedVector<3, int>> points;
        for (int number = 0; number < kLookUps; ++number) {
            points.emplace_back(10 * any() + 3, 10 * any() + 3, 10 * any() + 3);
        }
        Contest contest(row("a point in an index set, of boxes", count));
        contest.enter("", [&] {
            return static_cast<std::uint64_t>(
                std::count_if(points.begin(), points.end(), [&](auto const& point) { return set.contains(point); }));
        });
        contest.run();
        report.time(contest, "", kLookUps);
    }
}

void growChains(Report& report) {
    auto const memory = SharedArray<4>::Make<char>(Box::OfSize({64, 4, 4, 1}));
    for (int const depth : {1, 2, 4, 8}) {
        Accessor chain = overMemory(memory);
        for (int filter = 0; filter < depth; ++filter) {
            chain = Filters::ProxyFilter::MakeProxy(std::move(chain), nullptr);
        }
        growLookUps(report, row("a request through filters, of filters", depth), 64, *chain);
    }
}

double secondsOf(std::function<void()> const& work) {
    auto const start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Reads 2^24 samples of 8 bytes several times, so that the memory's first use counts little, cut for so many workers.
void readAll(int workers) {
    constexpr int kSide = 256, kReads = 12;
    auto const memory = SharedArray<4>::Make<double>(Box::OfSize({kSide, kSide, kSide, 1}));
    auto const accessor = overMemory(memory);
    std::vector<double> read(std::size_t{kSide} * kSide * kSide);
    std::vector<std::jthread> helpers;
    TransferOptions options;
    options.workers = workers;
    options.executor = [&](std::function<void()> task) { helpers.emplace_back(std::move(task)); };
    ArrayRef<4> const array(
        Box::OfSize({kSide, kSide, kSide, 1}), {1, kSide, kSide * kSide, 0}, reinterpret_cast<char*>(read.data()), 0,
        typeid(double), 64);
    for (int number = 0; number < kReads; ++number) {
        readRegion(*accessor, ExtentK<4, int>(array.range()), array, options);
    }
}

/// Seconds by the clock, divided by the processes, while so many of them read.
double secondsInProcesses(int processes) {
    return secondsOf([&] {
               std::vector<pid_t> children;
               for (int number = 1; number < processes; ++number) {
                   children.push_back(fork());
                   if (children.back() == 0) {
                       readAll(1);
                       _exit(0);
                   }
               }
               readAll(1);
               for (pid_t const child : children) {
                   waitpid(child, nullptr, 0);
               }
           }) /
           processes;
}

double medianOf(std::function<double()> const& figure) {
    std::vector<double> figures(7);
    std::generate(figures.begin(), figures.end(), figure);
    std::nth_element(figures.begin(), figures.begin() + 3, figures.end());
    return figures[3];
}

void growWorkers(Report& report) {
    double const alone = medianOf([] { return secondsOf([] { readAll(1); }); });
    report.value("a transposed read by threads, of threads: 1", "one alone", 1);
    report.value(
        "a transposed read by threads, of threads: 2", "one alone",
        medianOf([] { return secondsOf([] { readAll(2); }); }) / alone, {0.8});
    report.value("a transposed read each by processes, of processes: 1", "one alone", 1);
    report.value(
        "a transposed read each by processes, of processes: 2", "one alone",
        medianOf([] { return secondsInProcesses(2); }) / alone, {0.8});
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("Growth", "Cost per thousand samples, look-up or request, as there are more of them.");
    growWorkers(report);  // while the process has one thread
    growRegions(report);
    growBlocks(report);
    growIndexSets(report);
    growChains(report);
}
