// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/dense_blocks.h"

#include "dravik/adt/bulkview/regions/detail/region_checks.h"
#include "dravik/adt/bulkview/regions/detail/workers.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <cstddef>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

ChainPerWorker::ChainPerWorker(IBufferAccessor& accessor, int workers)
    : first_(accessor), others_(static_cast<std::size_t>(workers - 1)) {
    if (workers > 1) {
        flush(accessor);  // what is still held back above the storage is seen by no clone
        std::generate(others_.begin(), others_.end(), [&] { return accessor.createClone(); });
    }
}

IBufferAccessor& ChainPerWorker::operator[](int worker) const noexcept {
    return worker == 0 ? first_ : *others_[static_cast<std::size_t>(worker - 1)];
}

int workersFor(
    TransferOptions const& options, std::initializer_list<AccessTraits const*> chains, std::int64_t pieceCount,
    std::int64_t bytesEach) {
    bool const mayShare = std::all_of(chains.begin(), chains.end(), [](AccessTraits const* traits) {
        return traits->concurrency == AccessTraits::Concurrency::PerClone;
    });
    if (!options.executor || !mayShare) {
        return 1;
    }
    std::int64_t const roomFor = options.byteBudget / std::max<std::int64_t>(bytesEach, 1);
    return static_cast<int>(std::max<std::int64_t>(std::min({std::int64_t{options.workers}, pieceCount, roomFor}), 1));
}

std::int64_t samplesOfBlock(AccessTraits const& traits, OpenEndedRange<4, int> const& range) {
    std::int64_t samples = 1;
    for (int axis = 0; axis < 4; ++axis) {
        samples *= std::clamp<std::int64_t>(traits.naturalBlock.data()[axis], 1, range.size(axis));
    }
    return samples;
}

ArrayRef<4> denseArray(char* memory, OpenEndedRange<4, int> const& box, std::type_info const& type, int bitSize) {
    return {box, SharedArray<4>::DenseStrides(box), memory, 0, type, bitSize};
}

void forEachDenseBlock(
    IBufferAccessor& accessor, Blocks const& blocks, std::type_info const& type, int bitSize,
    std::function<void(OpenEndedRange<4, int> const&, ArrayRef<4> const&)> const& work,
    TransferOptions const& options) {
    AccessTraits const traits = traitsOf(accessor);
    std::int64_t const bytesEach = (blocks.sampleCount() * bitSize + 7) / 8;
    int const workers = workersFor(options, {&traits}, blocks.size(), bytesEach);
    ChainPerWorker const chains(accessor, workers);
    std::vector<std::vector<char>> memory(static_cast<std::size_t>(workers));
    std::int64_t total = 0;
    for (auto const& box : blocks) {
        total += box.pointCount();
    }
    Progress progress(options, total);
    forEachPiece(options, workers, blocks.size(), [&](int worker, std::int64_t piece) {
        auto& own = memory[static_cast<std::size_t>(worker)];
        own.resize(static_cast<std::size_t>(bytesEach));
        auto const box = blocks[piece];
        ArrayRef<4> const array = denseArray(own.data(), box, type, bitSize);
        TransferOptions reading;
        reading.stop = options.stop;
        reading.converter = options.converter;
        readRegion(chains[worker], ExtentK<4, int>(box), array, reading);
        work(box, array);
        progress.add(worker, box.pointCount());
    });
    progress.finish();
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
