// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/blocks.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

std::int64_t floorDivided(std::int64_t a, std::int64_t b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

}  // namespace

Blocks::Blocks(AccessTraits const& traits, Box const& range, std::int64_t sampleBudget) : range_(range) {
    if (sampleBudget < 1) {
        throw std::invalid_argument(
            "[Blocks] Invalid argument: a budget of " + std::to_string(sampleBudget) + " samples.");
    }
    if (range.isEmpty()) {
        return;
    }
    if (0 <= traits.fastestAxis && traits.fastestAxis < 4) {
        std::rotate(order_.begin() + traits.fastestAxis, order_.begin() + traits.fastestAxis + 1, order_.end());
    }
    std::array<std::int64_t, 4> natural{};
    for (std::size_t axis = 0; axis < 4; ++axis) {
        natural[axis] = std::max(traits.naturalBlock.data()[axis], 1);
    }
    fit(natural, sampleBudget);
    size_ = largest_ = 1;
    for (std::size_t axis = 0; axis < 4; ++axis) {
        std::int64_t const min = range.min.data()[axis], max = range.max.data()[axis];
        // Boxes of whole natural blocks begin at one; parts of a block begin where it does, as far as they divide it.
        std::int64_t const origin = traits.blockOrigin.data()[axis];
        std::int64_t const block = floorDivided(min - origin, natural[axis]) * natural[axis] + origin;
        first_[axis] = step_[axis] < natural[axis] ? block + (min - block) / step_[axis] * step_[axis] : block;
        if (step_[axis] >= max - min) {
            first_[axis] = min;
        }
        count_[axis] = (max - first_[axis] + step_[axis] - 1) / step_[axis];
        size_ *= count_[axis];
        largest_ *= std::min(step_[axis], max - min);
    }
}

// Samples per axis of a box: the natural block, cut from the slowest axis on, or as many as there is room for.
void Blocks::fit(std::array<std::int64_t, 4> const& natural, std::int64_t budget) {
    std::array<std::int64_t, 4> length{};
    std::int64_t samples = 1;
    for (std::size_t axis = 0; axis < 4; ++axis) {
        length[axis] = range_.size(static_cast<int>(axis));
        step_[axis] = std::min(natural[axis], length[axis]);
        samples *= step_[axis];
    }
    for (int const axis : order_) {
        auto& step = step_[static_cast<std::size_t>(axis)];
        std::int64_t const others = samples / step;
        if (samples > budget) {
            step = std::max<std::int64_t>(budget / others, 1);
            samples = others * step;
        }
    }
    for (auto axis = order_.rbegin(); axis != order_.rend(); ++axis) {
        auto const at = static_cast<std::size_t>(*axis);
        std::int64_t const others = samples / step_[at];
        if (step_[at] < std::min(natural[at], length[at])) {
            return;  // was cut for want of room
        }
        std::int64_t const blocks = std::max<std::int64_t>(budget / (others * natural[at]), 1);
        std::int64_t const grown = blocks * natural[at];
        // All of an axis, even if the range does not begin at a block, counts what is read.
        step_[at] = grown >= length[at] ? std::max(length[at], natural[at]) : grown;
        samples = others * std::min(step_[at], length[at]);
        if (step_[at] < length[at]) {
            return;
        }
    }
}

Blocks::Box Blocks::operator[](std::int64_t n) const noexcept {
    Box box;
    for (auto axis = order_.rbegin(); axis != order_.rend(); ++axis) {
        auto const at = static_cast<std::size_t>(*axis);
        std::int64_t const min = first_[at] + n % count_[at] * step_[at];
        n /= count_[at];
        box.min.data()[at] = static_cast<int>(std::max<std::int64_t>(min, range_.min.data()[at]));
        box.max.data()[at] = static_cast<int>(std::min<std::int64_t>(min + step_[at], range_.max.data()[at]));
    }
    return box;
}

}  // namespace Quorvel::Dravik::Adt::BulkView
