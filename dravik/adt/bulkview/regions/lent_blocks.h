// SPDX-License-Identifier: Apache-2.0
#pragma once

// LentBlocks: the blocks of an accessor one after the other, without a copy. Threads: the one of the chain;
// notifications from any.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView {

/// The accessor's own blocks cut to a range, on loan for reading. They cover the range once; on a regular bricking each
/// brick that meets it is asked for once.
///
/// An input range: a block is on loan until the next increment. Refers to the accessor and is the client of the chain
/// meanwhile, which has none afterwards.
///
///     for (LentBlocks::Block const& block : LentBlocks(accessor, range, typeid(float), 32)) { … }
class DRAVIK_ADT_EXPORT LentBlocks {
  public:
    struct Block {
        OpenEndedRange<4, int> box;  ///< the part of the range that the block covers
        /// The samples of `box` under the indices of the accessor, in the block's memory; without memory where the
        /// block has none: then all of them are missing.
        ArrayConstRef<4> samples;
    };
    class Iterator;

    /// Of samples of `type` and `bitSize` bits each, which are believed where the accessor does not tell its own.
    /// @throws std::out_of_range for a range that reaches outside the accessor; std::invalid_argument for another type
    /// or size of samples than the accessor tells, and for samples of neither 1 bit nor whole bytes
    LentBlocks(IBufferAccessor& accessor, OpenEndedRange<4, int> const& range, std::type_info const& type, int bitSize);
    LentBlocks(LentBlocks const&) = delete;
    LentBlocks& operator=(LentBlocks const&) = delete;
    ~LentBlocks();

    /// At the block on loan, at first the first one.
    /// @throws what the accessor throws; std::logic_error for a block that does not contain the position asked for
    Iterator begin();
    static std::default_sentinel_t end() noexcept { return {}; }

    /// Whether the block is on loan still. What was read of it before counts only then; otherwise `lendAgain`.
    bool stands() const noexcept;
    /// Asks for the block once more; its box may be another one, which begins at the same index.
    /// @pre the range is not at its end
    /// @throws as begin, with no block on loan; may be called again
    void lendAgain();

  private:
    class Loans;

    void goOn();

    std::unique_ptr<Loans> loans_;
    Block block_;
};

/// Refers to the blocks.
class LentBlocks::Iterator {
  public:
    using iterator_concept = std::input_iterator_tag;
    using value_type = Block;
    using difference_type = std::ptrdiff_t;

    explicit Iterator(LentBlocks& blocks) noexcept : blocks_(&blocks) {}

    Block const& operator*() const noexcept { return blocks_->block_; }
    Block const* operator->() const noexcept { return &blocks_->block_; }
    /// @throws as LentBlocks::begin; `lendAgain` asks once more
    Iterator& operator++() { return blocks_->goOn(), *this; }
    void operator++(int) { blocks_->goOn(); }

    friend bool operator==(Iterator const& it, std::default_sentinel_t) noexcept { return it.isAtEnd(); }

  private:
    DRAVIK_ADT_EXPORT bool isAtEnd() const noexcept;

    LentBlocks* blocks_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
