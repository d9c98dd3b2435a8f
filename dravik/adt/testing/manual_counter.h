// SPDX-License-Identifier: Apache-2.0
#pragma once

// A clock under the test's control, in place of the one that timers read. One at a time; threads: any.

#include "dravik/adt/logging/detail/counter.h"

#include <atomic>
#include <cstdint>

namespace Quorvel::Dravik::Adt::Testing {

/// Stands still but for `advance` and for the cost of each look at it, while it lives.
class ManualCounter {
  public:
    explicit ManualCounter(std::int64_t ticksPerSecond, std::int64_t ticksPerLook = 0) {
        ticks_ = 0;
        ticksPerSecond_ = ticksPerSecond;
        ticksPerLook_ = ticksPerLook;
        Logging::Detail::substituteCounter(&kCounter);
    }
    ~ManualCounter() { Logging::Detail::substituteCounter(nullptr); }
    ManualCounter(ManualCounter const&) = delete;
    ManualCounter& operator=(ManualCounter const&) = delete;

    static void advance(std::int64_t ticks) { ticks_ += ticks; }

  private:
    static std::int64_t now() noexcept { return ticks_.fetch_add(ticksPerLook_); }
    static std::int64_t ticksPerSecond() noexcept { return ticksPerSecond_; }

    static constexpr Logging::Detail::Counter kCounter{&ManualCounter::now, &ManualCounter::ticksPerSecond};
    inline static std::atomic<std::int64_t> ticks_;
    inline static std::atomic<std::int64_t> ticksPerSecond_;
    inline static std::atomic<std::int64_t> ticksPerLook_;
};

}  // namespace Quorvel::Dravik::Adt::Testing
