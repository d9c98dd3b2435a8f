// SPDX-License-Identifier: Apache-2.0
#pragma once

// Contest: several ways to do the same work, timed in turns. Threads: one.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {

/// Tells the compiler that the memory behind `data` is used by somebody it does not see.
inline void keep(void const* data) {
    asm volatile("" : : "g"(data) : "memory");
}

/// The median of a figure over all rounds, and the quartiles around it.
struct Spread {
    double low;
    double median;
    double high;
};

/// Runs its entries one after the other, round after round, so that a slow moment of the machine meets them alike; a
/// ratio is the median of the ratios within the rounds. Before an entry is timed it is called once, so that it meets
/// the caches as it leaves them itself, not as the entry before it did, which may have read or written the same memory.
///
/// An entry returns a checksum of what it read or made: it keeps the compiler from leaving the work out, and entries
/// that disagree end the program, since they did not do the same work. Each has to be repeatable.
class Contest {
  public:
    explicit Contest(std::string title) : title_(std::move(title)) {}

    void enter(std::string name, std::function<std::uint64_t()> work) {
        entries_.push_back({std::move(name), std::move(work), 1, {}});
    }

    /// Takes rounds for `kSeconds` of processor time, but not fewer than kFewest and not more than kMost.
    void run() {
        double round = 0;
        for (Entry& entry : entries_) {
            round += warmUp(entry);
        }
        int const rounds = static_cast<int>(std::clamp(kSeconds * 1e9 / round, double{kFewest}, double{kMost}));
        for (int number = 0; number < rounds; ++number) {
            for (Entry& entry : entries_) {
                check(entry, entry.work());
                entry.nanoseconds.push_back(nanosecondsOfBatch(entry) / entry.batch);
            }
        }
    }

    std::string const& title() const { return title_; }
    bool has(std::string const& name) const { return find(name) != nullptr; }

    /// Processor time of one call of the work.
    Spread nanoseconds(std::string const& name) const { return spreadOf(find(name)->nanoseconds); }

    /// How many times as long the one takes as the other.
    Spread ratio(std::string const& name, std::string const& other) const {
        std::vector<double> ratios = find(name)->nanoseconds;
        std::transform(
            ratios.begin(), ratios.end(), find(other)->nanoseconds.begin(), ratios.begin(), std::divides<>());
        return spreadOf(std::move(ratios));
    }

  private:
    static constexpr double kSeconds = 0.6;
    static constexpr int kFewest = 7;
    static constexpr int kMost = 101;
    static constexpr double kBatchNanoseconds = 100'000;  // of calls between two looks at the clock

    struct Entry {
        std::string name;
        std::function<std::uint64_t()> work;
        int batch;  // calls per round
        std::vector<double> nanoseconds;
    };

    // Finds the size of a batch and returns what it takes.
    double warmUp(Entry& entry) {
        double elapsed = nanosecondsOfBatch(entry);
        while ((elapsed = nanosecondsOfBatch(entry)) < kBatchNanoseconds) {
            entry.batch *= 2;
        }
        return elapsed;
    }

    double nanosecondsOfBatch(Entry const& entry) {
        double const start = processorNanoseconds();
        for (int call = 0; call < entry.batch; ++call) {
            check(entry, entry.work());
        }
        return processorNanoseconds() - start;
    }

    void check(Entry const& entry, std::uint64_t checksum) {
        if (!checksumKnown_) {
            checksum_ = checksum;
            checksumKnown_ = true;
        } else if (checksum != checksum_) {
            std::fprintf(stderr, "%s: %s did other work than the first\n", title_.c_str(), entry.name.c_str());
            std::exit(EXIT_FAILURE);
        }
    }

    Entry const* find(std::string const& name) const {
        auto const found =
            std::find_if(entries_.begin(), entries_.end(), [&](Entry const& entry) { return entry.name == name; });
        return found == entries_.end() ? nullptr : &*found;
    }

    // What a busy machine makes a program wait is no price of its work.
    static double processorNanoseconds() {
        timespec now{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
    }

    static Spread spreadOf(std::vector<double> values) {
        std::sort(values.begin(), values.end());
        std::size_t const last = values.size() - 1;
        return {values[last / 4], values[last / 2], values[last - last / 4]};
    }

    std::string title_;
    std::vector<Entry> entries_;
    std::uint64_t checksum_ = 0;
    bool checksumKnown_ = false;
};

}  // namespace Quorvel::Dravik::Adt::Benchmarks
