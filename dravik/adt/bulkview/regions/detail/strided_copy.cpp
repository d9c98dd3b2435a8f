// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/strided_copy.h"

#include "dravik/adt/bulkview/regions/detail/copy_kernels.h"
#include "dravik/adt/converters/value_converter_factory.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

constexpr int kAxes = 4;

// Slowest first where is written. By hand: std::sort over so few warns of bounds that it keeps.
void sortByTarget(CopyAxis (&axes)[kAxes]) noexcept {
    for (int end = 1; end < kAxes; ++end) {
        for (int at = end; at > 0 && std::abs(axes[at - 1].to) < std::abs(axes[at].to); --at) {
            std::swap(axes[at - 1], axes[at]);
        }
    }
}

void turnUpwards(StridedCopy& copy) noexcept {
    for (CopyAxis& axis : copy.axes) {
        if (axis.to < 0) {
            copy.from.position += (axis.count - 1) * axis.from;
            copy.to.position += (axis.count - 1) * axis.to;
            axis.from = -axis.from;
            axis.to = -axis.to;
        }
    }
}

bool liesEndToEnd(CopyAxis const& outer, CopyAxis const& inner) noexcept {
    return outer.from == inner.from * inner.count && outer.to == inner.to * inner.count;
}

// Moves the axes of several indices to the end, joined where `mayJoin`.
void pack(CopyAxis (&axes)[kAxes]) noexcept {
    CopyAxis kept[kAxes] = {{1, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 0, 0}};
    int first = kAxes;
    for (int at = kAxes - 1; at >= 0; --at) {
        if (axes[at].count == 1) {
            continue;
        }
        if (first < kAxes && liesEndToEnd(axes[at], kept[first])) {
            kept[first].count *= axes[at].count;
        } else {
            kept[--first] = axes[at];
        }
    }
    std::copy(kept, kept + kAxes, axes);
}

// The samples from `position` on as converters take them: counted in 32 bits from a base at or below the lowest.
struct Base {
    char* data;
    int index;
};

Base baseOf(CopySide const& side, std::int64_t position, std::int64_t stride, std::int64_t count) noexcept {
    std::int64_t const lowest = std::min(position, position + (count - 1) * stride);
    // Eight samples are whole bytes of any type; an arithmetic shift rounds downwards.
    std::int64_t const octets = lowest >> 3;
    return {side.data + octets * side.bitSize, static_cast<int>(position - octets * 8)};
}

void convertRun(StridedCopy const& copy, std::int64_t from, std::int64_t to, CopyAxis const& run) {
    constexpr std::int64_t kFarthest = std::int64_t{1} << 30;
    std::int64_t const reach = std::max({std::abs(run.from), std::abs(run.to), std::int64_t{1}});
    // Most runs are short, and a division costs as much as the conversion of a row.
    bool const fits = run.count <= kFarthest && reach <= kFarthest && run.count * reach <= kFarthest;
    std::int64_t const most = fits ? run.count : std::max<std::int64_t>(kFarthest / reach, 1);
    for (std::int64_t done = 0; done < run.count; done += most) {
        std::int64_t const count = std::min(most, run.count - done);
        Base const in = baseOf(copy.from, from + done * run.from, run.from, count);
        Base const out = baseOf(copy.to, to + done * run.to, run.to, count);
        if (run.from == 1 && run.to == 1) {
            copy.converter->convertContiguous(in.data, in.index, out.data, out.index, static_cast<int>(count));
        } else {
            copy.converter->convertStrided(
                in.data, in.index, static_cast<int>(run.from), out.data, out.index, static_cast<int>(run.to),
                static_cast<int>(count));
        }
    }
}

// Calls act(from, to) with the positions of every row along the inner axes [kAxes - inner, kAxes).
template <class Act>
void forEachRow(StridedCopy const& copy, int inner, Act act) {
    std::int64_t counts[kAxes] = {1, 1, 1, 1};
    for (int axis = 0; axis < kAxes - inner; ++axis) {
        counts[axis] = copy.axes[axis].count;
    }
    auto const& axes = copy.axes;
    for (std::int64_t i = 0; i < counts[0]; ++i) {
        for (std::int64_t j = 0; j < counts[1]; ++j) {
            for (std::int64_t k = 0; k < counts[2]; ++k) {
                act(copy.from.position + i * axes[0].from + j * axes[1].from + k * axes[2].from,
                    copy.to.position + i * axes[0].to + j * axes[1].to + k * axes[2].to);
            }
        }
    }
}

// Whether neighbours along the innermost axis lie further apart where is read than those along the next one.
bool runsAcross(StridedCopy const& copy) noexcept {
    CopyAxis const& inner = copy.axes[3];
    CopyAxis const& across = copy.axes[2];
    return across.count > 1 && std::abs(across.from) < std::abs(inner.from) && !overlapsItself(copy.axes);
}

// Calls act(from, to, run) for every run along the innermost axis. Where the sides run across, rows are cut so that
// both stay in the processor's first cache.
template <class Act>
void forEachRun(StridedCopy const& copy, Act act) {
    constexpr std::int64_t kTile = 64;
    CopyAxis const& inner = copy.axes[3];
    CopyAxis const& across = copy.axes[2];
    if (!runsAcross(copy)) {
        forEachRow(copy, 1, [&](std::int64_t from, std::int64_t to) { act(from, to, inner); });
        return;
    }
    forEachRow(copy, 2, [&](std::int64_t from, std::int64_t to) {
        for (std::int64_t start = 0; start < inner.count; start += kTile) {
            CopyAxis const part{std::min(kTile, inner.count - start), inner.from, inner.to};
            for (std::int64_t row = 0; row < across.count; ++row) {
                act(from + start * inner.from + row * across.from, to + start * inner.to + row * across.to, part);
            }
        }
    });
}

// For the tiles: the axis that is densest where is read goes beside the one that is densest where is written.
void bringTogether(StridedCopy& copy) noexcept {
    int densest = 3;
    for (int axis = 2; axis >= 0; --axis) {
        auto const& [count, from, to] = copy.axes[axis];
        if (count > 1 && std::abs(from) < std::abs(copy.axes[densest].from)) {
            densest = axis;
        }
    }
    if (densest < 2) {
        std::rotate(copy.axes + densest, copy.axes + densest + 1, copy.axes + 3);
    }
}

void copyBytes(StridedCopy const& copy) {
    int const bytes = copy.to.bitSize / 8;
    CopyAxis const& inner = copy.axes[3];
    CopyAxis const& across = copy.axes[2];
    if (inner.to == 1 && across.from == 1 && across.count > 1 && across.to >= inner.count) {
        CopyAxis const& plane = copy.axes[1];
        forEachRow(copy, 3, [&](std::int64_t from, std::int64_t to) {
            transpose(
                {copy.from.data + from * bytes, inner.from * bytes, plane.from * bytes, copy.to.data + to * bytes,
                 across.to * bytes, plane.to * bytes, inner.count, across.count, plane.count},
                bytes);
        });
        return;
    }
    if (!runsAcross(copy)) {
        forEachRow(copy, 2, [&](std::int64_t from, std::int64_t to) {
            copyRows(
                {copy.from.data + from * bytes, inner.from, across.from},
                {copy.to.data + to * bytes, inner.to, across.to}, inner.count, across.count, bytes);
        });
        return;
    }
    forEachRun(copy, [&](std::int64_t from, std::int64_t to, CopyAxis const& run) {
        copyRows(
            {copy.from.data + from * bytes, run.from, 0}, {copy.to.data + to * bytes, run.to, 0}, run.count, 1, bytes);
    });
}

void convertAll(StridedCopy const& copy) {
    forEachRun(copy, [&](std::int64_t from, std::int64_t to, CopyAxis const& run) { convertRun(copy, from, to, run); });
}

}  // namespace

bool overlapsItself(CopyAxis const (&axes)[kAxes]) noexcept {
    CopyAxis sorted[kAxes];
    std::copy(axes, axes + kAxes, sorted);
    sortByTarget(sorted);
    std::int64_t reach = 0;  // of the faster axes, in samples
    for (int at = kAxes - 1; at >= 0; --at) {
        if (sorted[at].count == 1) {
            continue;
        }
        if (std::abs(sorted[at].to) <= reach) {
            return true;
        }
        reach += (sorted[at].count - 1) * std::abs(sorted[at].to);
    }
    return false;
}

StridedCopy planned(StridedCopy copy) noexcept {
    if (!overlapsItself(copy.axes)) {
        turnUpwards(copy);
        sortByTarget(copy.axes);
        pack(copy.axes);
        bringTogether(copy);
    }
    return copy;
}

void copyStrided(StridedCopy const& copy) {
    auto plan = planned(copy);
    if (plan.converter == nullptr && plan.to.bitSize % 8 != 0) {
        plan.converter = &Converters::ValueConverterFactory::getCopyConverterRef(plan.to.bitSize);
    }
    plan.converter == nullptr ? copyBytes(plan) : convertAll(plan);
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
