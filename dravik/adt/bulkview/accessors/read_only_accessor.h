// SPDX-License-Identifier: Apache-2.0
#pragma once

// ReadOnlyAccessor: base of accessors over samples that are never written and never change. Threads: as the derived
// class says.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

/// Leaves three operations to a derived class: the size, lending a block for reading, and cloning. A client has nothing
/// to be told of, hints are no use, and there is nothing to give back.
class DRAVIK_ADT_EXPORT ReadOnlyAccessor : public IBufferAccessor {
  public:
    ~ReadOnlyAccessor() override;

    void setClient(IClient* client) override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// @throws Exceptions::NotSupportedException for writing, std::out_of_range for a position outside, and what
    /// lending throws
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) final;
    void dispose(bool flag) override;

  protected:
    ReadOnlyAccessor() = default;
    ReadOnlyAccessor(ReadOnlyAccessor const&) = default;
    ReadOnlyAccessor& operator=(ReadOnlyAccessor const&) = default;

    /// Makes `handle` describe a block that contains `position`, which is inside, for reading. What can fail comes
    /// before it touches the handle.
    virtual void lend(FixedVector<4, int> const& position, BufferHandle& handle) = 0;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
