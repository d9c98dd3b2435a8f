// SPDX-License-Identifier: Apache-2.0
#pragma once

// BrickGrid: a guess at the regular bricking that blocks lie on, so that the blocks around a position are found without
// looking at the others. Owns its table. Threads: as a standard container.

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {

/// Cells of equal size; blocks come in ascending numbers and are found again by the cell that they lie in.
///
/// Each axis is cut like the longest block along it, so blocks of a bricking lie in one cell each, those that are cut
/// off at the border of the data included. A block that crosses cells, or too many blocks in one cell, end the guess:
/// the grid is incomplete then, until it is started again. Only the speed of an answer rests on the guess. The cell of
/// an index never decreases with the index, so a block in one cell holds no position of another cell, whatever is
/// rounded on the way. Unit: absolute indices.
class BrickGrid {
  public:
    static constexpr int kNone = -1;
    using Position = FixedVector<4, int>;
    using Box = OpenEndedRange<4, int>;

    /// A grid that looks at the first `axes` axes. Full until a restart.
    explicit BrickGrid(int axes) noexcept : axes_(axes) {}

    /// Whether every block that came is found by its cell.
    bool isComplete() const noexcept { return complete_; }

    /// Whether `box`, which is not empty, is longer than the cells on some axis; cuts that axis like the box then. The
    /// blocks that came are to be taken in again, after a restart.
    bool widen(Box const& box) noexcept;

    /// Memory for `count` blocks.
    void reserve(std::size_t count);

    /// Whether a further block needs a larger table, which a restart makes.
    bool isFull() const noexcept { return 2 * older_.size() >= newest_.size(); }

    /// Forgets every block but not the cells; makes the table large enough for `count` blocks.
    /// @pre memory for `count` blocks is reserved
    void restart(std::size_t count) noexcept;

    /// Forgets the cells, too.
    void clear() noexcept;

    /// Takes in the next block. An empty one is never found.
    /// @pre complete and not full
    void add(Box const& box) noexcept;

    /// The block with the highest number among those in the cell of `position`, and the next lower one after `block`;
    /// kNone at the end. Blocks of other cells may be among them.
    template <int N>
    int newest(Position const& position) const noexcept {
        std::uint64_t key = 0;
        for (int axis = 0; axis < N; ++axis) {
            key += axisKey(axis, position.data()[axis]);
        }
        return newest_[bucket(key)];
    }
    int older(int block) const noexcept { return older_[static_cast<std::size_t>(block)]; }

  private:
    struct Axis {
        std::int64_t length = 0;  ///< indices per cell; 0 before the first block
        double low = 0;           ///< half an index below the first cell, which starts at or below every int
        double cellsPerIndex = 0;
    };

    // The half index keeps rounded products off the borders between cells.
    std::int64_t cell(int axis, int index) const noexcept {
        Axis const& cut = cuts_[static_cast<std::size_t>(axis)];
        return static_cast<std::int64_t>((index - cut.low) * cut.cellsPerIndex);
    }
    std::uint64_t axisKey(int axis, int index) const noexcept {
        constexpr std::uint64_t kOdd[] = {
            0x9e3779b97f4a7c15u, 0xc2b2ae3d27d4eb4fu, 0x165667b19e3779f9u, 0xd6e8feb86659fd93u};
        return static_cast<std::uint64_t>(cell(axis, index)) * kOdd[axis];
    }
    std::size_t bucket(std::uint64_t key) const noexcept { return static_cast<std::size_t>(key >> shift_); }
    int chainLength(int block) const noexcept;

    int axes_;
    bool complete_ = true;
    int shift_ = 0;  ///< takes the highest bits of a key
    std::array<Axis, 4> cuts_;
    std::vector<int> newest_;  ///< per bucket; as many as a power of two
    std::vector<int> older_;   ///< per block: the next lower one in its bucket
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail
