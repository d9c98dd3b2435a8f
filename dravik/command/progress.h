// SPDX-License-Identifier: Apache-2.0
#pragma once

// Progress: a bar, a rate and the time left, on a terminal and nowhere else. Threads: one.

#include <chrono>
#include <cstdint>
#include <string>

namespace Quorvel::Dravik::Command {

class Progress {
  public:
    /// Shows nothing unless standard error is a terminal.
    explicit Progress(std::string what);
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;
    /// Takes the line away.
    ~Progress();

    /// In samples; drawn ten times a second at most.
    void show(std::int64_t done, std::int64_t total);

  private:
    using Clock = std::chrono::steady_clock;

    std::string what_;
    bool isOnTerminal_;
    bool isShown_ = false;
    Clock::time_point begin_ = Clock::now();
    Clock::time_point last_ = begin_;
};

/// "copy [#####     ]  50 %  12.5 Msamples/s  3 s left" for this much done after so many seconds.
std::string progressLine(std::string const& what, std::int64_t done, std::int64_t total, double seconds);

}  // namespace Quorvel::Dravik::Command
