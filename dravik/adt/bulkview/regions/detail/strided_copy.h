// SPDX-License-Identifier: Apache-2.0
#pragma once

// StridedCopy: samples from one strided block of memory to another. Threads: a call touches its two blocks alone.

#include "dravik/adt/converters/value_converter.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// One axis of a copy. Unit: samples of each side.
struct CopyAxis {
    std::int64_t count;
    std::int64_t from;  ///< stride where samples are read
    std::int64_t to;    ///< stride where they are written
};

/// Where one side of a copy starts. Position and size of a sample count samples and bits.
struct CopySide {
    char* data;
    std::int64_t position;
    int bitSize;
};

/// What is copied, axis 0 slowest. Where samples are written on top of each other, the last one in this order stays.
struct StridedCopy {
    CopySide from;
    CopySide to;
    CopyAxis axes[4];
    IValueConverter const* converter;  ///< null: samples are copied, and both sides have one size
};

/// Drops axes of one index, and unless samples are written on top of each other, turns axes so that they run upwards
/// where is written, sorts them by that and joins those that lie end to end on both sides. The axes that remain stand
/// at the end, the others count 1.
StridedCopy planned(StridedCopy copy) noexcept;

/// Whether two samples are written to the same place.
bool overlapsItself(CopyAxis const (&axes)[4]) noexcept;

/// @pre the sides do not share memory; samples take 1 bit or whole bytes
void copyStrided(StridedCopy const& copy);

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
