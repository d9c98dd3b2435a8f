// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/padding.h"

#include "dravik/adt/bulkview/regions/detail/region_checks.h"
#include "dravik/adt/bulkview/regions/detail/strided_copy.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

constexpr int kNowhere = -1;

std::int64_t modulo(std::int64_t value, std::int64_t divisor) {
    std::int64_t const rest = value % divisor;
    return rest < 0 ? rest + divisor : rest;
}

// The index inside [0, size) that stands for `index`.
std::int64_t standIn(std::int64_t index, std::int64_t size, Boundary boundary) {
    if (0 <= index && index < size) {
        return index;
    }
    switch (boundary) {
    case Boundary::Nearest:
        return std::clamp<std::int64_t>(index, 0, size - 1);
    case Boundary::Reflect: {
        std::int64_t const period = std::max<std::int64_t>(2 * (size - 1), 1);
        std::int64_t const place = modulo(index, period);
        return std::min(place, period - place) % size;
    }
    case Boundary::Wrap:
        return modulo(index, size);
    default:
        return kNowhere;
    }
}

// Per axis, the index inside that each place of the region shows.
struct Shown {
    std::array<std::vector<std::int64_t>, 4> indices;
    OpenEndedRange<4, int> box;  // the smallest that holds them all

    Shown(ExtentK<4, int> const& region, FixedVector<4, int> const& size, Boundary boundary) {
        for (std::size_t axis = 0; axis < 4; ++axis) {
            auto const& along = region.data()[axis];
            std::int64_t low = size.data()[axis], high = -1;
            for (std::int64_t place = 0; place < along.count; ++place) {
                std::int64_t const index = standIn(along.origin + place * along.step, size.data()[axis], boundary);
                indices[axis].push_back(index);
                low = index == kNowhere ? low : std::min(low, index);
                high = std::max(high, index);
            }
            box.min.data()[axis] = static_cast<int>(low);
            box.max.data()[axis] = static_cast<int>(high + 1);
        }
    }
};

// Samples to copy along the last axis from place `start` on: as many as lie evenly apart inside.
std::int64_t evenRun(std::vector<std::int64_t> const& indices, std::size_t start) {
    std::size_t end = start + 1;
    while (end < indices.size() && indices[end] != kNowhere &&
           (end == start + 1 || indices[end] - indices[end - 1] == indices[start + 1] - indices[start])) {
        ++end;
    }
    return static_cast<std::int64_t>(end - start);
}

void copyRows(Shown const& shown, SharedArray<4> const& inside, ArrayRef<4> const& to, FixedVector<4, int> const& row) {
    auto const& last = shown.indices[3];
    std::int64_t from = inside.bufferOffset(), position = to.bufferOffset();
    for (std::size_t axis = 0; axis < 3; ++axis) {
        std::int64_t const place = row.data()[axis];
        std::int64_t const index = shown.indices[axis][static_cast<std::size_t>(place)];
        if (index == kNowhere) {
            return;
        }
        from += (index - shown.box.min.data()[axis]) * inside.strides().data()[axis];
        position += place * to.strides().data()[axis];
    }
    for (std::size_t at = 0; at < last.size();) {
        if (last[at] == kNowhere) {
            ++at;
            continue;
        }
        std::int64_t const count = evenRun(last, at);
        std::int64_t const apart = count == 1 ? 0 : last[at + 1] - last[at];
        Detail::StridedCopy copy{};
        copy.from = {inside.data(), from + (last[at] - shown.box.min[3]) * inside.strides()[3], inside.bitSize()};
        copy.to = {to.data(), position + static_cast<std::int64_t>(at) * to.strides()[3], to.bitSize()};
        std::fill(copy.axes, copy.axes + 3, Detail::CopyAxis{1, 0, 0});
        copy.axes[3] = {count, apart * inside.strides()[3], to.strides()[3]};
        Detail::copyStrided(copy);
        at += static_cast<std::size_t>(count);
    }
}

}  // namespace

void readPadded(
    IBufferAccessor& accessor, ExtentK<4, int> const& region, ArrayRef<4> const& destination, Boundary boundary,
    TransferOptions const& options) {
    if (region.isEmpty()) {
        return;
    }
    Detail::requireFit(region, destination);
    Shown const shown(region, accessor.getSize(), boundary);
    if (shown.box.isEmpty()) {
        return;
    }
    auto const inside = SharedArray<4>::Make(shown.box, destination.valueType(), destination.bitSize());
    readRegion(accessor, ExtentK<4, int>(shown.box), inside, options);
    auto const& counts = destination.range();
    FixedVector<4, int> row;
    for (row[0] = 0; row[0] < counts.size(0); ++row[0]) {
        for (row[1] = 0; row[1] < counts.size(1); ++row[1]) {
            for (row[2] = 0; row[2] < counts.size(2); ++row[2]) {
                copyRows(shown, inside, destination, row);
            }
        }
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView
