// SPDX-License-Identifier: Apache-2.0
#pragma once

// StatefulBufferAccessorFilter: a filter that stands between its target and its client in both directions. Threads: as
// the chain it is part of; notifications from any thread.

#include "dravik/adt/bulkview/filters/buffer_accessor_filter.h"
#include "dravik/adt/export.h"

#include <atomic>
#include <memory>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

/// Base of the filters that keep something about what they lent: registers itself as the client of its target, and
/// each filter decides what it relays to its own client.
///
/// Is its target's client exactly while it has a client, except after dispose(flag), when a target that keeps
/// notifying has no client to relay to. The client is borrowed.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only concrete filters are destroyed, through other bases
class DRAVIK_ADT_EXPORT StatefulBufferAccessorFilter : public BufferAccessorFilter, public IBufferAccessor::IClient {
  public:
    using IClient = IBufferAccessor::IClient;  // both bases know it under this name

    StatefulBufferAccessorFilter& operator=(StatefulBufferAccessorFilter const&) = delete;

    /// Keeps `client` and registers this filter at the target, or none for null. Where the target fails, the client
    /// stays the one before.
    void setClient(IClient* client) override;
    /// Passes the call to the target, then forgets the client.
    void dispose(bool flag) override;

    /// Asks the own client to give up the chain it holds; null without one.
    std::unique_ptr<IBufferAccessor> releaseAccessor() override;

  protected:
    explicit StatefulBufferAccessorFilter(std::unique_ptr<IBufferAccessor> target) noexcept;
    /// Over a clone of the whole chain below `other`, without a client.
    StatefulBufferAccessorFilter(StatefulBufferAccessorFilter const& other);
    ~StatefulBufferAccessorFilter() override;

    /// @pre there is a client
    IClient& client() const noexcept { return *clientPtr(); }
    /// The client, null when there is none.
    IClient* clientPtr() const noexcept { return client_.load(std::memory_order_acquire); }

    /// Calls `operation` of the client; without one nothing happens, and a null or false result comes back. Nothing of
    /// this filter is touched afterwards, since the client may have destroyed the chain.
    template <class Result, class... Parameters, class... Arguments>
    Result relay(Result (IClient::*operation)(Parameters...), Arguments&&... arguments) const {
        IClient* const above = clientPtr();
        return above == nullptr ? Result() : (above->*operation)(std::forward<Arguments>(arguments)...);
    }

    /// Destroys the target and forgets the client.
    void dispose() noexcept;

    /// Calls dispose(false) on the target so far, puts `target` in its place and, with a client, registers this filter
    /// there. What is given back keeps its registration.
    std::unique_ptr<IBufferAccessor> replaceTargetAccessor(std::unique_ptr<IBufferAccessor> target) override;

  private:
    /// Read by notifications on other threads.
    std::atomic<IClient*> client_{nullptr};
};

}  // namespace Quorvel::Dravik::Adt::BulkView
