// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/region.h"

#include "dravik/adt/bulkview/regions/detail/region_checks.h"
#include "dravik/adt/bulkview/regions/detail/strided_copy.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Region = ExtentK<4, int>;
using Box = OpenEndedRange<4, int>;

void requireInside(Region const& region, FixedVector<4, int> const& size) {
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = region.data()[axis];
        std::int64_t const last = along.origin + (std::int64_t{along.count} - 1) * along.step;
        if (std::min<std::int64_t>(along.origin, last) < 0 ||
            std::max<std::int64_t>(along.origin, last) >= size.data()[axis]) {
            Detail::refuseRegion<std::out_of_range>(region, " reaches outside the size ", size, ".");
        }
    }
}

bool overlapsItself(ArrayRef<4> const& array) {
    Detail::CopyAxis axes[4];
    for (int axis = 0; axis < 4; ++axis) {
        axes[axis] = {array.range().size(axis), 0, array.strides().data()[axis]};
    }
    return Detail::overlapsItself(axes);
}

std::int64_t countOf(Region const& region) {
    return std::accumulate(
        region.data(), region.data() + 4, std::int64_t{1},
        [](std::int64_t count, auto const& along) { return count * along.count; });
}

void readDense(IBufferAccessor& accessor, RegionRequest const& request, RegionTransfer& transfer) {
    auto const& array = request.array;
    auto const dense = SharedArray<4>::Make(array.range(), array.valueType(), array.bitSize());
    auto apart = request;
    apart.array = dense;  // NOLINT(cppcoreguidelines-slicing): `dense` keeps the memory until the end
    transfer.start(accessor, apart);
    Detail::StridedCopy copy{};
    copy.from = {dense.data(), dense.bufferOffset(), dense.bitSize()};
    copy.to = {array.data(), array.bufferOffset(), array.bitSize()};
    for (int axis = 0; axis < 4; ++axis) {
        copy.axes[axis] = {array.range().size(axis), dense.strides().data()[axis], array.strides().data()[axis]};
    }
    Detail::copyStrided(copy);
}

// `count` samples of the request from place `start` on along `axis`.
RegionRequest partOf(RegionRequest request, int axis, int start, int count) {
    auto& along = request.region.data()[axis];
    along = {static_cast<int>(along.origin + std::int64_t{start} * along.step), along.step, count};
    auto& array = request.array;
    auto range = array.range();
    range.max.data()[axis] = range.min.data()[axis] + count;
    std::int64_t const offset = array.bufferOffset() + std::int64_t{start} * array.strides().data()[axis];
    std::int64_t const octets = offset >> 3;  // whole bytes of any type; an offset has 32 bits
    array.setData(array.data() + octets * array.bitSize());
    array.setBufferOffset(static_cast<int>(offset - octets * 8));
    array.setRange(range);
    return request;
}

// Blocks come in the storage's order. So samples that share a place are read beside each other first and then copied in
// their own order, part by part.
void readInOrder(IBufferAccessor& accessor, RegionRequest const& request, RegionTransfer& transfer) {
    constexpr std::int64_t kPart = 1 << 20;  // samples
    if (countOf(request.region) <= kPart) {
        readDense(accessor, request, transfer);
        return;
    }
    int axis = 0;
    while (request.region.data()[axis].count == 1) {
        ++axis;
    }
    int const count = request.region.data()[axis].count;
    readInOrder(accessor, partOf(request, axis, 0, count / 2), transfer);
    readInOrder(accessor, partOf(request, axis, count / 2, count - count / 2), transfer);
}

void transferRegion(IBufferAccessor& accessor, RegionRequest request, TransferOptions const& options) {
    if (request.region.isEmpty()) {
        return;
    }
    Detail::requireFit(request.region, request.array);
    bool const isRead = request.access == AdtEnums::Read;
    std::type_info const& below = *traitsOf(accessor).sampleType;
    std::type_info const& above = request.array.valueType();
    request.converter = isRead ? Detail::converterOf(below, above, options.converter)
                               : Detail::converterOf(above, below, options.converter);
    requireInside(request.region, accessor.getSize());
    RegionTransfer transfer(options, countOf(request.region));
    if (isRead && overlapsItself(request.array)) {
        readInOrder(accessor, request, transfer);
    } else {
        transfer.start(accessor, request);
    }
}

}  // namespace

void readRegion(
    IBufferAccessor& accessor, Region const& region, ArrayRef<4> const& destination, TransferOptions const& options) {
    transferRegion(accessor, {region, destination, AdtEnums::Read, options.converter}, options);
}

void writeRegion(
    IBufferAccessor& accessor, Region const& region, ArrayConstRef<4> const& source, TransferOptions const& options) {
    // Never written to: a request for any access but Read takes its samples from the array.
    ArrayRef<4> const array(
        source.range(), source.strides(), const_cast<char*>(source.data()), source.bufferOffset(), source.valueType(),
        source.bitSize());
    transferRegion(accessor, {region, array, AdtEnums::ReadWrite, options.converter}, options);
}

void flush(IBufferAccessor& accessor) {
    if (auto* const regions = dynamic_cast<IRegionAccess*>(&accessor)) {
        regions->flush();
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView
