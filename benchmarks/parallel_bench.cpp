// SPDX-License-Identifier: Apache-2.0
// What a second worker gains where the storage makes its readers wait.

#include "report.h"

#include "dravik/adt/bulkview/regions/for_each_block.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/regions/region_histogram.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using namespace BulkView;
using Clock = std::chrono::steady_clock;
using Box = OpenEndedRange<4, int>;

constexpr int kSide = 128, kBrick = 32;

/// A cube of floats, all of one value, that takes its time for each brick.
class SlowCube final : public IBrickStore {
  public:
    FixedVector<4, int> size() const override { return {kSide, kSide, kSide, 1}; }
    AccessTraits traits() const override {
        AccessTraits traits;
        traits.naturalBlock = {kBrick, kBrick, kBrick, 1};
        traits.sampleType = &typeid(float);
        traits.bitSize = 32;
        traits.concurrency = AccessTraits::Concurrency::PerClone;
        traits.writable = true;
        return traits;
    }
    void read(Box const& box, void* samples) const override {
        pauseFor(box);
        std::fill_n(static_cast<float*>(samples), box.pointCount(), 0.5f);
    }
    void write(Box const& box, void const*) override { pauseFor(box); }

  private:
    // A call may ask for many bricks at once.
    static void pauseFor(Box const& box) {
        std::this_thread::sleep_for(box.pointCount() / (kBrick * kBrick * kBrick) * std::chrono::microseconds(200));
    }
};

TransferOptions workers(int count) {
    static std::vector<std::jthread> helpers;
    TransferOptions options;
    options.workers = count;
    options.executor = [](std::function<void()> task) {
        helpers.clear();  // the one of the call before is done
        helpers.emplace_back(std::move(task));
    };
    return options;
}

double secondsOf(std::function<void(TransferOptions const&)> const& call, int workerCount) {
    auto const options = workers(workerCount);
    auto const start = Clock::now();
    call(options);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The time of two workers beside half of the time of one, by the clock on the wall: waiting costs no processor time.
void compare(Report& report, char const* what, std::function<void(TransferOptions const&)> const& call) {
    constexpr int kRounds = 21;
    std::vector<double> ratios(kRounds);
    for (double& ratio : ratios) {
        double const alone = secondsOf(call, 1);
        ratio = 2 * secondsOf(call, 2) / alone;
    }
    std::nth_element(ratios.begin(), ratios.begin() + kRounds / 2, ratios.end());
    report.value(what, "half of the time of one worker", ratios[kRounds / 2], {1.25});
}

void compareAll() {
    Report report("Workers", "A store of 64 bricks of 32³ floats that waits 200 µs for each; two workers.");
    auto const chain = [] { return StoreAccessor::Make(std::make_shared<SlowCube>(), std::make_shared<BrickPool>(0)); };
    auto const whole = Box::OfSize({kSide, kSide, kSide, 1});
    auto const array = SharedArray<4>::Make<float>(whole);
    ExtentK<4, int> const region(whole);
    compare(report, "readRegion", [&](auto const& options) { readRegion(*chain(), region, array, options); });
    compare(report, "writeRegion", [&](auto const& options) { writeRegion(*chain(), region, array, options); });
    compare(report, "copyRegion", [&](auto const& options) { copyRegion(*chain(), *chain(), options); });
    compare(report, "addRegion", [&](auto const& options) {
        Histogram histogram(Histogram::fixed, 0, 1, 256);
        auto const accessor = chain();
        addRegion(histogram, *accessor, region, options);
    });
    compare(report, "forEachBlock", [&](auto const& options) {
        auto const accessor = chain();
        forEachBlock<float>(
            *accessor, Blocks(traitsOf(*accessor), whole, 1 << 17),
            [](Box const&, auto const& samples) { keep(samples.data()); }, options);
    });
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    Quorvel::Dravik::Adt::Benchmarks::compareAll();
}
