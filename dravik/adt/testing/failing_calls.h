// SPDX-License-Identifier: Apache-2.0
#pragma once

// Calls out of the library into code of a host (owner, client, target, converter) that throw on demand: a test's own
// implementations say callOut("…") first thing in each operation that may throw. Armed per thread.

#include "dravik/adt/testing/failure_plan.h"

#include <cstdio>
#include <exception>
#include <ostream>
#include <streambuf>

namespace Quorvel::Dravik::Adt::Testing {

/// What a call out throws; of no kind that the library throws itself.
class CallOutError : public std::exception {
  public:
    /// `operation` names the call and outlives this error.
    explicit CallOutError(char const* operation) noexcept : operation_(operation) {}
    char const* what() const noexcept override { return operation_; }

  private:
    char const* operation_;
};

/// The calling thread's calls out fail by this plan.
struct CallFailure {
    static constexpr char const* kName = "call out";
    static FailurePlan& plan() noexcept {
        static constinit thread_local FailurePlan plan;
        return plan;
    }
    /// Whether `error` comes from a failed call out.
    static bool explains(std::exception const& error) noexcept {
        return dynamic_cast<CallOutError const*>(&error) != nullptr;
    }
};

/// The library calls `operation` of the test.
/// @throws CallOutError if the plan says so
inline void callOut(char const* operation) {
    if (CallFailure::plan().failsNow()) {
        throw CallOutError(operation);
    }
}

/// A stream of a host that keeps nothing and throws what goes wrong.
class HostStream : private std::streambuf, public std::ostream {
  public:
    HostStream() : std::ostream(this) { exceptions(std::ios::badbit); }

  private:
    int overflow(int character) override {
        callOut("overflow");
        return character == EOF ? 0 : character;
    }
    std::streamsize xsputn(char const*, std::streamsize count) override {
        callOut("xsputn");
        return count;
    }
};

}  // namespace Quorvel::Dravik::Adt::Testing
