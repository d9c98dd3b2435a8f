// SPDX-License-Identifier: Apache-2.0
#pragma once

// SlowCache: the rules of the block cache, literally: one entry after the other, one step after the other. Threads: as
// std::vector.

#include "dravik/adt/bulkview/buffer_handle.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <optional>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

struct CacheLimits {
    int sampleBudget, halfDensityThreshold, fullDensityThreshold;
};

/// What a cache of `axes` axes does, for scripts that ask both. `Loan` is a record like that of a handle.
template <class Loan>
class SlowCacheOf {
  public:
    struct Entry {
        Loan loan;
        int next;  ///< the entry that served the request after this one
    };

    SlowCacheOf(int axes, CacheLimits const& limits) : axes_(axes), limits_(limits) {}

    /// The block that serves the request, if one does.
    std::optional<Loan> lookUp(FixedVector<4, int> const& p, BulkView::AdtEnums::Access access) {
        if (isIndex(predicted_) && matches(predicted_, p, access)) {
            previous_ = predicted_;
            predicted_ = at(previous_).next;
            return at(previous_).loan;
        }
        if (!contains(covered_, p) || entries_.empty()) {
            return std::nullopt;
        }
        int const n = size();
        bool const backward = backward_;
        int i = backward ? n - 1 : 0;
        for (int remaining = n; !matches(i, p, access); i += backward ? -1 : 1) {
            if (remaining == n / 2) {
                backward_ = !backward;
            }
            if (--remaining == 0) {
                return std::nullopt;
            }
        }
        if (isIndex(previous_)) {
            at(previous_).next = i;
        }
        previous_ = i;
        predicted_ = at(i).next;
        return at(i).loan;
    }

    /// Keeps what the target answered.
    void store(Loan const& loan) {
        Box const& box = loan.info.range;
        auto const s = static_cast<unsigned>(count(box));
        unsigned const old = samples_;
        samples_ += s;
        covered_ = covered_.bounding(box);
        auto const c = std::min<std::int64_t>(count(covered_), UINT_MAX);
        auto const n = static_cast<unsigned>(size());
        if (samples_ > static_cast<unsigned>(limits_.sampleBudget) ||
            (n >= static_cast<unsigned>(limits_.fullDensityThreshold) && c > samples_) ||
            (n >= static_cast<unsigned>(limits_.halfDensityThreshold) && c / 2 >= old)) {
            entries_.clear();
            samples_ = s;
            previous_ = predicted_ = -1;
            covered_ = box;
        }
        if (isIndex(previous_)) {
            at(previous_).next = size();
        }
        previous_ = size();
        predicted_ = -1;
        entries_.push_back({loan, -1});
    }

    /// Removes entries; whether there were any to remove.
    template <class IsGone>
    bool forget(IsGone isGone) {
        return std::erase_if(entries_, [&](Entry const& entry) { return isGone(entry.loan); }) != 0;
    }

    std::vector<Entry> const& entries() const { return entries_; }

  private:
    using Box = OpenEndedRange<4, int>;
    using Position = FixedVector<4, int>;

    int size() const { return static_cast<int>(entries_.size()); }
    bool isIndex(int i) const { return i >= 0 && i < size(); }
    Entry& at(int i) { return entries_.at(static_cast<std::size_t>(i)); }
    bool contains(Box const& box, Position const& p) const {
        bool inside = true;
        for (int a = 0; a < axes_; ++a) {
            inside = inside && box.min[a] <= p[a] && p[a] < box.max[a];
        }
        return inside;
    }
    bool matches(int i, Position const& p, BulkView::AdtEnums::Access access) {
        Loan const& loan = at(i).loan;
        return contains(loan.info.range, p) && (access == loan.access || access == BulkView::AdtEnums::Read) &&
               !loan.invalidated;
    }
    std::int64_t count(Box const& box) const {
        std::int64_t product = 1;
        for (int a = 0; a < axes_; ++a) {
            product *= std::max<std::int64_t>(box.size(a), 0);
        }
        return product;
    }

    int axes_;
    CacheLimits limits_;
    std::vector<Entry> entries_;
    int previous_ = -1;
    int predicted_ = -1;
    bool backward_ = false;
    Box covered_;
    unsigned samples_ = 0;
};

using SlowCache = SlowCacheOf<BulkView::BufferHandle::Loan>;

}  // namespace Quorvel::Dravik::Adt::Testing
