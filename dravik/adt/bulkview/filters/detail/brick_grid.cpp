// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/detail/brick_grid.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {
namespace {

// Blocks of one cell are tried one after the other; beyond this many a scan over all blocks is no slower.
constexpr int kCrowd = 8;

// Twice the blocks, so that few of them share a bucket by chance.
std::size_t buckets(std::size_t count) {
    return std::bit_ceil(std::max<std::size_t>(2 * count, 16));
}

}  // namespace

bool BrickGrid::widen(Box const& box) noexcept {
    bool longer = false;
    for (int axis = 0; axis < axes_; ++axis) {
        Axis& cut = cuts_[static_cast<std::size_t>(axis)];
        std::int64_t const first = box.min.data()[axis];
        std::int64_t const length = box.max.data()[axis] - first;
        if (length > cut.length) {
            std::int64_t const cellsBelow = (first - std::numeric_limits<int>::min() + length - 1) / length;
            cut.length = length;
            cut.low = static_cast<double>(first - cellsBelow * length) - 0.5;
            cut.cellsPerIndex = 1.0 / static_cast<double>(length);
            longer = true;
        }
    }
    return longer;
}

void BrickGrid::reserve(std::size_t count) {
    newest_.reserve(buckets(count));
    older_.reserve(buckets(count) / 2);
}

void BrickGrid::restart(std::size_t count) noexcept {
    older_.clear();
    newest_.assign(buckets(count), kNone);
    shift_ = 64 - std::countr_zero(newest_.size());
    complete_ = true;
}

void BrickGrid::clear() noexcept {
    cuts_ = {};
    restart(0);
}

void BrickGrid::add(Box const& box) noexcept {
    older_.push_back(kNone);
    std::uint64_t key = 0;
    for (int axis = 0; axis < axes_; ++axis) {
        int const first = box.min.data()[axis];
        int const end = box.max.data()[axis];
        if (end <= first) {
            return;
        }
        complete_ = complete_ && cell(axis, first) == cell(axis, end - 1);
        key += axisKey(axis, first);
    }
    int& newest = newest_[bucket(key)];
    complete_ = complete_ && chainLength(newest) < kCrowd;
    older_.back() = newest;
    newest = static_cast<int>(older_.size()) - 1;
}

int BrickGrid::chainLength(int block) const noexcept {
    int length = 0;
    for (; block != kNone; block = older(block)) {
        ++length;
    }
    return length;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail
