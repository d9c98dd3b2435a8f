// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/clock.h"

#include <ctime>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

std::int64_t monotonicTicks() noexcept {
    timespec now{};
    // Fails only for a clock that the system does not have; this one it has.
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * kNanosecondsPerSecond + now.tv_nsec;
}

std::int64_t monotonicTicksPerSecond() noexcept {
    return kNanosecondsPerSecond;
}

}  // namespace Quorvel::Dravik::Adt::Platform
