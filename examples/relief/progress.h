// SPDX-License-Identifier: Apache-2.0
#pragma once

// A line on the terminal that says how far a piece of work is. Silent where standard error is no terminal.

namespace Relief {

/// Shows "reading  42 %" while it lives and clears the line when it goes. One at a time.
class Progress {
  public:
    /// `what` must outlive this object.
    Progress(char const* what, long long total) noexcept;
    ~Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    /// Says that `amount` more of the total is done.
    void advance(long long amount);

  private:
    char const* what_;
    long long total_;
    long long done_ = 0;
    int shownPercent_ = -1;
    bool onTerminal_;
};

}  // namespace Relief
