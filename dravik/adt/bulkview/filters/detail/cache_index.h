// SPDX-License-Identifier: Apache-2.0
#pragma once

// CacheIndex: which kept block serves a request, and when the kept blocks are to be dropped. Knows the boxes of the
// blocks and never the blocks themselves. Owns its tables. Threads: as a standard container.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/bulkview/filters/detail/brick_grid.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {

/// The table of a block cache: entries numbered from 0 in the order of coming.
///
/// Every entry remembers which one served the request after it, so a sweep that repeats is answered by one range test
/// per request. Any other request goes to the first match in scan order, from either end of the table; the end changes
/// when a scan passes half of the table in vain. Where the entries lie on a regular bricking, that match is found
/// without scanning. Unit: absolute indices; box volumes in samples.
class CacheIndex {
  public:
    static constexpr int kNone = -1;
    using Position = FixedVector<4, int>;
    using Box = OpenEndedRange<4, int>;

    /// When a new block drops all others. Compared as unsigned, so a negative limit is never reached.
    struct Limits {
        int sampleBudget;          ///< samples kept at most
        int halfDensityThreshold;  ///< entries from which the kept blocks are to fill half of their bounding box
        int fullDensityThreshold;  ///< entries from which they are to fill all of it
    };

    /// An empty table that looks at the first `axes` axes: 2, 3 or 4.
    CacheIndex(int axes, Limits const& limits);

    int axes() const noexcept { return axes_; }
    Limits const& limits() const noexcept { return limits_; }

    /// The entry that serves a request, kNone when none does: its box holds `position` on the first N axes, and the
    /// access is that of the entry, or Read. The answer guides the next search.
    /// @pre N is the number of axes of this table
    /// @complexity O(1) where the sweep before is repeated or the entries lie on a bricking; else O(entries)
    template <int N>
    int lookUp(Position const& position, AdtEnums::Access access) noexcept {
        if (static_cast<unsigned>(predicted_) < static_cast<unsigned>(size_) &&
            serves<N>(predicted_, position, access)) {
            previous_ = predicted_;
            predicted_ = next_[static_cast<unsigned>(predicted_)];
            return previous_;
        }
        return search<N>(position, access);
    }

    /// Whether a new block of samples breaks a limit, so that every entry before it is to go.
    bool isResetBy(Box const& box) const noexcept;

    /// Takes in a block of samples, as number 0 if it resets the table and else as the last entry. An `unusable` one
    /// counts but never serves.
    /// @pre memory for it is reserved
    void store(Box const& box, AdtEnums::Access access, bool unusable) noexcept;

    /// The entries for which `isGone(number)` holds serve nothing any more.
    template <class IsGone>
    void bar(IsGone isGone) noexcept {
        for (int entry = 0; entry < size_; ++entry) {
            if (isGone(entry)) {
                setUnusable(entry);
            }
        }
    }

    /// Removes the entries for which `isGone(number)` holds. The others move up and keep their order; what they
    /// remember of one another is not renumbered, since every guess is tested before it is used.
    template <class IsGone>
    void remove(IsGone isGone) {
        int kept = 0;
        for (int entry = 0; entry < size_; ++entry) {
            if (!isGone(entry)) {
                move(entry, kept++);
            }
        }
        if (kept != size_) {
            shrink(kept);
        }
    }

    /// Memory for `count` entries.
    void reserve(int count);

    /// Goes on in the memory of `larger`, which gets the memory so far: for whoever must not get or give back memory
    /// where entries are stored.
    /// @pre `larger` is empty, looks at as many axes and has memory for the entries that are here
    void moveInto(CacheIndex& larger) noexcept;

  private:
    static constexpr int kLanes = 8;

    /// The boxes of some entries side by side, so that few instructions compare them all. Lanes without an entry hold
    /// an empty box.
    struct Group {
        Group() noexcept;
        int min[4][kLanes];
        int max[4][kLanes];
        AdtEnums::Access access[kLanes];
    };

    static int lane(int entry) noexcept { return static_cast<int>(static_cast<unsigned>(entry) % kLanes); }
    Group& group(int entry) noexcept { return groups_[static_cast<unsigned>(entry) / kLanes]; }
    Group const& group(int entry) const noexcept { return groups_[static_cast<unsigned>(entry) / kLanes]; }

    template <int N>
    bool serves(int entry, Position const& position, AdtEnums::Access access) const noexcept {
        Group const& at = group(entry);
        int const in = lane(entry);
        bool outside = false;
        for (int axis = 0; axis < N; ++axis) {
            int const index = position.data()[axis];
            outside = outside | (index < at.min[axis][in]) | (index >= at.max[axis][in]);
        }
        return !outside && (access == AdtEnums::Read || access == at.access[in]);
    }

    template <int N>
    int search(Position const& position, AdtEnums::Access access) noexcept;
    template <int N>
    int scan(Position const& position, AdtEnums::Access access) const noexcept;
    template <int N>
    int firstIn(int number, Position const& position, AdtEnums::Access access) const noexcept;
    template <int N>
    static bool holds(Group const& at, Position const& position) noexcept;
    template <int N>
    int guess(Position const& position, AdtEnums::Access access) const noexcept;

    void reset() noexcept;
    void append(Box const& box, AdtEnums::Access access) noexcept;
    void setEntry(int entry, Box const& box, AdtEnums::Access access) noexcept;
    void setUnusable(int entry) noexcept;
    Box boxOf(int entry) const noexcept;
    void link(int next) noexcept;
    void move(int from, int to) noexcept;
    void shrink(int size) noexcept;
    void guessAgain() noexcept;

    int axes_;
    Limits limits_;
    int size_ = 0;
    int previous_ = kNone;   ///< the entry that served the last request, or was stored last
    int predicted_ = kNone;  ///< the entry that served the request after it, the time before
    bool backward_ = false;  ///< whether the next scan starts at the last entry
    unsigned samples_ = 0;   ///< of all blocks since the last reset, modulo 2^32
    Box covered_;            ///< the bounding box of the same
    std::vector<Group> groups_;
    std::vector<int> next_;  ///< per entry: the one that served the request after it
    BrickGrid grid_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail
