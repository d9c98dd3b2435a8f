// SPDX-License-Identifier: Apache-2.0
#pragma once

// ConcatFilter: accessors joined along an axis. Threads: as the chain it is part of; notifications from any thread.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/export.h"

#include <atomic>
#include <memory>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Shows its parts one behind the other along an axis, under indices that go on from one to the next. A stack is a join
/// along an axis on which each part has size 1.
///
/// Owns the parts. Samples are not touched: each part's blocks are handed up where they are, cut to the part. Hints
/// reach the parts that they touch, an empty one all of them. The client receives the notifications of every part.
///
/// A part that calls releaseAccessor gets itself: the client receives accessorUpdated first, so that it holds no block
/// of that part, and the other parts stay. A later request for its samples throws ObjectDisposedException.
///
///     parts.push_back(open(1998));
///     parts.push_back(open(1999));
///     auto const years = ConcatFilter::Apply(std::move(parts), /*axis=*/0);
class DRAVIK_ADT_EXPORT ConcatFilter final : public IBufferAccessor, public IRegionAccess {
  public:
    /// A filter above the parts, or the part itself where it is the only one.
    /// @throws std::invalid_argument for no parts or a null one, for an axis other than 0 to 3, and for parts of
    /// different sizes on other axes or different sample types; std::length_error for 2^31 indices along the axis; the
    /// parts are gone then
    static std::unique_ptr<IBufferAccessor> Apply(std::vector<std::unique_ptr<IBufferAccessor>> parts, int axis);

    ConcatFilter(ConcatFilter const&) = delete;
    ConcatFilter& operator=(ConcatFilter const&) = delete;
    ~ConcatFilter() override;

    /// The sizes of the parts, added along the axis.
    /// @throws std::invalid_argument and std::length_error as Apply, where a part was updated to a size that does not
    /// fit
    FixedVector<4, int> getSize() override;
    void setClient(IClient* client) override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// Carries down what is written into the handle's block, where that is of another part.
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    void dispose(bool flag) override;

    /// Those of the parts where they are the same; of natural blocks the largest, since a join need not start with one.
    AccessTraits traits() const override;
    /// Passes to each part what the request has of it.
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  private:
    class Part;
    using Parts = std::vector<std::unique_ptr<Part>>;

    explicit ConcatFilter(int axis) noexcept;

    void add(std::unique_ptr<IBufferAccessor> part);
    void measure();
    Part& partAt(int index);

    int axis_;
    std::atomic<IClient*> client_ = nullptr;  // read by notifications on other threads
    Parts parts_;
    FixedVector<4, int> size_;
    bool isMeasured_ = false;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
