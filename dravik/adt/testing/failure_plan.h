// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which of the events that could fail does fail. Used by whatever makes things fail on demand. Threads: a plan belongs
// to the thread that armed it.

#include <cstdint>

namespace Quorvel::Dravik::Adt::Testing {

/// How it goes on after the first failure.
enum class Failing { kOnce, kFromThereOn };

/// Counts events and picks the ones that fail; picks none until it is armed.
class FailurePlan {
  public:
    /// Lets event number `n` from now, counted from 0, fail.
    constexpr void arm(std::int64_t n, Failing failing) noexcept {
        before_ = n;
        goesOn_ = failing == Failing::kFromThereOn;
        armed_ = true;
        happened_ = false;
    }
    constexpr void disarm() noexcept { armed_ = false; }

    /// Whether an event failed since the plan was armed.
    constexpr bool happened() const noexcept { return happened_; }

    /// An event takes place: whether it is to fail.
    constexpr bool failsNow() noexcept {
        if (!armed_ || (happened_ && !goesOn_)) {
            return false;
        }
        happened_ = happened_ || before_-- <= 0;
        return happened_;
    }

  private:
    std::int64_t before_ = 0;
    bool goesOn_ = false;
    bool armed_ = false;
    bool happened_ = false;
};

/// Arms a plan for one scope.
class ArmedFailure {
  public:
    ArmedFailure(FailurePlan& plan, std::int64_t n, Failing failing) noexcept : plan_(plan) { plan_.arm(n, failing); }
    ArmedFailure(ArmedFailure const&) = delete;
    ArmedFailure& operator=(ArmedFailure const&) = delete;
    ~ArmedFailure() { plan_.disarm(); }

  private:
    FailurePlan& plan_;
};

}  // namespace Quorvel::Dravik::Adt::Testing
