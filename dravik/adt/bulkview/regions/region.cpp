// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/region.h"

#include "dravik/adt/bulkview/regions/detail/region_checks.h"
#include "dravik/adt/bulkview/regions/detail/strided_copy.h"
#include "dravik/adt/bulkview/regions/detail/workers.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Region = ExtentK<4, int>;
using Box = OpenEndedRange<4, int>;

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

// The places along one axis at which pieces of a region begin: where natural blocks do.
struct Cut {
    int axis = 0;
    std::vector<int> starts{0};
};

std::int64_t floorDivided(std::int64_t a, std::int64_t b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

Cut cutAlong(int axis, ExtentImpl<int> const& along, AccessTraits const& traits, int most) {
    std::int64_t const natural = std::max(traits.naturalBlock.data()[axis], 1);
    auto const blockAt = [&](std::int64_t place) {
        return floorDivided(along.origin + place * along.step - traits.blockOrigin.data()[axis], natural);
    };
    Cut cut{axis, {0}};
    int const pieces = std::min(most, along.count);
    for (std::int64_t piece = 1; piece < pieces; ++piece) {
        // Near a place that divides the region evenly, the first one in another block than the place before it.
        std::int64_t place = std::max<std::int64_t>(piece * along.count / pieces, cut.starts.back() + 1);
        std::int64_t const block = place < along.count ? blockAt(place - 1) : 0;
        for (std::int64_t end = along.count; place < end;) {
            std::int64_t const middle = (place + end) / 2;
            (blockAt(middle) == block ? place : end) = blockAt(middle) == block ? middle + 1 : middle;
        }
        if (place < along.count) {
            cut.starts.push_back(static_cast<int>(place));
        }
    }
    return cut;
}

// The axes from the slowest on: those of the storage, or of the array where the storage can be cut anywhere, so that
// workers write apart from each other. The storage's fastest axis comes last in any case.
std::array<int, 4> fromSlowest(RegionRequest const& request, AccessTraits const& traits) {
    std::array<int, 4> axes{0, 1, 2, 3};
    bool const isAnyCutGood = traits.naturalBlock == FixedVector<4, int>();
    int const fastest = traits.fastestAxis < 0 ? 3 : traits.fastestAxis;
    auto const isBefore = [&](int one, int other) {
        auto const strideOf = [&](int axis) { return std::abs(std::int64_t{request.array.strides().data()[axis]}); };
        return one == fastest || other == fastest ? other == fastest && one != fastest
                                                  : isAnyCutGood && strideOf(one) > strideOf(other);
    };
    // By hand: std::sort over so few warns of bounds that it keeps.
    for (std::size_t end = 1; end < axes.size(); ++end) {
        for (std::size_t at = end; at > 0 && isBefore(axes[at], axes[at - 1]); --at) {
            std::swap(axes[at - 1], axes[at]);
        }
    }
    return axes;
}

// Along the slowest axis that gives enough pieces, else along the one that gives most.
Cut cutOf(RegionRequest const& request, AccessTraits const& traits, int workers) {
    Cut best;
    for (int const axis : fromSlowest(request, traits)) {
        auto cut = cutAlong(axis, request.region.data()[axis], traits, 4 * workers);
        bool const isFastest = axis == (traits.fastestAxis < 0 ? 3 : traits.fastestAxis);
        if (cut.starts.size() > best.starts.size() && (!isFastest || best.starts.size() == 1)) {
            best = std::move(cut);
        }
        if (best.starts.size() >= 2 * static_cast<std::size_t>(workers)) {
            break;
        }
    }
    return best;
}

bool mayBeShared(RegionRequest const& request, AccessTraits const& traits, TransferOptions const& options) {
    return options.executor && options.workers > 1 && traits.concurrency == AccessTraits::Concurrency::PerClone &&
           request.array.bitSize() % 8 == 0 && traits.bitSize % 8 == 0;
}

void transferByWorkers(
    IBufferAccessor& accessor, RegionRequest const& request, Cut const& cut, TransferOptions const& options) {
    // What is still held back above the storage is seen by no clone.
    flush(accessor);
    int const pieces = static_cast<int>(cut.starts.size());
    int const workers = std::min(options.workers, pieces);
    std::vector<std::unique_ptr<IBufferAccessor>> clones(static_cast<std::size_t>(workers));
    std::generate(clones.begin() + 1, clones.end(), [&] { return accessor.createClone(); });
    Detail::Progress progress(options, countOf(request.region));
    Detail::forEachPiece(options, workers, pieces, [&](int worker, std::int64_t piece) {
        auto const n = static_cast<std::size_t>(piece);
        int const end = piece + 1 < pieces ? cut.starts[n + 1] : request.region.data()[cut.axis].count;
        auto const part = partOf(request, cut.axis, cut.starts[n], end - cut.starts[n]);
        TransferOptions own;
        own.stop = options.stop;
        own.progress = progress.ofPiece(worker);
        RegionTransfer(own, countOf(part.region))
            .start(worker == 0 ? accessor : *clones[static_cast<std::size_t>(worker)], part);
    });
    progress.finish();
}

void transferRegion(IBufferAccessor& accessor, RegionRequest request, TransferOptions const& options) {
    if (request.region.isEmpty()) {
        return;
    }
    Detail::requireFit(request.region, request.array);
    bool const isRead = request.access == AdtEnums::Read;
    AccessTraits const traits = traitsOf(accessor);
    std::type_info const& below = *traits.sampleType;
    std::type_info const& above = request.array.valueType();
    request.converter = isRead ? Detail::converterOf(below, above, options.converter)
                               : Detail::converterOf(above, below, options.converter);
    Detail::requireInside(request.region, accessor.getSize());
    bool const isInOrder = isRead && overlapsItself(request.array);
    if (!isInOrder && mayBeShared(request, traits, options)) {
        if (auto const cut = cutOf(request, traits, options.workers); cut.starts.size() > 1) {
            return transferByWorkers(accessor, request, cut, options);
        }
    }
    RegionTransfer transfer(options, countOf(request.region));
    if (isInOrder) {
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
