// SPDX-License-Identifier: Apache-2.0
// Where the time goes, and what the samples look like: a step measured by name, and samples counted into bins.

#include <dravik/adt/logging/named_timer.h>
#include <dravik/adt/statistics/histogram.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <thread>
#include <vector>

using namespace Quorvel::Dravik::Adt;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// A brick of 1000 samples, as a stand-in for work that is worth measuring.
std::vector<float> decoded(int brick) {
    std::vector<float> samples(1000);
    std::generate(samples.begin(), samples.end(), [value = brick * 1000]() mutable {
        return 0.001f * static_cast<float>(value++);
    });
    return samples;
}

void print(std::vector<std::int64_t> const& counts) {
    for (std::int64_t const count : counts) {
        std::cout << ' ' << count;
    }
    std::cout << '\n';
}

}  // namespace

int main() {
    Logging::TimerPool pool;

    //! [scope]
    for (int brick = 0; brick < 3; ++brick) {
        Logging::NamedTimer const timer("decoding", &pool);  // without a pool: in that of the process
        decoded(brick);
    }
    //! [scope]

    //! [results]
    for (Logging::Timer const& timer : pool.copyAllTimers(/*reset=*/true)) {
        std::cout << timer.getName() << ": " << timer.getCount() << " times\n";  // and timer.getTotal() seconds
    }
    //! [results]

    //! [elsewhere]
    pool.addToTimer(pool.getTimerByName("rendering"), /*calls=*/4, /*seconds=*/0.5, /*lastSeconds=*/0.125);
    pool.printAll();
    //! [elsewhere]
    pool.resetAll();  // or its destructor would print the report again

    //! [fixed]
    Histogram heights(Histogram::fixed, 0, 4, 8);
    heights.add(std::vector{0.25f, 1.5f, 1.75f, 3.9f, 4.0f, -7.0f, kNaN});
    std::cout << heights << '\n';
    print(heights.bins(4, 0, 4));  // fewer and wider bins of the same samples
    //! [fixed]

    //! [flexible]
    Histogram depths(Histogram::flexible, 100);
    float low = 0, high = 0;
    for (float const depth : {1000.0f, 1400.0f, 3000.0f}) {
        depths.add(depth);
        depths.capacity(low, high);
        std::cout << "after " << depth << ": bins of " << (high - low) / 100 << " from " << low << '\n';
    }
    //! [flexible]

    //! [threads]
    Histogram whole(Histogram::fixed, 0, 4, 4), half = whole;
    std::thread other([&half] { half.add(decoded(2)); });
    whole.add(decoded(0));
    other.join();
    whole.merge(half);
    print(whole.bins(4));
    //! [threads]
}
