#pragma once

// Contest: several ways to do the same work, timed in turns. Threads: one.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {

/// Runs its entries one after the other, again and again, so that a slow moment of the machine hits them alike, and
/// prints each median beside that of the first entry.
///
/// An entry returns a checksum of what it read or made: it keeps the compiler from leaving the work out, and entries
/// that disagree end the program, since they did not do the same work.
class Contest {
  public:
    explicit Contest(std::string title) : title_(std::move(title)) {}

    /// `work` is done once per turn; the first entry is what the others are measured by.
    void enter(std::string name, std::function<std::uint64_t()> work) {
        entries_.push_back({std::move(name), std::move(work), {}});
    }

    /// A line in place of an entry that cannot take part.
    void skip(std::string const& name, std::string const& reason) { skipped_.push_back(name + ": " + reason); }

    /// Takes `turns` turns after one that does not count, and prints the result.
    void run(int turns = 15) {
        for (int turn = -1; turn < turns; ++turn) {
            for (Entry& entry : entries_) {
                double const seconds = timed(entry);
                if (turn >= 0) {
                    entry.seconds.push_back(seconds);
                }
            }
        }
        print();
    }

  private:
    struct Entry {
        std::string name;
        std::function<std::uint64_t()> work;
        std::vector<double> seconds;
    };

    // Time on the processor: what a busy machine makes a program wait is no price of its work.
    static double processorSeconds() {
        timespec now{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
    }

    double timed(Entry& entry) {
        double const start = processorSeconds();
        std::uint64_t const checksum = entry.work();
        double const elapsed = processorSeconds() - start;
        if (!checksumKnown_) {
            checksum_ = checksum;
            checksumKnown_ = true;
        } else if (checksum != checksum_) {
            std::fprintf(stderr, "%s: %s did other work than the first\n", title_.c_str(), entry.name.c_str());
            std::exit(EXIT_FAILURE);
        }
        return elapsed;
    }

    static double median(std::vector<double> values) {
        auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

    void print() const {
        std::printf("%s\n", title_.c_str());
        double const first = median(entries_.front().seconds);
        for (Entry const& entry : entries_) {
            double const seconds = median(entry.seconds);
            std::printf("  %-44s %9.3f ms   %5.2fx\n", entry.name.c_str(), seconds * 1e3, seconds / first);
        }
        for (std::string const& line : skipped_) {
            std::printf("  %s\n", line.c_str());
        }
    }

    std::string title_;
    std::vector<Entry> entries_;
    std::vector<std::string> skipped_;
    std::uint64_t checksum_ = 0;
    bool checksumKnown_ = false;
};

}  // namespace Quorvel::Dravik::Adt::Benchmarks
