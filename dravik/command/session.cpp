// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/session.h"

#include "dravik/adt/bulkview/filters/buffer_accessor_filter.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/exceptions/cancelled_exception.h"
#include "dravik/command/formats.h"
#include "dravik/command/progress.h"
#ifdef DRAVIK_COMMAND_HAS_FILES_SHARED
#include "dravik/files/shared/mapped_file.h"
#endif

#include <atomic>
#include <cstdio>
#include <utility>

namespace Quorvel::Dravik::Command {

using Adt::FixedVector;
using Adt::OpenEndedRange;
using Adt::BulkView::AccessTraits;
using Adt::BulkView::AdtEnums;
using Adt::BulkView::BrickPool;
using Adt::BulkView::BufferHandle;
using Adt::BulkView::IBufferAccessor;
using Adt::BulkView::RegionRequest;
using Adt::BulkView::RegionTransfer;

struct Traffic {
    std::atomic<std::int64_t> regions{0}, blocks{0}, bytes{0};
};

namespace {

// Counts what is asked for through it and passes everything on. Clones count together.
class CountingFilter final : public Adt::BulkView::BufferAccessorFilter, public Adt::BulkView::IRegionAccess {
  public:
    CountingFilter(std::unique_ptr<IBufferAccessor> target, std::shared_ptr<Traffic> traffic)
        : BufferAccessorFilter(std::move(target)), traffic_(std::move(traffic)) {}

    FixedVector<4, int> getSize() override { return targetAccessor().getSize(); }
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override {
        targetAccessor().setHint(type, range, weight);
    }
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override {
        ++traffic_->blocks;
        targetAccessor().getBuffer(position, access, handle);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<CountingFilter>(*this); }

    AccessTraits traits() const override {
        return Adt::BulkView::traitsOf(const_cast<CountingFilter*>(this)->targetAccessor());
    }
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override {
        ++traffic_->regions;
        std::int64_t samples = 1;
        for (int axis = 0; axis < 4; ++axis) {
            samples *= request.region[axis].count;
        }
        traffic_->bytes += samples * traits().bitSize / 8;
        transfer.run(targetAccessor(), request);
        return true;
    }
    void flush() override { Adt::BulkView::flush(targetAccessor()); }

  private:
    std::shared_ptr<Traffic> traffic_;
};

std::shared_ptr<BrickPool> makePool(std::int64_t memory) {
    return std::make_shared<BrickPool>(memory / 4);
}

}  // namespace

Session::Session(Resources const& resources, std::stop_token stop)
    : resources_(resources),
      stop_(std::move(stop)),
      openers_(makePool(resources.memory)),
      traffic_(std::make_shared<Traffic>()) {
#ifdef DRAVIK_COMMAND_HAS_FILES_SHARED
    Files::setMappedByteBudget(resources.memory / 16);
#endif
    for (Format const& format : formats()) {
        format.enter(openers_);
    }
}

Session::~Session() = default;

Adt::BulkView::TransferOptions Session::transfer(std::string const& what) {
    Adt::BulkView::TransferOptions options;
    options.stop = stop_;
    options.workers = resources_.threads;
    options.byteBudget = resources_.memory / 16;
    options.executor = [this](std::function<void()> task) { threads_.emplace_back(std::move(task)); };
    options.progress = [progress = std::make_shared<Progress>(what)](std::int64_t done, std::int64_t total) {
        progress->show(done, total);
    };
    return options;
}

std::unique_ptr<IBufferAccessor> Session::counted(std::unique_ptr<IBufferAccessor> chain) const {
    return resources_.verbose ? std::make_unique<CountingFilter>(std::move(chain), traffic_) : std::move(chain);
}

void Session::report() const {
    if (!resources_.verbose) {
        return;
    }
    auto const pool = openers_.pool()->counters();
    std::fprintf(
        stderr,
        "requests    %lld regions, %lld blocks, %lld bytes handed over\n"
        "pool        %lld hits, %lld misses, %lld evictions, %lld written back, %lld bytes kept\n",
        static_cast<long long>(traffic_->regions), static_cast<long long>(traffic_->blocks),
        static_cast<long long>(traffic_->bytes), static_cast<long long>(pool.hits), static_cast<long long>(pool.misses),
        static_cast<long long>(pool.evictions), static_cast<long long>(pool.writtenBack),
        static_cast<long long>(pool.bytesKept));
}

void Session::throwIfStopped() const {
    if (stop_.stop_requested()) {
        throw Adt::Exceptions::CancelledException("stopped");
    }
}

}  // namespace Quorvel::Dravik::Command
