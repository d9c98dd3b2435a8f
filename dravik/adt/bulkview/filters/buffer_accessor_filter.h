// SPDX-License-Identifier: Apache-2.0
#pragma once

// BufferAccessorFilter: an accessor that owns one other accessor, its target, and presents the same protocol above it.
// Threads: as the chain it is part of.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView {

/// Base of the filters that keep nothing about their client: the client of such a filter is registered right at the
/// target and receives its notifications directly.
///
/// Owns the target, which is never null but between its release or disposal and the filter's end. Then only setClient,
/// dispose and destruction make sense; they do nothing.
class DRAVIK_ADT_EXPORT BufferAccessorFilter : public IBufferAccessor {
  public:
    ~BufferAccessorFilter() override;

    /// Registers `client` at the target.
    void setClient(IClient* client) override;
    /// Passes the call to the target.
    void dispose(bool flag) override;

  protected:
    /// Takes the target unchecked; a derived class that is made for users tests for null.
    explicit BufferAccessorFilter(std::unique_ptr<IBufferAccessor> target) noexcept;
    /// Over a clone of the whole chain below `other`.
    /// @throws std::logic_error where the clone is null; what cloning throws
    BufferAccessorFilter(BufferAccessorFilter const& other);
    BufferAccessorFilter& operator=(BufferAccessorFilter const& other);

    /// @pre there is a target
    IBufferAccessor& targetAccessor() noexcept { return *target_; }
    IBufferAccessor const& targetAccessor() const noexcept { return *target_; }

    /// What the target tells about itself; all unknown where it does not implement IRegionAccess.
    AccessTraits targetTraits() const;
    /// Carries down what is held back below, as far as the target implements IRegionAccess.
    /// @throws what carrying it down throws
    void flushTarget();

    /// Destroys the target; the filter is without one then.
    void dispose() noexcept;

    /// Gives the target away; the filter is without one then.
    virtual std::unique_ptr<IBufferAccessor> releaseTargetAccessor();
    /// Puts `target` in place of the target so far and gives that one back.
    virtual std::unique_ptr<IBufferAccessor> replaceTargetAccessor(std::unique_ptr<IBufferAccessor> target);

  private:
    std::unique_ptr<IBufferAccessor> target_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
