// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/logging/timer_pool.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

namespace Quorvel::Dravik::Adt::Logging {

namespace {

// The pool of the process, once there is one.
constinit std::atomic<TimerPool*> processPool{nullptr};

void printLastReport(TimerPool& pool) noexcept {
    try {
        pool.printAll();
    } catch (std::bad_alloc const&) {
        // The report ends where the memory does.
    }
}

// Runs when the library goes, after the destructors of every static of the program: what those measured is reported,
// too.
[[gnu::destructor]] void reportAtExit() noexcept {
    if (TimerPool* const pool = processPool.load(std::memory_order_acquire)) {
        printLastReport(*pool);
    }
}

}  // namespace

TimerPool::TimerPool(bool enabled, int verbose) : enabled_(enabled), verbose_(enabled ? verbose : 0) {}

TimerPool::~TimerPool() {
    printLastReport(*this);
}

TimerPool& TimerPool::getInstance() {
    // Never destroyed: statics of the program may measure until the very end.
    static TimerPool& pool = [verbose = Timer::getNumericEnv("DRAVIK_TIMERS")]() -> TimerPool& {
        auto* const made = new TimerPool(/*enabled=*/verbose >= 0, verbose);
        processPool.store(made, std::memory_order_release);
        return *made;
    }();
    return pool;
}

Timer* TimerPool::getTimerByName(char const* name) {
    if (!enabled_) {
        return &disabledTimer_;
    }
    Lock const lock(mutex_);
    return &timerNamed(name);
}

std::pair<Timer*, Timer> TimerPool::borrow(char const* name) {
    Lock const lock(mutex_);
    Timer& pooled = timerNamed(name);
    std::pair<Timer*, Timer> borrowed(&pooled, pooled);
    borrowed.second.reset();
    return borrowed;
}

// The mutex is held.
Timer& TimerPool::timerNamed(char const* name) {
    std::string_view const key = name == nullptr ? "" : name;
    auto found = timers_.find(key);
    if (found == timers_.end()) {
        auto timer = std::make_unique<Timer>(/*enabled=*/true, name, /*skip=*/0);
        timer->reset();
        timer->setVerbose(verbose_);
        found = timers_.emplace(key, std::move(timer)).first;
    }
    return *found->second;
}

void TimerPool::addToTimer(Timer* timer, int calls, double seconds, double lastSeconds) {
    if (!enabled_ || timer == nullptr) {
        return;
    }
    Lock const lock(mutex_);
    timer->add(calls, seconds, lastSeconds);
}

void TimerPool::resetAll() {
    if (!enabled_) {
        return;
    }
    Lock const lock(mutex_);
    for (auto const& [name, timer] : timers_) {
        timer->reset();
    }
}

void TimerPool::setVerbose(int verbose) {
    if (!enabled_) {
        return;
    }
    Lock const lock(mutex_);
    verbose_ = verbose;
    for (auto const& [name, timer] : timers_) {
        timer->setVerbose(verbose);
    }
}

std::vector<Timer const*> TimerPool::getAllTimers() {
    Lock const lock(mutex_);
    std::vector<Timer const*> all;
    all.reserve(timers_.size());
    for (auto const& [name, timer] : timers_) {
        all.push_back(timer.get());
    }
    return all;
}

std::vector<Timer> TimerPool::copyAllTimers(bool reset) {
    Lock const lock(mutex_);
    std::vector<Timer> copies;
    copies.reserve(timers_.size());
    for (auto const& [name, timer] : timers_) {
        copies.push_back(*timer);
        if (reset) {
            timer->reset();
        }
    }
    return copies;
}

void TimerPool::printAll() {
    if (!enabled_) {
        return;
    }
    bool anyPrinted = false;
    for (Timer const& timer : copyAllTimers(/*reset=*/false)) {
        if (timer.getVerbose() < 1 || (timer.getCount() == 0 && !timer.getRunning())) {
            continue;
        }
        if (!anyPrinted) {
            std::printf("\nTiming results:\n");
            anyPrinted = true;
        }
        constexpr std::size_t kNameWidth = 50;
        std::string const value = timer.valueText();
        if (std::strlen(timer.getName()) > kNameWidth) {
            std::printf("  %s\n%-50s %s\n", timer.getName(), "", value.c_str());
        } else {
            std::printf("  %-50s   %s\n", timer.getName(), value.c_str());
        }
    }
    if (anyPrinted) {
        std::printf("End of report\n\n");
    }
}

}  // namespace Quorvel::Dravik::Adt::Logging
