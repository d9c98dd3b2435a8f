// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/logging/timer.h"

#include "dravik/adt/platform/clock.h"
#include "dravik/adt/platform/environment.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace Quorvel::Dravik::Adt::Logging {
namespace {

// The whole ticks in `ticks`, toward zero; the ends of the range for what lies beyond them, 0 for not-a-number.
std::int64_t wholeTicks(double ticks) noexcept {
    constexpr double kBeyond = 9223372036854775808.0;
    if (!(ticks > -kBeyond && ticks < kBeyond)) {
        return ticks > 0   ? std::numeric_limits<std::int64_t>::max()
               : ticks < 0 ? std::numeric_limits<std::int64_t>::min()
                           : 0;
    }
    return static_cast<std::int64_t>(ticks);
}

// A sum that stays at the end of the range instead of passing it: a timer may run for as long as its process.
template <class T>
T sumWithin(T left, T right) noexcept {
    T sum;
    if (__builtin_add_overflow(left, right, &sum)) {
        return right < 0 ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
    }
    return sum;
}

std::int64_t differenceWithin(std::int64_t left, std::int64_t right) noexcept {
    std::int64_t difference;
    if (__builtin_sub_overflow(left, right, &difference)) {
        return right > 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    }
    return difference;
}

std::string durationText(double seconds) {
    char text[64];
    if (seconds < 0.00999) {
        std::snprintf(text, sizeof text, "%6.1lf us", seconds * 1000000);
    } else if (seconds < 9.99) {
        std::snprintf(text, sizeof text, "%6.1lf ms", seconds * 1000);
    } else {
        std::snprintf(text, sizeof text, "%6.1lf s ", seconds);
    }
    return text;
}

}  // namespace

Timer::Timer(bool enabled, char const* name, int skip) : enabled_(enabled), skip_(skip), verbose_(enabled ? 1 : 0) {
    if (!enabled) {
        return;
    }
    if (name != nullptr) {
        std::memcpy(name_, name, strnlen(name, sizeof name_ - 1));
    }
    frequency_ = getNativeFrequency();
    if (frequency_ == 0) {
        frequency_ = 1;
    }
    calibrate();
    doReset();
    doStart();
}

void Timer::calibrate() noexcept {
    for (int round = 0; round < 3; ++round) {
        doStart();
        doStop();
    }
    // Nine tenths, without a product that may be too large.
    overhead_ = last_ / 10 * 9 + last_ % 10 * 9 / 10;
}

void Timer::doStart() noexcept {
    running_ = true;
    startTime_ = getNativeTime();
}

void Timer::doStop() noexcept {
    stopTime_ = getNativeTime();
    if (!running_) {
        return;
    }
    last_ = differenceWithin(differenceWithin(stopTime_, startTime_), overhead_);
    if (count_ >= skip_) {
        total_ = sumWithin(total_, last_);
    }
    count_ = sumWithin(count_, 1);
    running_ = false;
}

void Timer::doReset() noexcept {
    last_ = total_ = 0;
    count_ = 0;
    running_ = false;
}

void Timer::add(int calls, double seconds, double lastSeconds) noexcept {
    if (!enabled_) {
        return;
    }
    double const frequency = static_cast<double>(frequency_);
    total_ = sumWithin(total_, wholeTicks(seconds * frequency));
    last_ = wholeTicks(frequency * lastSeconds);
    count_ = sumWithin(count_, calls);
}

char const* Timer::getValue() const {
    static char shared[1024];
    std::string const text = valueText();
    shared[text.copy(shared, sizeof shared - 1)] = '\0';
    return shared;
}

std::string Timer::valueText() const {
    if (!enabled_) {
        return {};
    }
    std::string text = count_ > skip_ ? durationText(getTotal()) : "No calls logged";
    if (getCount() > 1) {
        text += " in " + std::to_string(getCount()) + " calls";
    }
    if (getSkip() != 0) {
        text += " (first " + std::to_string(getSkip()) + " not counted)";
    }
    if (running_) {
        text += " STILL RUNNING (forgot to Stop?)";
    }
    return text;
}

int Timer::getNumericEnv(char const* name) {
    constexpr std::size_t kLongest = 255;
    auto const value = Platform::environmentValue(name);
    if (!value || value->empty() || value->size() > kLongest) {
        return -1;
    }
    return static_cast<int>(std::clamp<long>(std::strtol(value->c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

std::int64_t Timer::getNativeTime() noexcept {
    return Platform::monotonicTicks();
}

std::int64_t Timer::getNativeFrequency() noexcept {
    return Platform::monotonicTicksPerSecond();
}

}  // namespace Quorvel::Dravik::Adt::Logging
