// SPDX-License-Identifier: Apache-2.0
#pragma once

// Memory that fails on demand and is counted: a replacement of the global operators new and delete for test programs
// that link the target dravik_adt_failing_allocator. Works under the sanitizers. Threads: counting is for any number of
// them, failing is armed per thread.

#include "dravik/adt/testing/failure_plan.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>

namespace Quorvel::Dravik::Adt::Testing {

/// What operator new gave out and has not got back, in the whole process.
struct LiveMemory {
    std::int64_t blockCount = 0;
    std::int64_t byteSize = 0;

    friend bool operator==(LiveMemory const&, LiveMemory const&) = default;
};

LiveMemory liveMemory() noexcept;

/// What the calling thread does whenever it gets or gives back memory; nothing while null.
using MemoryHook = std::function<void()> const*;
MemoryHook& memoryHook() noexcept;

/// Single requests of the calling thread, in bytes.
struct RequestSize {
    /// The largest one since this was set to 0, granted or not.
    static std::size_t& largest() noexcept;
    /// Larger ones fail.
    static std::size_t& limit() noexcept;
};

/// The calling thread's allocations fail by this plan.
struct AllocationFailure {
    static constexpr char const* kName = "allocation";
    static FailurePlan& plan() noexcept;
    /// Whether `error` is what a failed allocation ends in.
    static bool explains(std::exception const& error) noexcept;
};

}  // namespace Quorvel::Dravik::Adt::Testing
