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
    // Boxes enough to share out, though never a part of a block of the target.
    std::int64_t const share = most > 1 ? whole.pointCount() / (std::int64_t{4} * most) : whole.pointCount();
    std::int64_t const budget = std::min(options.byteBudget * 8 / bitSize / most, share);
    Blocks const blocks(target, whole, std::max(budget, Detail::samplesOfBlock(target, whole)));
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
