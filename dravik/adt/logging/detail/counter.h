// SPDX-License-Identifier: Apache-2.0
#pragma once

// The counter that all timers of the process read; another one can take its place, so that what timers measure can be
// told beforehand. Threads: substitution while no timer is in use.

#include "dravik/adt/export.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt::Logging::Detail {

/// A tick counter that never runs backwards.
struct Counter {
    std::int64_t (*now)() noexcept;             ///< ticks since some moment in the past
    std::int64_t (*ticksPerSecond)() noexcept;  ///< 0 where it is not known
};

/// The counter in force.
DRAVIK_ADT_EXPORT Counter counter() noexcept;

/// Puts `counter` in force, null the operating system's again.
/// @lifetime `counter` is used until it is replaced
DRAVIK_ADT_EXPORT void substituteCounter(Counter const* counter) noexcept;

}  // namespace Quorvel::Dravik::Adt::Logging::Detail
