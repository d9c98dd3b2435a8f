// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/logging/detail/counter.h"

#include "dravik/adt/platform/clock.h"

#include <atomic>

namespace Quorvel::Dravik::Adt::Logging::Detail {
namespace {

constexpr Counter kSystemCounter{&Platform::monotonicTicks, &Platform::monotonicTicksPerSecond};

constinit std::atomic<Counter const*> current{&kSystemCounter};

}  // namespace

Counter counter() noexcept {
    return *current.load(std::memory_order_acquire);
}

void substituteCounter(Counter const* counter) noexcept {
    current.store(counter == nullptr ? &kSystemCounter : counter, std::memory_order_release);
}

}  // namespace Quorvel::Dravik::Adt::Logging::Detail
