// SPDX-License-Identifier: Apache-2.0
#pragma once

// TimerPool: one timer per name, and the report of them all. Owns its timers. Threads: any number of them.

#include "dravik/adt/core/threading_mutex.h"
#include "dravik/adt/export.h"
#include "dravik/adt/logging/timer.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Logging {

/// Keeps timers by name, and prints a report of them on standard output when it is destroyed.
///
/// The pool of the process is switched on by the environment variable DRAVIK_TIMERS, whose number is the verbosity of
/// its timers: 0 measures and reports nothing, 1 reports the timers that measured something or are running, 2 to 4 let
/// named timers print lines of their own as well. In a disabled pool every operation costs one test.
/// @threads any, for all operations; what getTimerByName and getAllTimers point to may change while it is looked at
class DRAVIK_ADT_EXPORT TimerPool {
  public:
    explicit TimerPool(bool enabled = true, int verbose = 1);
    /// Prints the report, as far as there is memory for it.
    ~TimerPool();
    TimerPool(TimerPool const&) = delete;
    TimerPool& operator=(TimerPool const&) = delete;

    /// The pool of the process: made on first use and never destroyed. Its report is printed when the process ends,
    /// after the destructors of all statics.
    static TimerPool& getInstance();

    bool isEnabled() const noexcept { return enabled_; }

    /// The timer of that name, made where there is none yet; it is not running then. A null name is the empty one. A
    /// disabled pool gives one disabled timer for all names.
    /// @lifetime the pool's
    Timer* getTimerByName(char const* name);

    /// Adds measurements made elsewhere to a timer of this pool; nothing for null or in a disabled pool.
    void addToTimer(Timer* timer, int calls, double seconds, double lastSeconds);

    /// Forgets the results of every timer.
    void resetAll();

    /// Sets the verbosity of every timer, those to come included.
    void setVerbose(int verbose);

    /// All timers in the order of their names.
    /// @lifetime of the timers: the pool's
    std::vector<Timer const*> getAllTimers();

    /// Copies of all timers in the order of their names, each taken, and reset on demand, in one step.
    std::vector<Timer> copyAllTimers(bool reset);

    /// Prints the timers of verbosity 1 and more that measured something or are running; nothing where there is none.
    void printAll();

  private:
    friend class NamedTimer;

    using Lock = Threading::Mutex::Lock;

    /// The timer of that name and, taken in one step, a copy of it without results.
    std::pair<Timer*, Timer> borrow(char const* name);
    Timer& timerNamed(char const* name);

    bool enabled_;
    Timer disabledTimer_{/*enabled=*/false};
    int verbose_;
    std::map<std::string, std::unique_ptr<Timer>, std::less<>> timers_;
    Threading::Mutex mutex_;
};

}  // namespace Quorvel::Dravik::Adt::Logging
