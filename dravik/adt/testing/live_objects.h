// SPDX-License-Identifier: Apache-2.0
#pragma once

// Counts the objects of tests that must be gone at their end. A test program that links dravik_adt_testing fails when
// some are left. Threads: any.

#include <array>
#include <atomic>
#include <cstddef>
#include <string>

namespace Quorvel::Dravik::Adt::Testing {

/// What is counted; the last says how many kinds there are.
enum LiveKind : std::size_t { kAccessor, kClient, kLoanOwner, kBufferOwner, kLiveKinds };

inline std::array<std::atomic<int>, kLiveKinds> liveCounts;

/// Base of whatever must be gone at the end of a test program.
template <LiveKind kind>
class Counted {
  protected:
    Counted() noexcept { ++liveCounts[kind]; }
    Counted(Counted const&) noexcept : Counted() {}
    Counted& operator=(Counted const&) = default;
    ~Counted() { --liveCounts[kind]; }
};

/// What is there, "2 accessors, 1 owners of loans, " for instance; empty if nothing is.
inline std::string liveObjects() {
    constexpr char const* kPlurals[] = {" accessors, ", " clients, ", " owners of loans, ", " owners of buffers, "};
    std::string text;
    for (std::size_t kind = 0; kind < kLiveKinds; ++kind) {
        text += liveCounts[kind] == 0 ? "" : std::to_string(liveCounts[kind]) + kPlurals[kind];
    }
    return text;
}

}  // namespace Quorvel::Dravik::Adt::Testing
