// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/store_accessor.h"

#include "dravik/adt/bulkview/stores/detail/brick_table.h"
#include "dravik/adt/bulkview/stores/detail/brick_transfer.h"
#include "dravik/adt/bulkview/stores/detail/bricking.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <sstream>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

using Detail::Bricking;
using Detail::BrickTable;

// What an accessor and its clones have in common.
class StoreAccessor::Shared {
  public:
    Shared(
        std::shared_ptr<BrickPool> itsPool, BrickTable::StorePtr itsStore, std::shared_ptr<BrickTable> itsTable,
        Executor itsExecutor)
        : executor(std::move(itsExecutor)),
          store(std::move(itsStore)),
          table(std::move(itsTable)),
          bricking(store->size(), store->traits()),
          pool_(std::move(itsPool)) {}

    Executor const executor;
    BrickTable::StorePtr const store;
    std::shared_ptr<BrickTable> const table;
    Bricking const bricking;

  private:
    std::shared_ptr<BrickPool> pool_;  // closes the table with its end
};

namespace {

bool writes(AdtEnums::Access access) {
    return AdtEnums::isWriteAccess(access) || AdtEnums::isPopulateAccess(access);
}

void requireWritable(Detail::PooledStore const& store, AdtEnums::Access access) {
    if (writes(access) && !store.traits().writable) {
        throw Exceptions::NotSupportedException("StoreAccessor", "the store is read-only.");
    }
}

}  // namespace

std::unique_ptr<IBufferAccessor> StoreAccessor::Make(
    std::shared_ptr<IBrickStore> store, std::shared_ptr<BrickPool> pool, Executor prefetchOn) {
    if (store == nullptr || pool == nullptr) {
        throw std::invalid_argument(
            std::string("[StoreAccessor::Make] Invalid argument: ") + (store == nullptr ? "store" : "pool") +
            " is null.");
    }
    auto table = pool->table_;
    auto pooled = table->use(std::move(store));
    if (pooled->traits().bitSize < 1) {
        throw std::invalid_argument("[StoreAccessor::Make] Invalid argument: the store's sample type is unknown.");
    }
    auto shared =
        std::make_shared<Shared const>(std::move(pool), std::move(pooled), std::move(table), std::move(prefetchOn));
    return std::unique_ptr<IBufferAccessor>(new StoreAccessor(std::move(shared)));
}

StoreAccessor::StoreAccessor(std::shared_ptr<Shared const> shared)
    : shared_(std::move(shared)), round_(std::make_shared<std::atomic<std::uint64_t>>(0)) {}

StoreAccessor::~StoreAccessor() {
    ++*round_;
}

StoreAccessor::Shared const& StoreAccessor::shared() const {
    if (shared_ == nullptr) {
        throw Exceptions::ObjectDisposedException("StoreAccessor");
    }
    return *shared_;
}

FixedVector<4, int> StoreAccessor::getSize() {
    return shared().bricking.size();
}

void StoreAccessor::setClient(IClient* /*client*/) {}

void StoreAccessor::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    Shared const& all = shared();
    if (!OpenEndedRange<4, int>::OfSize(all.bricking.size()).contains(position)) {
        std::ostringstream text;
        text << "[StoreAccessor] Position " << position << " is outside the store of " << all.bricking.size()
             << " samples.";
        throw std::out_of_range(text.str());
    }
    requireWritable(*all.store, access);
    auto const box = all.bricking.boxAround(position);
    boost::intrusive_ptr<Detail::Brick> brick = all.table->find({all.store.get(), box.min}, access);
    // Not where samples may be written: a consumer need not ask again to write into a block without memory.
    if (brick == nullptr && !all.store->traits().writable && !all.store->hasSamples(box)) {
        handle.setOwner(nullptr);
        handle.update(nullptr, {box, {}, /*offset=*/0}, AdtEnums::Read);
        return;
    }
    if (brick == nullptr) {
        brick = all.table->get(all.store, box, access);
    }
    handle.setOwner(brick.get());
    handle.update(brick->samples(), brick->info(), writes(access) ? AdtEnums::ReadWrite : AdtEnums::Read);
}

void StoreAccessor::setHint(HintType type, OpenEndedRange<4, int> const& range, float /*weight*/) {
    if (type == CancelPrefetch) {
        ++*round_;
    } else if (type == Prefetch && shared_ != nullptr && shared_->executor) {
        prefetch(range);
    }
}

void StoreAccessor::prefetch(OpenEndedRange<4, int> range) const {
    Bricking const& bricking = shared_->bricking;
    range.intersect(OpenEndedRange<4, int>::OfSize(bricking.size()));
    std::int64_t room = shared_->table->byteBudget() / 2;
    std::uint64_t const round = round_->load();
    bricking.forEachBrick(range, [&](OpenEndedRange<4, int> const& box) {
        room -= (box.pointCount() * shared_->store->traits().bitSize + 7) / 8;
        if (room < 0) {
            return false;
        }
        if (!shared_->table->has({shared_->store.get(), box.min})) {
            shared_->executor([all = shared_, current = round_, round, box] {
                if (current->load() == round) {
                    all->table->getAhead(all->store, box);
                }
            });
        }
        return true;
    });
}

std::unique_ptr<IBufferAccessor> StoreAccessor::createClone() const {
    shared();
    return std::unique_ptr<IBufferAccessor>(new StoreAccessor(shared_));
}

AccessTraits StoreAccessor::traits() const {
    if (shared_ == nullptr) {
        return {};
    }
    AccessTraits traits = shared_->store->traits();
    traits.naturalBlock = shared_->bricking.brick();
    // The pool lets a serial store be used by one thread at a time.
    traits.concurrency = AccessTraits::Concurrency::PerClone;
    return traits;
}

bool StoreAccessor::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    Shared const& all = shared();
    requireWritable(*all.store, request.access);
    Detail::BrickTransfer(all.bricking, *all.table, all.store, request, transfer).run();
    return true;
}

void StoreAccessor::flush() {
    Shared const& all = shared();
    all.table->flush(all.store);
}

void StoreAccessor::dispose(bool /*flag*/) {
    if (shared_ == nullptr) {
        return;
    }
    shared_->table->flush(shared_->store);
    ++*round_;
    shared_.reset();
}

}  // namespace Quorvel::Dravik::Adt::BulkView
