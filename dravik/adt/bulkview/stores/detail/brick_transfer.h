// SPDX-License-Identifier: Apache-2.0
#pragma once

// BrickTransfer: one region between a store, the bricks of it that a pool holds, and an array. Threads: one.

#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/bulkview/stores/detail/brick_table.h"
#include "dravik/adt/bulkview/stores/detail/bricking.h"

#include <array>
#include <cstdint>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// Serves one request. Refers to all that it is made of.
///
/// Bricks in the pool serve their samples. Of the others, those of which the region wants all pass between the store
/// and the array and leave the pool as it is, several as one box where they lie side by side; the rest are fetched into
/// the pool. A brick without a wanted sample is not looked at.
class BrickTransfer {
  public:
    BrickTransfer(
        Bricking const& bricking, BrickTable& table, BrickTable::StorePtr const& store, RegionRequest const& request,
        RegionTransfer& transfer);

    void run();

  private:
    using Box = OpenEndedRange<4, int>;

    // What one brick has of the region along one axis.
    struct Cut {
        int firstPlace;
        int endPlace;
        int brickMin;
        int brickMax;
        int min;  // of the indices that pass, where no brick of the pool serves
        int max;
        bool isStraight;  // nothing else of the brick is wanted or has to stay
    };

    std::vector<Cut> cutsAlong(int axis, Bricking const& bricking) const;
    Cut cutAt(int axis, int place, Bricking const& bricking) const;
    void setStraight(int axis, Cut& cut) const;

    // Boxes below count cuts, along each axis.

    void move(Box const& cuts);
    void moveBrick(Box const& cuts);
    bool tryStraight(Box const& cuts);
    bool isStraight(Box const& cuts) const;
    bool isWithinLimit(Box const& cuts) const;
    bool claim(Box const& cuts, BrickTable::Claims& claims) const;
    void moveStraight(Box const& box, Box const& places);
    void readSteps(Box const& box, Box const& places);
    void copy(void* samples, BufferHandle::ArrayInfo const& info, Box const& places);
    char* arrayMemory(Box const& box, Box const& places) const;
    char* arrayMemory(Box const& places) const;
    template <class Visit>
    bool everyBrick(Box const& cuts, Visit visit) const;

    Box placesOf(Box const& cuts) const;
    Box brickOf(Box const& cuts) const;
    Box passingBox(Box const& cuts) const;

    BrickTable& table_;
    BrickTable::StorePtr const& store_;
    RegionRequest const& request_;
    RegionTransfer& transfer_;
    bool isRead_;
    bool hasSteps_ = false;  // and the store serves them
    std::array<std::vector<Cut>, 4> cuts_;
    std::vector<char> scratch_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
