// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/buffer_handle.h"

#include <limits>
#include <thread>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

using Detail::loadAcquire;
using Detail::storeRelaxed;

BufferHandle::Owner::~Owner() {
    userData_ = nullptr;
}

void BufferHandle::Owner::lock() {}

void BufferHandle::Owner::unlock() {}

// Holds the lock of an owner that enabled locking, and a reference so that the owner outlives its own unlock.
class BufferHandle::OwnerLock {
  public:
    explicit OwnerLock(boost::intrusive_ptr<Owner> owner) : owner_(std::move(owner)) {
        if (owner_ != nullptr) {
            owner_->lock();
        }
    }
    OwnerLock(OwnerLock const&) = delete;
    OwnerLock& operator=(OwnerLock const&) = delete;
    ~OwnerLock() noexcept(false) {
        if (owner_ != nullptr) {
            owner_->unlock();
        }
    }

    static bool isWantedBy(Owner const& owner) noexcept { return owner.lockingEnabled(); }

  private:
    boost::intrusive_ptr<Owner> owner_;
};

BufferHandle::BufferHandle(BufferHandle const& other) noexcept {
    *this = other;
}

BufferHandle& BufferHandle::operator=(BufferHandle const& other) noexcept {
    if (this != &other) {
        auto const dropped = replace(other.loan());
    }
    return *this;
}

BufferHandle::Loan BufferHandle::loan() const noexcept {
    bool const invalidated = isInvalidated();
    return {infoSnapshot(), buffer(), owner_.share(), access(), invalidated};
}

boost::intrusive_ptr<BufferHandle::Owner> BufferHandle::replace(Loan loan) noexcept {
    // The mark first: that of an invalidation which overlaps the rest has to stand, since its stores may be in between.
    mark(loan.invalidated);
    store(loan.buffer, loan.info, loan.access);
    return owner_.exchange(std::move(loan.owner));
}

int BufferHandle::sampleCount() const noexcept {
    auto const range = range4();
    unsigned count = 1;
    for (int axis = 0; axis < 4; ++axis) {
        count *= static_cast<unsigned>(range.max.data()[axis]) - static_cast<unsigned>(range.min.data()[axis]);
    }
    return static_cast<int>(count);
}

bool BufferHandle::intersects(OpenEndedRange<4, int> range) const noexcept {
    auto const mine = range4();
    return mine.min.allLess(range.max) && range.min.allLess(mine.max);
}

void BufferHandle::lend(void* buffer, ArrayInfo info, AdtEnums::Access access) {
    OwnerLock const lock(owner_.share(OwnerLock::isWantedBy));
    store(buffer, info, access);
}

void BufferHandle::update(ArrayRef<4> const& array, AdtEnums::Access access) {
    lend(array.data(), {array.range(), array.strides(), array.bufferOffset()}, access);
}

void BufferHandle::updateRO(ArrayConstRef<4> const& array) {
    // The access granted is what keeps a consumer from writing.
    lend(const_cast<char*>(array.data()), {array.range(), array.strides(), array.bufferOffset()}, AdtEnums::Read);
}

void BufferHandle::updateBufferAndResetInfo(void* buffer, AdtEnums::Access access) {
    lend(buffer, ArrayInfo(), access);
}

void BufferHandle::setOwner(Owner* owner) {
    OwnerLock const lock(owner_.share(OwnerLock::isWantedBy));
    auto const dropped = owner_.exchange(owner);
}

void BufferHandle::mark(bool invalidated) noexcept {
    if (invalidated) {
        Detail::setBits(notices_, kMarked);
    } else if ((loadAcquire(notices_) & kMarked) != 0) {
        Detail::clearBits(notices_, kMarked);
    }
}

void BufferHandle::empty() noexcept {
    storeInfo(ArrayInfo());
    storeRelaxed<void*>(buffer_, nullptr);
    storeRelaxed(access_, AdtEnums::NoAccess);
    mark(/*invalidated=*/false);
}

void BufferHandle::reset(bool releaseOwner) {
    while ((loadAcquire(notices_) & kAllUnderWay) != 0) {
        std::this_thread::yield();
    }
    OwnerLock const lock(owner_.share(OwnerLock::isWantedBy));
    // Dropped last: with its last reference the owner's destructor runs, which may be anybody's code.
    auto const dropped = releaseOwner ? owner_.exchange(nullptr) : nullptr;
    empty();
}

void BufferHandle::invalidate(bool emptyRange) volatile noexcept {
    auto& self = const_cast<BufferHandle&>(*this);
    // Told before and after. Before, so that a fetch which overtakes the rest is found not to stand, until the rest is
    // done; after, so that the change counts even where somebody has cleared the mark meanwhile.
    Detail::add(self.notices_, kUnderWay);
    if (emptyRange) {
        using Index = FixedVector<4, int>;
        self.storeRange({Index::Filled(std::numeric_limits<int>::max()), Index()});
    }
    storeRelaxed(self.access_, AdtEnums::NoAccess);
    Detail::setBits(self.notices_, kMarked);
    Detail::add(self.notices_, kOneMore - kUnderWay);
}

bool BufferHandle::tryThreadSafeReset(void const* buffer, boost::intrusive_ptr<Owner> owner) volatile {
    auto& self = const_cast<BufferHandle&>(*this);
    Owner* const expected = owner.get();
    bool const locks = owner != nullptr && OwnerLock::isWantedBy(*owner);
    OwnerLock const lock(locks ? std::move(owner) : nullptr);
    auto const holdsLoan = [&] { return self.buffer() == buffer && self.owner() == expected; };
    if (!holdsLoan()) {
        return false;
    }
    // Told before and after, as an invalidation, and asked again: the consumer may have fetched another block
    // meanwhile.
    boost::intrusive_ptr<Owner> dropped;
    Detail::add(self.notices_, kUnderWay);
    bool const taken = holdsLoan() && self.owner_.takeIf(expected, dropped);
    if (taken) {
        self.empty();
    }
    Detail::add(self.notices_, (taken ? kOneMore : 0) - kUnderWay);
    return taken;
}

}  // namespace Quorvel::Dravik::Adt::BulkView
