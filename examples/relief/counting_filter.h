// SPDX-License-Identifier: Apache-2.0
#pragma once

// CountingFilter: a filter of the example's own, the least that one can do.

#include <dravik/adt/bulkview/filters/buffer_accessor_filter.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace Relief {

namespace BulkView = Quorvel::Dravik::Adt::BulkView;

/// Counts the blocks that are asked for through it, and passes everything on. Clones count together.
/// @threads as its target; the count may be read from any thread
class CountingFilter final : public BulkView::BufferAccessorFilter {
  public:
    using Count = std::atomic<std::int64_t>;

    /// @pre neither is null
    CountingFilter(std::unique_ptr<BulkView::IBufferAccessor> target, std::shared_ptr<Count> count);

    Quorvel::Dravik::Adt::FixedVector<4, int> getSize() override;
    void setHint(HintType type, Quorvel::Dravik::Adt::OpenEndedRange<4, int> const& range, float weight) override;
    void getBuffer(
        Quorvel::Dravik::Adt::FixedVector<4, int> position, BulkView::AdtEnums::Access access,
        BulkView::BufferHandle& handle) override;
    std::unique_ptr<BulkView::IBufferAccessor> createClone() const override;

  private:
    std::shared_ptr<Count> count_;
};

}  // namespace Relief
