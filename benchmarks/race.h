#pragma once

// Race: the time of short pieces of work, for tables of many rows. Threads: one.

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <functional>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {

/// Tells the compiler that the memory behind `data` is used by somebody it does not see.
inline void keep(void const* data) {
    asm volatile("" : : "g"(data) : "memory");
}

/// Contestants take turns in short batches, so that a slow moment of the machine meets all of them; what counts are
/// medians over the rounds, of times and of the ratios within a round.
class Race {
  public:
    /// Adds a contestant and returns its number. `work` is called many times and does the same every time.
    std::size_t add(std::function<void()> work) {
        entries_.push_back({std::move(work), 1, {}});
        return entries_.size() - 1;
    }

    void run(int rounds = 31) {
        for (Entry& entry : entries_) {
            while (nanosecondsOfBatch(entry) < kBatchNanoseconds) {
                entry.batch *= 2;
            }
        }
        for (int round = 0; round < rounds; ++round) {
            for (Entry& entry : entries_) {
                entry.nanoseconds.push_back(nanosecondsOfBatch(entry) / entry.batch);
            }
        }
    }

    /// Nanoseconds per call.
    double time(std::size_t contestant) const { return median(entries_[contestant].nanoseconds); }

    /// How many times as long the one takes as the other.
    double ratio(std::size_t contestant, std::size_t other) const {
        std::vector<double> ratios = entries_[contestant].nanoseconds;
        std::transform(
            ratios.begin(), ratios.end(), entries_[other].nanoseconds.begin(), ratios.begin(), std::divides<>());
        return median(ratios);
    }

  private:
    static constexpr double kBatchNanoseconds = 100'000;

    struct Entry {
        std::function<void()> work;
        int batch;
        std::vector<double> nanoseconds;
    };

    static double nanosecondsOfBatch(Entry const& entry) {
        double const start = processorNanoseconds();
        for (int call = 0; call < entry.batch; ++call) {
            entry.work();
        }
        return processorNanoseconds() - start;
    }

    // What a busy machine makes a program wait is no price of its work.
    static double processorNanoseconds() {
        timespec now{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
    }

    static double median(std::vector<double> values) {
        auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

    std::vector<Entry> entries_;
};

}  // namespace Quorvel::Dravik::Adt::Benchmarks
