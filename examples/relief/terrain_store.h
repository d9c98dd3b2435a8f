// SPDX-License-Identifier: Apache-2.0
#pragma once

// TerrainStore: a made-up world, for machines where no file of relief is at hand.

#include "grid_store.h"

namespace Relief {

/// Heights in metres of a planet with oceans, shelves and mountain chains, computed as they are read.
///
/// Rows run from the south pole to the north pole, columns once around the globe; the same index gives the same height
/// whatever box it is read in.
class TerrainStore final : public GridStore {
  public:
    TerrainStore(int rows, int columns) : rows_(rows), columns_(columns) {}

    Position size() const override { return {rows_, columns_, 1, 1}; }
    void read(Box const& box, void* samples) const override;

  private:
    int rows_;
    int columns_;
};

}  // namespace Relief
