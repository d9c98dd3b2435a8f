// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/detail/bricking.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

constexpr std::int64_t kOpenBrickSamples = 1 << 16;

std::int64_t distance(int from, int to) noexcept {
    return std::int64_t{to} - from;
}

template <class Exception>
[[noreturn]] void refuse(char const* what, FixedVector<4, int> const& numbers) {
    std::ostringstream text;
    text << "[StoreAccessor::Make] Invalid argument: " << what << " " << numbers << ".";
    throw Exception(text.str());
}

}  // namespace

Bricking::Bricking(Index const& size, AccessTraits const& traits) : size_(size), brick_(traits.naturalBlock) {
    std::int64_t samples = 1;
    for (int axis = 3; axis >= 0; --axis) {
        int& brick = brick_.data()[axis];
        int const length = size_.data()[axis];
        if (length < 1) {
            refuse<std::invalid_argument>("the store has no samples, its size is", size_);
        }
        std::int64_t const open = std::max<std::int64_t>(kOpenBrickSamples / samples, 1);
        brick = brick > 0 ? std::min(brick, length) : static_cast<int>(std::min<std::int64_t>(open, length));
        samples *= brick;
        if (samples > std::numeric_limits<int>::max()) {
            refuse<std::length_error>("a brick holds more than 2147483647 samples, its size is", brick_);
        }
        int const phase = traits.blockOrigin.data()[axis] % brick;
        origin_.data()[axis] = phase > 0 ? phase - brick : phase;
    }
}

Bricking::Box Bricking::boxAround(Index const& index) const noexcept {
    Box box;
    for (int axis = 0; axis < 4; ++axis) {
        // A difference of two ints fits 32 bits without a sign, which divide in half the time of 64.
        auto const brick = static_cast<std::uint32_t>(brick_.data()[axis]);
        auto const within = static_cast<std::uint32_t>(distance(origin(axis), index.data()[axis]));
        std::int64_t const from = origin(axis) + std::int64_t{brick == 1 ? within : within / brick * brick};
        box.min.data()[axis] = static_cast<int>(std::max<std::int64_t>(from, 0));
        box.max.data()[axis] = static_cast<int>(std::min<std::int64_t>(from + brick, size_.data()[axis]));
    }
    return box;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
