// SPDX-License-Identifier: Apache-2.0
#pragma once

// NamedTimer: measures the scope it lives in for the timer of its name in a pool. Refers to the pool, which must
// outlive it. Threads: one object belongs to one thread; objects of the same name may measure on any number of them.

#include "dravik/adt/export.h"
#include "dravik/adt/logging/timer_pool.h"

#include <cstdarg>
#include <memory>

namespace Quorvel::Dravik::Adt::Logging {

/// Measures into a timer of its own and adds the result to the pooled one when it stops, so that measurements of the
/// same name on several threads do not disturb each other.
///
/// Prints on standard output, by the verbosity of the pooled timer: at 2 a line for each stop with a text, at 3 one for
/// each stop and lap, at 4 one for each start. Costs one test per operation while the pool is disabled, else a look-up
/// under the pool's lock when it is made and another lock when it stops. Copies share one measurement.
///
///     NamedTimer timer("reading");
///     readAll();
///     timer.stop("%d bricks\n", brickCount);  // or with the scope
class DRAVIK_ADT_EXPORT NamedTimer {
  public:
    /// Starts measuring for `name` in the pool of the process, or in `pool`; null and a disabled pool measure nothing.
    explicit NamedTimer(char const* name);
    NamedTimer(char const* name, TimerPool* pool);
    NamedTimer(NamedTimer const&) = default;
    /// Leaves the measurement so far to the copies of this object, if there are any.
    NamedTimer& operator=(NamedTimer const&) = default;
    /// Stops.
    ~NamedTimer();

    /// Begins the next lap.
    void start();
    /// Ends a lap; its time reaches the pool with the next stop.
    void lapEnd();
    /// Ends the lap, if one is running, and adds all laps to the pooled timer.
    void stop();
    /// As stop, with a text of the caller's, formatted as by printf, on the line that it prints. No end of line is
    /// added.
    [[gnu::format(printf, 2, 3)]] void stop(char const* format, ...);

  private:
    [[gnu::format(printf, 1, 2)]] static void log(char const* format, ...);
    [[gnu::format(printf, 1, 0)]] static void vlog(char const* format, std::va_list arguments);

    bool isRunning() const noexcept { return localTimer_ && localTimer_->getRunning(); }
    void announceStart() const;
    void addToPool();

    TimerPool* pool_;
    std::shared_ptr<Timer> localTimer_;  // null while the pool is disabled
    Timer* pooledTimer_ = nullptr;
};

}  // namespace Quorvel::Dravik::Adt::Logging
