// SPDX-License-Identifier: Apache-2.0
#pragma once

// ControllerAdapter: any accessor chain behind the controller interface of older callers. Owns the chain. Threads: one
// caller at a time.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/buffer_handle.h"
#include "dravik/adt/bulkview/old/controller.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView::Old {

/// Serves bricks of one sample each, so a brick number is a sample number: x + y * size(0) + z * size(0) * size(1).
///
/// Looks at the first three axes only, and opens data of fewer than 2^31 samples. Holds one block of the chain at a
/// time; the address of a sample is good until the next call of `buffer` or `close`. The chain gets no client.
///
///     ControllerAdapter controller(std::move(chain), sizeof(float));
///     controller.open();
///     void* const sample = controller.buffer(
///         0, IController::Addressed, nullptr, controller.brick(0, 3, 2, 1), AdtEnums::Read);
class DRAVIK_ADT_EXPORT ControllerAdapter : public IController {
  public:
    /// Reads the size of the data. `valueSize` is in bytes per sample.
    /// @throws std::invalid_argument for a null accessor; what the accessor throws
    ControllerAdapter(std::unique_ptr<IBufferAccessor> accessor, int valueSize);

    /// The address of a sample; null for a memory model other than Addressed and for a block without memory. A block
    /// that is held is used again only for the very access it was lent for. Samples written through a converter are
    /// written back by the next request of another block; those of a failed request stay for another try.
    /// @throws std::invalid_argument after `close`, and for a number that is no brick's; what the accessor throws
    void* buffer(int, MemoryModel model, void*, int brick, AdtEnums::Access access) override;
    int vtsize() override { return valueSize_; }
    /// @throws std::invalid_argument for an axis other than 0, 1 and 2
    int size(int axis) override { return size_[axis]; }
    /// Tests no bounds; wraps outside the range of int.
    int brick(int, int x, int y, int z) override;
    /// Always 0.
    int offset(int, int x, int y, int z) override;
    /// Returns 0. To be called once at most, also when it failed.
    /// @throws Exceptions::PlainException the second time, after `close`, and for data of 2^31 samples or more
    int open() override;
    /// Writes back what is pending, releases the block and destroys the chain.
    /// @throws what writing back throws, with everything kept for another try
    void close(int) override;
    /// Does nothing.
    void flush(int, void*) override {}
    FeatureMask features() override { return static_cast<FeatureMask>(0x177); }
    /// Does nothing.
    void setHint(int, int, int, int, int) override {}
    /// Sets the buffer to null and leaves the numbers alone.
    void bufferAndLinearInfo(
        int, MemoryModel model, void*, int, int, int, AdtEnums::Access access, void*& buffer, int& info1, int& info2,
        int& info3, int& info4, int& info5, int& info6, int& info7, int& info8, int& info9) override;

  private:
    FixedVector<3, int> brickPos(int brick) const;
    void request(FixedVector<3, int> const& position, AdtEnums::Access access);

    std::unique_ptr<IBufferAccessor> accessor_;
    BufferHandle handle_;  // after the accessor, so that the block goes back while the chain is there
    FixedVector<3, int> size_;
    int valueSize_;
    bool opened_ = false;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Old
