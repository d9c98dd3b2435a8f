// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/blocks.h"
#include "dravik/adt/bulkview/regions/detail/dense_blocks.h"
#include "dravik/adt/bulkview/regions/detail/region_checks.h"
#include "dravik/adt/bulkview/regions/detail/workers.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/converters/type_register.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Box = OpenEndedRange<4, int>;

// The type in which samples are handed over: the target's, so that only reading converts.
std::type_info const& handedOver(AccessTraits const& from, AccessTraits const& to, TransferOptions const& options) {
    std::type_info const& type = *to.sampleType != typeid(void) ? *to.sampleType
                                 : options.converter != nullptr ? options.converter->getOutputType()
                                                                : *from.sampleType;
    if (type == typeid(void)) {
        throw std::invalid_argument("[copyRegion] Invalid argument: neither accessor tells its sample type.");
    }
    return type;
}

std::int64_t samplesOf(FixedVector<4, int> const& naturalBlock, Box const& whole) {
    std::int64_t samples = 1;
    for (int axis = 0; axis < 4; ++axis) {
        samples *=
            std::clamp(naturalBlock.data()[axis], 1, whole.size(axis) > 0 ? static_cast<int>(whole.size(axis)) : 1);
    }
    return samples;
}

}  // namespace

void copyRegion(IBufferAccessor& from, IBufferAccessor& to, TransferOptions const& options) {
    auto const whole = Box::OfSize(to.getSize());
    if (from.getSize() != whole.max) {
        Detail::refuseRegion<std::invalid_argument>(
            "samples of size ", from.getSize(), " do not fit into the size ", whole.max, ".");
    }
    if (whole.isEmpty()) {
        return;
    }
    AccessTraits const source = traitsOf(from), target = traitsOf(to);
    std::type_info const& type = handedOver(source, target, options);
    Detail::converterOf(*source.sampleType, type, options.converter);  // refused before anything is asked
    int const bitSize = TypeRegister::sizeofTypeInBits(type);
    int const most = std::max(options.workers, 1);
    // Blocks of the target are never cut between two workers.
    std::int64_t const budget =
        std::max(options.byteBudget * 8 / bitSize / most, samplesOf(target.naturalBlock, whole));
    Blocks const blocks(target, whole, std::max<std::int64_t>(budget, 1));
    std::int64_t const bytesEach = (blocks.sampleCount() * bitSize + 7) / 8;
    int const workers =
        bitSize % 8 != 0 ? 1 : Detail::workersFor(options, {&source, &target}, blocks.size(), bytesEach);
    Detail::ChainPerWorker const sources(from, workers), targets(to, workers);
    std::vector<std::vector<char>> memory(static_cast<std::size_t>(workers));
    Detail::Progress progress(options, whole.pointCount());
    Detail::forEachPiece(options, workers, blocks.size(), [&](int worker, std::int64_t piece) {
        auto& own = memory[static_cast<std::size_t>(worker)];
        own.resize(static_cast<std::size_t>(bytesEach));
        auto const box = blocks[piece];
        auto const array = Detail::denseArray(own.data(), box, type, bitSize);
        TransferOptions reading, writing;
        reading.stop = writing.stop = options.stop;
        reading.converter = options.converter;
        readRegion(sources[worker], ExtentK<4, int>(box), array, reading);
        writeRegion(targets[worker], ExtentK<4, int>(box), array, writing);
        progress.add(worker, box.pointCount());
    });
    progress.finish();
}

}  // namespace Quorvel::Dravik::Adt::BulkView
