// SPDX-License-Identifier: Apache-2.0
#pragma once

// IBufferAccessor lends blocks of samples; IClient borrows them and receives notifications of changes.
// Threads: one chain of accessors and its client belong to one thread at a time; notifications from any thread.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/bulkview/buffer_handle.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView {

/// Lends, for any position, the block of samples around it.
///
/// Everything is four-dimensional: data of fewer axes have size 1, index 0 and stride 0 on the others. An accessor owns
/// what is below it, so one unique owner holds a whole chain. Exceptions pass through a chain unchanged.
class DRAVIK_ADT_EXPORT IBufferAccessor {
  public:
    class IClient;

    /// What a hint is about. Only the accessor that reaches the samples gives hints a meaning; everybody else passes
    /// them down, foreign values included.
    enum HintType : int {
        Prefetch = 0,        ///< the region will be read soon
        CancelPrefetch = 1,  ///< it will not, after all; the region is empty
        Cache = 3,           ///< keep the region at hand; an empty one: no longer
    };

    virtual ~IBufferAccessor();

    /// Samples along each axis.
    virtual FixedVector<4, int> getSize() = 0;

    /// Registers the one client in place of the one before, null for none. The client is borrowed.
    virtual void setClient(IClient* client) = 0;

    /// Passes on what the client knows about its coming requests. `weight` is 1 in every hint of this library.
    virtual void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) = 0;

    /// Makes `handle` describe a block that contains `position`, lent for `access` or more; the access granted stands
    /// in the handle. A block without memory has a null buffer. An invalidation meanwhile marks the handle: reset it
    /// and ask again.
    /// @lifetime the samples stay while the handle holds the owner given with them, or as the accessor promises
    virtual void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) = 0;

    /// An independent copy of this accessor and everything it owns, without a client.
    virtual std::unique_ptr<IBufferAccessor> createClone() const = 0;

    /// Releases what the accessor holds. The flag reaches the accessor at the bottom unchanged.
    virtual void dispose(bool flag) = 0;

  protected:
    IBufferAccessor() = default;
    IBufferAccessor(IBufferAccessor const&) = default;
    IBufferAccessor& operator=(IBufferAccessor const&) = default;
};

/// Borrows blocks and receives notifications about them. A notification marks or clears the handle; it may ask the
/// accessor for its size and for nothing else.
/// @threads bufferInvalidated, prepareBufferRelease and releaseBuffer may come from any thread at any moment;
/// accessorUpdated and releaseAccessor while the client makes no request
class DRAVIK_ADT_EXPORT IBufferAccessor::IClient {
  public:
    virtual ~IClient();

    /// The size or the layout of the blocks changed: read the size again, trust no block held.
    virtual void accessorUpdated() = 0;

    /// The samples behind every loan of `owner` are no longer valid; null stands for loans without an owner.
    virtual void bufferInvalidated(BufferHandle::Owner const* owner) = 0;

    /// The accessor means to take back the memory at `buffer`. A client that holds just that buffer marks its handle,
    /// may raise `value`, whose meaning is the accessor's, and returns true.
    virtual bool prepareBufferRelease(void const* buffer, int& value) = 0;

    /// The accessor takes back `buffer` now: a handle that holds it with that owner is cleared.
    virtual void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) = 0;

    /// Asks the client to give up the chain it holds. The call may destroy its caller.
    virtual std::unique_ptr<IBufferAccessor> releaseAccessor() = 0;

  protected:
    IClient() = default;
    IClient(IClient const&) = default;
    IClient& operator=(IClient const&) = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
