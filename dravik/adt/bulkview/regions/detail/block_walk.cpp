// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/block_walk.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

BlockWalk::BlockWalk(
    IBufferAccessor& accessor, ExtentK<4, int> const& extent, AdtEnums::Access access, BufferHandle& handle)
    : accessor_(accessor), extent_(extent), access_(access), handle_(handle) {
    Box whole;
    for (int axis = 0; axis < 4; ++axis) {
        whole.max.data()[axis] = extent.data()[axis].count;
    }
    rest_.push_back(whole);
}

void BlockWalk::fetch() {
    auto const index = nextIndex();
    OpenEndedRange<4, int> block;
    if (handle_.isInvalidated()) {
        handle_.reset(/*releaseOwner=*/true);
    }
    for (bool isFetched = false; !isFetched;) {
        notices_ = handle_.notices();
        accessor_.getBuffer(index, access_, handle_);
        block = handle_.range4();
        isFetched = stands();
        isFetched ? void() : handle_.reset(/*releaseOwner=*/true);
    }
    if (!block.contains(index)) {
        std::ostringstream text;
        text << "[BulkView] The block " << block << " does not contain the position asked for: " << index;
        throw std::logic_error(text.str());
    }
    places_ = servedBy(block);
}

void BlockWalk::advance() {
    Box rest = rest_.back();
    rest_.pop_back();
    // Slabs beside what was served, whole along the axes to come: they start where blocks start.
    for (int axis = 0; axis < 4; ++axis) {
        int const end = places_.max.data()[axis];
        if (end < rest.max.data()[axis]) {
            Box slab = rest;
            slab.min.data()[axis] = end;
            rest_.push_back(slab);
            rest.max.data()[axis] = end;
        }
    }
}

FixedVector<4, int> BlockWalk::nextIndex() const {
    FixedVector<4, int> index;
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = extent_.data()[axis];
        index.data()[axis] = static_cast<int>(along.origin + std::int64_t{rest_.back().min.data()[axis]} * along.step);
    }
    return index;
}

BlockWalk::Box BlockWalk::servedBy(OpenEndedRange<4, int> const& block) const {
    Box served = rest_.back();
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = extent_.data()[axis];
        std::int64_t const reach = std::int64_t{block.max.data()[axis]} - along.origin;
        std::int64_t const end = (reach + along.step - 1) / along.step;
        int& max = served.max.data()[axis];
        max = static_cast<int>(std::min<std::int64_t>(max, end));
    }
    return served;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
