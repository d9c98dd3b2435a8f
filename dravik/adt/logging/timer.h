// SPDX-License-Identifier: Apache-2.0
#pragma once

// Timer: adds up the time between start and stop. A plain value with a name. Threads: as `int`, but for getValue.

#include "dravik/adt/export.h"

#include <algorithm>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <string>

namespace Quorvel::Dravik::Adt::Logging {

/// Measures with the operating system's monotonic counter and takes off what a measurement itself costs, which each
/// timer finds out once, when it is made.
///
/// A disabled timer ignores every operation for the price of one test. Results come in seconds. Threads: as `int`;
/// where several threads measure the same thing, use NamedTimer.
///
///     Timer timer(true, "sorting");
///     sort(samples);
///     timer.stop();
///     timer.getTotal();
class DRAVIK_ADT_EXPORT Timer {
  public:
    /// An enabled timer is running already. Of `name` the first 255 characters are kept; null is no name. The first
    /// `skip` measurements are counted apart and not added to the total.
    explicit Timer(bool enabled = true, char const* name = nullptr, int skip = 0);

    /// Would take the name for the flag.
    Timer(char const* name) = delete;

    /// Begins a measurement, anew where one is running.
    void start() noexcept {
        if (enabled_) {
            doStart();
        }
    }
    /// Ends the measurement; counts nothing where none is running.
    void stop() noexcept {
        if (enabled_) {
            doStop();
        }
    }
    /// Forgets all results and a running measurement.
    void reset() noexcept {
        if (enabled_) {
            doReset();
        }
    }

    /// Counts `calls` measurements made elsewhere: together `seconds`, the last of them `lastSeconds`. None is skipped.
    void add(int calls, double seconds, double lastSeconds) noexcept;

    bool getEnabled() const noexcept { return enabled_; }
    char const* getName() const noexcept { return name_; }
    /// Ticks per second of the counter.
    double getFrequency() const noexcept { return static_cast<double>(frequency_); }
    /// Seconds of the most recent measurement; below 0 where it was shorter than its own cost.
    double getLast() const noexcept { return seconds(last_); }
    /// Seconds of all measurements but the skipped ones.
    double getTotal() const noexcept { return seconds(total_); }
    /// Seconds that are taken off every measurement.
    double getOverhead() const noexcept { return seconds(overhead_); }
    /// Measurements in the total.
    int getCount() const noexcept {
        std::int64_t const counted = std::int64_t{count_} - skip_;
        return static_cast<int>(std::clamp<std::int64_t>(counted, 0, std::numeric_limits<int>::max()));
    }
    /// Measurements skipped so far.
    int getSkip() const noexcept { return skip_ < count_ ? skip_ : count_; }
    bool getRunning() const noexcept { return running_; }
    /// How much is reported of this timer: 0 nothing, 1 its line in the pool's report; NamedTimer tells what more says.
    int getVerbose() const noexcept { return verbose_; }
    void setVerbose(int verbose) noexcept { verbose_ = verbose; }

    /// The total as text, such as "  12.3 ms in 4 calls (first 1 not counted)"; empty for a disabled timer.
    /// @lifetime until the next call on any timer: all share one buffer of 1024 characters
    /// @threads  one at a time, whichever timers they look at
    char const* getValue() const;

    /// The decimal number at the start of an environment variable, 0 where its text starts with none; -1 where there is
    /// no such variable, or it is empty or longer than 255 characters.
    static int getNumericEnv(char const* name);

    /// Writes name, a colon and the value, without the shared buffer.
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& out, Timer const& timer) {
        return out << timer.name_ << ": " << timer.valueText().c_str();
    }

  private:
    friend class TimerPool;

    static std::int64_t getNativeTime() noexcept;
    static std::int64_t getNativeFrequency() noexcept;

    void doStart() noexcept;
    void doStop() noexcept;
    void doReset() noexcept;
    void calibrate() noexcept;
    std::string valueText() const;
    double seconds(std::int64_t ticks) const noexcept {
        return static_cast<double>(ticks) / static_cast<double>(frequency_);
    }

    // Times in ticks of the counter.
    bool enabled_;
    char name_[256] = {};
    int skip_;
    std::int64_t frequency_ = 1;
    std::int64_t overhead_ = 0;
    int count_ = 0;
    std::int64_t last_ = 0;
    std::int64_t total_ = 0;
    std::int64_t startTime_ = 0;
    std::int64_t stopTime_ = 0;
    bool running_ = false;
    int verbose_;
};

}  // namespace Quorvel::Dravik::Adt::Logging
