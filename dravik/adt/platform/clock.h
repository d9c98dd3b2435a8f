// SPDX-License-Identifier: Apache-2.0
#pragma once

// The monotonic counter of the operating system. Safe from any thread.

#include <cstdint>

namespace Quorvel::Dravik::Adt::Platform {

/// Ticks since some moment in the past; never runs backwards.
std::int64_t monotonicTicks() noexcept;

/// Ticks in one second.
std::int64_t monotonicTicksPerSecond() noexcept;

}  // namespace Quorvel::Dravik::Adt::Platform
