// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/detail/brick_transfer.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

// Bytes that pass at once: a stop has to be heeded now and then, and a scratch should stay in the cache.
constexpr std::int64_t kMostInArray = std::int64_t{1} << 26;
constexpr std::int64_t kMostInScratch = std::int64_t{1} << 21;

OpenEndedRange<4, int> oneCut(FixedVector<4, int> const& cut) {
    return OpenEndedRange<4, int>::OfSize(cut, FixedVector<4, int>::Filled(1));
}

int firstAxisToSplit(OpenEndedRange<4, int> const& cuts) {
    int axis = 0;
    while (axis < 4 && cuts.size(axis) == 1) {
        ++axis;
    }
    return axis;
}

}  // namespace

BrickTransfer::BrickTransfer(
    Bricking const& bricking, BrickTable& table, BrickTable::StorePtr const& store, RegionRequest const& request,
    RegionTransfer& transfer)
    : table_(table), store_(store), request_(request), transfer_(transfer), isRead_(request.access == AdtEnums::Read) {
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = request.region.data()[axis];
        hasSteps_ = hasSteps_ || (isRead_ && store->servesSteps() && along.count > 1 && std::abs(along.step) > 1);
        cuts_[static_cast<std::size_t>(axis)] = cutsAlong(axis, bricking);
    }
}

std::vector<BrickTransfer::Cut> BrickTransfer::cutsAlong(int axis, Bricking const& bricking) const {
    std::vector<Cut> cuts;
    int const count = request_.region.data()[axis].count;
    for (int place = 0; place < count; place = cuts.back().endPlace) {
        cuts.push_back(cutAt(axis, place, bricking));
    }
    return cuts;
}

BrickTransfer::Cut BrickTransfer::cutAt(int axis, int place, Bricking const& bricking) const {
    auto const& along = request_.region.data()[axis];
    std::int64_t const step = along.count == 1 ? 1 : along.step;
    FixedVector<4, int> index;
    index.data()[axis] = static_cast<int>(along.origin + place * step);
    auto const brick = bricking.boxAround(index);
    Cut cut{};
    cut.brickMin = brick.min.data()[axis];
    cut.brickMax = brick.max.data()[axis];
    std::int64_t const reach = step > 0 ? std::int64_t{cut.brickMax} - 1 - index.data()[axis]
                                        : std::int64_t{index.data()[axis]} - cut.brickMin;
    std::int64_t const wanted = std::min<std::int64_t>(reach / std::abs(step) + 1, along.count - place);
    cut.firstPlace = place;
    cut.endPlace = static_cast<int>(place + wanted);
    auto const last = static_cast<int>(index.data()[axis] + (wanted - 1) * step);
    cut.min = std::min(index.data()[axis], last);
    cut.max = std::max(index.data()[axis], last) + 1;
    setStraight(axis, cut);
    return cut;
}

void BrickTransfer::setStraight(int axis, Cut& cut) const {
    auto const& along = request_.region.data()[axis];
    int const places = cut.endPlace - cut.firstPlace;
    bool const isDense = cut.max - cut.min == places;
    if (store_->servesParts()) {
        cut.isStraight = isRead_ || isDense;
    } else if (!isRead_) {
        cut.isStraight = cut.brickMax - cut.brickMin == places;
    } else {
        // No index of the same steps before or after the region would meet the brick as well.
        std::int64_t const step = along.count == 1 ? 1 : std::abs(std::int64_t{along.step});
        std::int64_t const last = along.origin + (std::int64_t{along.count} - 1) * along.step;
        cut.isStraight = std::min<std::int64_t>(along.origin, last) - step < cut.brickMin &&
                         std::max<std::int64_t>(along.origin, last) + step >= cut.brickMax;
        cut.min = cut.brickMin;
        cut.max = cut.brickMax;
    }
}

void BrickTransfer::run() {
    Box all;
    for (int axis = 0; axis < 4; ++axis) {
        all.max.data()[axis] = static_cast<int>(cuts_[static_cast<std::size_t>(axis)].size());
    }
    move(all);
}

void BrickTransfer::move(Box const& cuts) {
    int const axis = firstAxisToSplit(cuts);
    if (axis == 4) {
        moveBrick(cuts);
    } else if (!tryStraight(cuts)) {
        Box low = cuts;
        Box high = cuts;
        int const middle = cuts.min.data()[axis] + static_cast<int>(cuts.size(axis) / 2);
        low.max.data()[axis] = middle;
        high.min.data()[axis] = middle;
        move(low);
        move(high);
    }
}

void BrickTransfer::moveBrick(Box const& cuts) {
    auto const box = brickOf(cuts);
    auto const places = placesOf(cuts);
    auto const access = isRead_ ? AdtEnums::Read : AdtEnums::ReadWrite;
    bool const mayBeHole = isRead_ && !store_->traits().writable;
    while (true) {
        transfer_.stop();
        auto brick = table_.find({store_.get(), box.min}, access);
        if (brick == nullptr && mayBeHole && !store_->hasSamples(box)) {
            copy(nullptr, {box, {}, /*offset=*/0}, places);
            break;
        }
        if (brick == nullptr && isStraight(cuts)) {
            if (tryStraight(cuts)) {
                return;
            }
            continue;  // another thread has it
        }
        if (brick == nullptr) {
            brick = table_.get(store_, box, access);
        }
        copy(brick->samples(), brick->info(), places);
        break;
    }
    transfer_.moved(places.pointCount());
}

// False, with nothing moved, where the pool has one of the bricks or the region wants only a part.
bool BrickTransfer::tryStraight(Box const& cuts) {
    if (!isStraight(cuts) || !isWithinLimit(cuts)) {
        return false;
    }
    transfer_.stop();
    auto const places = placesOf(cuts);
    {
        BrickTable::Claims claims(table_);
        if (!claim(cuts, claims)) {
            return false;
        }
        moveStraight(passingBox(cuts), places);
    }
    transfer_.moved(places.pointCount());
    return true;
}

bool BrickTransfer::isStraight(Box const& cuts) const {
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = cuts_[static_cast<std::size_t>(axis)];
        for (int number = cuts.min.data()[axis]; number < cuts.max.data()[axis]; ++number) {
            Cut const& cut = along[static_cast<std::size_t>(number)];
            if (!cut.isStraight) {
                return false;
            }
            if (number > cuts.min.data()[axis]) {
                Cut const& before = along[static_cast<std::size_t>(number - 1)];
                if (before.brickMax != cut.brickMin && cut.brickMax != before.brickMin) {
                    return false;
                }
            }
        }
    }
    return true;
}

// A box that is dense in the array may pass as a whole where parts of it would not be.
bool BrickTransfer::isWithinLimit(Box const& cuts) const {
    auto const box = passingBox(cuts);
    auto const places = placesOf(cuts);
    int const splitAxis = firstAxisToSplit(cuts);
    std::int64_t const bytes = (hasSteps_ ? places : box).pointCount() / 8 * store_->traits().bitSize;
    if (splitAxis == 4 || bytes <= kMostInScratch) {
        return true;
    }
    bool staysDense = true;
    for (int axis = 0; axis < splitAxis; ++axis) {
        staysDense = staysDense && places.size(axis) == 1;
    }
    char const* const memory = hasSteps_ ? arrayMemory(places) : arrayMemory(box, places);
    return memory != nullptr && (bytes <= kMostInArray || !staysDense);
}

// Of what nobody writes there is nothing to be kept from.
bool BrickTransfer::claim(Box const& cuts, BrickTable::Claims& claims) const {
    bool const isWritable = store_->traits().writable;
    return everyBrick(cuts, [&](Box const& box) {
        return isWritable ? claims.add(store_, box) : !table_.has({store_.get(), box.min}) && store_->hasSamples(box);
    });
}

template <class Visit>
bool BrickTransfer::everyBrick(Box const& cuts, Visit visit) const {
    FixedVector<4, int> at = cuts.min;
    for (int axis = 3; axis >= 0;) {
        if (!visit(brickOf(oneCut(at)))) {
            return false;
        }
        for (axis = 3; axis >= 0 && ++at.data()[axis] == cuts.max.data()[axis]; --axis) {
            at.data()[axis] = cuts.min.data()[axis];
        }
    }
    return true;
}

void BrickTransfer::moveStraight(Box const& box, Box const& places) {
    if (hasSteps_) {
        readSteps(box, places);
        return;
    }
    if (char* const memory = arrayMemory(box, places)) {
        isRead_ ? store_->read(box, memory) : store_->write(box, memory);
        return;
    }
    std::int64_t const bits = box.pointCount() * store_->traits().bitSize;
    scratch_.resize(std::max(scratch_.size(), static_cast<std::size_t>((bits + 7) / 8)));
    BufferHandle::ArrayInfo info{box, {}, /*offset=*/0};
    info.strides = denseStrides(box);
    if (isRead_) {
        store_->read(box, scratch_.data());
        copy(scratch_.data(), info, places);
    } else {
        copy(scratch_.data(), info, places);
        store_->write(box, scratch_.data());
    }
}

void BrickTransfer::readSteps(Box const& box, Box const& places) {
    ExtentK<4, int> upwards;
    // The request as to an accessor that has the wanted samples alone.
    RegionRequest dense = request_;
    Box const wanted = Box::OfSize(places.max - places.min);
    for (int axis = 0; axis < 4; ++axis) {
        auto const count = static_cast<int>(places.size(axis));
        int const step = count == 1 ? 1 : request_.region.data()[axis].step;
        upwards.data()[axis] = {box.min.data()[axis], std::abs(step), count};
        auto& along = dense.region.data()[axis];
        along.step = step < 0 ? -1 : 1;
        along.origin = step < 0 ? places.max.data()[axis] - 1 : -places.min.data()[axis];
    }
    if (char* const memory = arrayMemory(places)) {
        store_->readSteps(upwards, memory);
        return;
    }
    std::int64_t const bits = wanted.pointCount() * store_->traits().bitSize;
    scratch_.resize(std::max(scratch_.size(), static_cast<std::size_t>((bits + 7) / 8)));
    store_->readSteps(upwards, scratch_.data());
    BufferHandle handle;
    handle.update(scratch_.data(), {wanted, denseStrides(wanted), /*offset=*/0}, AdtEnums::Read);
    transfer_.copy(dense, handle, places);
}

void BrickTransfer::copy(void* samples, BufferHandle::ArrayInfo const& info, Box const& places) {
    BufferHandle handle;
    handle.update(samples, info, isRead_ ? AdtEnums::Read : AdtEnums::ReadWrite);
    transfer_.copy(request_, handle, places);
}

// Where the array has the samples of `box` just as the store passes them; null where it has not.
char* BrickTransfer::arrayMemory(Box const& box, Box const& places) const {
    for (int axis = 0; axis < 4; ++axis) {
        bool const isDense = places.size(axis) == 1 || request_.region.data()[axis].step == 1;
        if (places.size(axis) != box.size(axis) || !isDense) {
            return nullptr;
        }
    }
    return arrayMemory(places);
}

// Where the array has the samples at `places`, dense, in the store's type and upwards; null where it has not.
char* BrickTransfer::arrayMemory(Box const& places) const {
    auto const& array = request_.array;
    int const bits = array.bitSize();
    if (request_.converter != nullptr || bits % 8 != 0 || bits != store_->traits().bitSize) {
        return nullptr;
    }
    std::int64_t position = array.bufferOffset();
    std::int64_t dense = 1;
    for (int axis = 3; axis >= 0; --axis) {
        std::int64_t const stride = array.strides().data()[axis];
        if (places.size(axis) > 1 && (request_.region.data()[axis].step < 0 || stride != dense)) {
            return nullptr;
        }
        position += places.min.data()[axis] * stride;
        dense *= places.size(axis);
    }
    return array.data() + position * (bits / 8);
}

BrickTransfer::Box BrickTransfer::placesOf(Box const& cuts) const {
    Box places;
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = cuts_[static_cast<std::size_t>(axis)];
        places.min.data()[axis] = along[static_cast<std::size_t>(cuts.min.data()[axis])].firstPlace;
        places.max.data()[axis] = along[static_cast<std::size_t>(cuts.max.data()[axis] - 1)].endPlace;
    }
    return places;
}

BrickTransfer::Box BrickTransfer::brickOf(Box const& cuts) const {
    Box box;
    for (int axis = 0; axis < 4; ++axis) {
        auto const& cut = cuts_[static_cast<std::size_t>(axis)][static_cast<std::size_t>(cuts.min.data()[axis])];
        box.min.data()[axis] = cut.brickMin;
        box.max.data()[axis] = cut.brickMax;
    }
    return box;
}

BrickTransfer::Box BrickTransfer::passingBox(Box const& cuts) const {
    Box box;
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = cuts_[static_cast<std::size_t>(axis)];
        auto const& first = along[static_cast<std::size_t>(cuts.min.data()[axis])];
        auto const& last = along[static_cast<std::size_t>(cuts.max.data()[axis] - 1)];
        box.min.data()[axis] = std::min(first.min, last.min);
        box.max.data()[axis] = std::max(first.max, last.max);
    }
    return box;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
