// SPDX-License-Identifier: Apache-2.0
#pragma once

// ProxyFilter: a filter that changes nothing, and whose target can be exchanged while a client is attached.
// Threads: as the chain it is part of; an exchange must not overlap any other use of the proxy.

#include "dravik/adt/bulkview/filters/stateful_buffer_accessor_filter.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/core/lightweight_mutex.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/export.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <functional>
#include <memory>
#include <set>
#include <string>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Passes every request, hint and notification on. The exchange comes from outside, through a controller that the proxy
/// shares with whoever drives it; the client hears of it by accessorUpdated.
///
///     auto const controller = boost::make_shared<ProxyFilter::ProxyTargetController>();
///     view.init(ProxyFilter::MakeProxy(std::move(morning), controller));
///     controller->setTarget(std::move(evening));
class DRAVIK_ADT_EXPORT ProxyFilter final : public StatefulBufferAccessorFilter, public IRegionAccess {
  public:
    class Error;
    class ProxyTargetController;

    /// A proxy of `target`, attached to `controller` as long as it lives. Without a controller the target stays.
    /// @throws std::invalid_argument for a null target
    static std::unique_ptr<IBufferAccessor> MakeProxy(
        std::unique_ptr<IBufferAccessor> target, boost::shared_ptr<ProxyTargetController> controller);

    ~ProxyFilter() override;

    FixedVector<4, int> getSize() override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    /// Over a clone of the target, attached to the same controller.
    std::unique_ptr<IBufferAccessor> createClone() const override;

    void accessorUpdated() override;
    void bufferInvalidated(BufferHandle::Owner const* owner) override;
    bool prepareBufferRelease(void const* buffer, int& value) override;
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override;

    AccessTraits traits() const override;
    /// Passes the request on.
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  private:
    ProxyFilter(std::unique_ptr<IBufferAccessor> target, boost::shared_ptr<ProxyTargetController> controller);
    ProxyFilter(ProxyFilter const& other);

    void attach();
    void setTarget(std::unique_ptr<IBufferAccessor> target);

    boost::shared_ptr<ProxyTargetController> controller_;
};

/// The failure of an exchange.
class DRAVIK_ADT_EXPORT ProxyFilter::Error : public Exceptions::SimpleException {
  public:
    explicit Error(std::string const& message);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

/// Exchanges the target of the proxies that are attached to it. Knows them and does not own them.
/// @threads any, also from within an exchange; see setTarget
class DRAVIK_ADT_EXPORT ProxyFilter::ProxyTargetController {
  public:
    ProxyTargetController();
    ProxyTargetController(ProxyTargetController const&) = delete;
    ProxyTargetController& operator=(ProxyTargetController const&) = delete;
    virtual ~ProxyTargetController();

    /// The proxies themselves call these.
    void attachFilter(ProxyFilter& filter);
    void detachFilter(ProxyFilter& filter);

    /// Puts `target` in place of the target of the attached proxy: calls dispose(false) on the one so far, exchanges
    /// them, tells the client, and only then destroys the one so far. Nothing happens if `target` is the proxy's
    /// already. Without a proxy `target` is destroyed.
    ///
    /// Further proxies, as of copied views, get clones, which are made before the first exchange. Proxies that are
    /// attached meanwhile keep their target.
    /// @pre no attached proxy is in use on another thread; the caller keeps this controller
    /// @throws ProxyFilter::Error for a null target, std::logic_error for a null clone, and what cloning throws, with
    /// nothing changed; what a target or a client throws, and the proxies that were not reached keep their target; the
    /// client of the one that was is told, whatever failed
    /// @threads The lock is held throughout, while the old target, the new one and the clients are called: these may
    /// attach and detach proxies on the same thread, and must not wait for another thread that does.
    void setTarget(std::unique_ptr<IBufferAccessor> target);

  private:
    LightweightMutex mutex_;
    std::set<ProxyFilter*, std::less<>> filters_;
    std::set<ProxyFilter*, std::less<>> pending_;  ///< those of them that the exchange under way has still to reach
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
