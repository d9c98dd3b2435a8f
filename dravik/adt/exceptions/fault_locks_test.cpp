// SPDX-License-Identifier: Apache-2.0
// A host's code faults wherever the library calls it, inside a guarded call: whatever else is lost then, no lock of the
// library stays taken. Out of the question are the two places that call out under a lock and say so: an exchange by a
// proxy's controller, and the lazy allocation of a buffer.

#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/adt/exceptions/system_exception.h"
#include "dravik/adt/testing/failure_plan.h"
#include "dravik/adt/testing/fault_situations.h"

#include <boost/smart_ptr/make_shared.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

using BulkView::AdtEnums;
using BulkView::BufferHandle;
using BulkView::IBufferAccessor;
using BulkView::Filters::CacheFilter;
using BulkView::Filters::ProxyFilter;
using Index = FixedVector<4, int>;

Testing::FailurePlan faults;
char const* lastCall = "";

/// The library calls `operation` of the host, which answers `result` unless it faults.
template <class T = bool>
T callOut(char const* operation, T result = {}) {
    if (faults.failsNow()) {
        lastCall = operation;
        Testing::readNull();
    }
    return result;
}

struct HostOwner : BufferHandle::Owner {
    HostOwner() { enableLocking(); }
    ~HostOwner() override { callOut("~Owner"); }
    void lock() override { callOut("lock"); }
    void unlock() override { callOut("unlock"); }

    char samples[4] = {};
};

/// 16 samples in blocks of 4 along axis 0, each request with a fresh owner.
struct HostAccessor : IBufferAccessor {
    ~HostAccessor() override { callOut("~Accessor"); }
    Index getSize() override { return callOut("getSize", Index{16, 4, 1, 1}); }
    void setClient(IClient* newClient) override { client = callOut("setClient", newClient); }
    void setHint(HintType, OpenEndedRange<4, int> const&, float) override { callOut("setHint"); }
    void getBuffer(Index position, AdtEnums::Access access, BufferHandle& handle) override {
        boost::intrusive_ptr<HostOwner> const owner(callOut("getBuffer", new HostOwner));
        int const first = position[0] / 4 * 4;
        handle.setOwner(owner.get());
        handle.update(owner->samples, {{{first, 0, 0, 0}, {first + 4, 4, 1, 1}}, {1, 0, 0, 0}, 0}, access);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override {
        return std::unique_ptr<IBufferAccessor>(callOut("createClone", new HostAccessor));
    }
    void dispose(bool) override { callOut("dispose"); }

    IClient* client = nullptr;
};

struct HostClient : IBufferAccessor::IClient {
    void accessorUpdated() override { callOut("accessorUpdated"); }
    void bufferInvalidated(BufferHandle::Owner const*) override { callOut("bufferInvalidated"); }
    bool prepareBufferRelease(void const*, int&) override { return callOut("prepareBufferRelease"); }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override { callOut("releaseBuffer"); }
    std::unique_ptr<IBufferAccessor> releaseAccessor() override { return nullptr; }
};

/// A cache over a proxy over a host's accessor, with a host's client on top.
struct Chain {
    boost::shared_ptr<ProxyFilter::ProxyTargetController> controller =
        boost::make_shared<ProxyFilter::ProxyTargetController>();
    HostAccessor* host = new HostAccessor;
    HostClient client;
    std::unique_ptr<IBufferAccessor> top = CacheFilter::Apply(
        ProxyFilter::MakeProxy(std::unique_ptr<IBufferAccessor>(host), controller), /*sampleBudget=*/40,
        CacheFilter::kNever, CacheFilter::kNever);

    Chain() { top->setClient(&client); }

    /// Everything that the chain is there for, with calls out of every kind.
    void work() {
        BufferHandle handle;
        for (int const position : {0, 1, 4, 0, 8, 12, 15}) {  // found, missed, and over the budget
            top->getBuffer({position, 0, 0, 0}, AdtEnums::Read, handle);
        }
        top->setHint(IBufferAccessor::HintType{}, handle.info().range, 1);
        auto const copy = top->createClone();
        host->client->bufferInvalidated(handle.owner());
        top->getBuffer({0, 0, 0, 0}, AdtEnums::Read, handle);
        int value = 0;
        host->client->prepareBufferRelease(handle.buffer(), value);
        top->getBuffer({4, 0, 0, 0}, AdtEnums::Read, handle);
        host->client->releaseBuffer(handle.buffer(), handle.owner());
        host->client->accessorUpdated();
        top->getBuffer({8, 0, 0, 0}, AdtEnums::Read, handle);
        top->dispose(/*flag=*/false);
    }

    /// Takes every lock of the chain.
    void takeLocks() {
        top->dispose(/*flag=*/false);
        ProxyFilter::MakeProxy(std::make_unique<HostAccessor>(), controller);
    }
};

/// Whether another thread can take the locks; one that cannot is beyond help, and so is the program.
void expectLocksFree(Chain& chain) {
    auto const taken = std::async(std::launch::async, [&chain] { chain.takeLocks(); });
    if (taken.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        std::printf("[  FAILED  ] a lock stayed taken after a fault in %s\n", lastCall);
        std::fflush(stdout);
        std::_Exit(EXIT_FAILURE);
    }
}

TEST(Faults, LeaveNoLockTaken) {
    int faultCount = 0;
    for (bool hasFaulted = true; hasFaulted; ++faultCount) {
        auto* const chain = new Chain;  // what a fault cuts short is never destroyed
        faults.arm(faultCount, Testing::Failing::kOnce);
        ICloneableException::ConstPtr failure;
        ClonedException::runAndCatchException(
            [](void* c) { return (static_cast<Chain*>(c)->work(), 1); }, chain, &failure);
        faults.disarm();
        hasFaulted = faults.happened();
        ASSERT_EQ(dynamic_cast<SystemException const*>(failure.get()) != nullptr, hasFaulted) << lastCall;
        expectLocksFree(*chain);
    }
    EXPECT_GT(faultCount, 30) << "the script has fewer calls out than it was written for";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions
