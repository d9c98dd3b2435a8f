// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/shared/mapped_array.h"

#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/files/shared/dense_box.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Quorvel::Dravik::Files {

namespace {

std::int64_t positionOf(
    std::int64_t first, Adt::FixedVector<4, int> const& place, Adt::FixedVector<4, std::int64_t> const& strides) {
    for (int axis = 0; axis < 4; ++axis) {
        first += place[axis] * strides[axis];
    }
    return first;
}

}  // namespace

MappedArray::MappedArray(
    MappedFile const& file, std::int64_t firstByte, Adt::FixedVector<4, int> const& size, std::type_info const& type,
    std::endian order)
    : file_(file), firstByte_(firstByte), size_(size), sampleBytes_(Adt::TypeRegister::sizeofTypeInBits(type) / 8) {
    if (sampleBytes_ > 1 && order != std::endian::native) {
        swap_.emplace(type);
    }
}

void MappedArray::read(Box const& box, void* samples) const {
    auto* to = static_cast<char*>(samples);
    file_.access([&] {
        forEachRun(size_, box, [&, run = std::int64_t{0}](std::int64_t position, std::int64_t count) mutable {
            file_.settleAfter(run++);
            move(at(position), to, count);
            to += count * sampleBytes_;
        });
    });
}

void MappedArray::write(Box const& box, void const* samples) const {
    auto const* from = static_cast<char const*>(samples);
    file_.access([&] {
        forEachRun(size_, box, [&, run = std::int64_t{0}](std::int64_t position, std::int64_t count) mutable {
            file_.settleAfter(run++);
            move(from, at(position), count);
            from += count * sampleBytes_;
        });
    });
}

void MappedArray::readSteps(Adt::ExtentK<4, int> const& region, void* samples) const {
    // Rows along the last axis of several indices.
    int row = 3;
    while (row > 0 && region[row].count == 1) {
        --row;
    }
    Adt::FixedVector<4, std::int64_t> strides;  // from one index wanted to the next, in samples
    std::int64_t reach = 1, first = 0;
    for (int axis = 3; axis >= 0; reach *= size_[axis--]) {
        strides[axis] = reach * region[axis].step;
        first += reach * region[axis].origin;
    }
    auto* to = static_cast<char*>(samples);
    file_.access([&] {
        Adt::FixedVector<4, int> place;
        for (std::int64_t number = 0, from = first; from >= 0; ++number) {
            file_.settleAfter(number);
            readRow(at(from), strides[row], to, region[row].count);
            to += region[row].count * sampleBytes_;
            from = -1;
            for (int axis = row - 1; axis >= 0 && from < 0; --axis) {
                bool const isPast = ++place[axis] == region[axis].count;
                place[axis] = isPast ? 0 : place[axis];
                from = isPast ? -1 : positionOf(first, place, strides);
            }
        }
    });
}

void MappedArray::readRow(char const* from, std::int64_t stride, char* to, int count) const {
    if (stride == 1 || count == 1) {
        move(from, to, count);
    } else if (stride > std::numeric_limits<int>::max()) {
        for (int number = 0; number < count; ++number) {
            move(from + number * stride * sampleBytes_, to + number * sampleBytes_, 1);
        }
    } else if (swap_) {
        swap_->convertStrided(from, 0, static_cast<int>(stride), to, 0, 1, count);
    } else {
        auto const& copy =
            Adt::Converters::ValueConverterFactory::getCopyConverterRef(static_cast<int>(8 * sampleBytes_));
        copy.convertStrided(from, 0, static_cast<int>(stride), to, 0, 1, count);
    }
}

// In pieces that stay at hand between the copy and the swap; samples behind a header need not be aligned.
void MappedArray::move(char const* from, char* to, std::int64_t count) const {
    constexpr std::int64_t kPiece = 4096;  // samples
    if (!swap_) {
        std::memcpy(to, from, static_cast<std::size_t>(count * sampleBytes_));
        return;
    }
    for (std::int64_t done = 0; done < count; done += kPiece) {
        std::int64_t const now = std::min(kPiece, count - done);
        swap_->convertContiguous(from + done * sampleBytes_, 0, to + done * sampleBytes_, 0, static_cast<int>(now));
    }
}

}  // namespace Quorvel::Dravik::Files
