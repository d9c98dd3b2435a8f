// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/chain.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Python {

using Adt::BulkView::AccessTraits;
using Adt::BulkView::AdtEnums;
using Adt::BulkView::BufferHandle;

namespace {

// Copies a row of samples, `stride` bytes apart, to dense memory.
template <std::size_t size>
void copyRow(char const* from, std::int64_t stride, int count, char* to) {
    for (int k = 0; k < count; ++k) {
        std::memcpy(to + static_cast<std::size_t>(k) * size, from + k * stride, size);
    }
}

void copyRow(std::size_t size, char const* from, std::int64_t stride, int count, char* to) {
    if (stride == static_cast<std::int64_t>(size)) {
        std::memcpy(to, from, size * static_cast<std::size_t>(count));
        return;
    }
    switch (size) {
    case 1:
        return copyRow<1>(from, stride, count, to);
    case 2:
        return copyRow<2>(from, stride, count, to);
    case 4:
        return copyRow<4>(from, stride, count, to);
    default:
        return copyRow<8>(from, stride, count, to);
    }
}

// Copies the samples of a region that the block has.
void copyRegion(
    void const* buffer, BufferHandle::ArrayInfo const& info, Extent4 const& region, std::size_t size, char* to) {
    std::int64_t first = info.offset;
    std::int64_t strides[4];  // samples
    int last = 3;
    for (int axis = 0; axis < 4; ++axis) {
        first += std::int64_t{info.strides[axis]} * (region[axis].origin - info.range.min[axis]);
        strides[axis] = std::int64_t{info.strides[axis]} * region[axis].step;
    }
    while (last > 0 && region[last].count == 1) {
        --last;
    }
    auto const bytes = static_cast<std::int64_t>(size);
    auto const walk = [&](auto const& self, int axis, std::int64_t at) -> void {
        if (axis == last) {
            copyRow(size, static_cast<char const*>(buffer) + at * bytes, strides[axis] * bytes, region[axis].count, to);
            to += size * static_cast<std::size_t>(region[axis].count);
            return;
        }
        for (int k = 0; k < region[axis].count; ++k) {
            self(self, axis + 1, at + k * strides[axis]);
        }
    };
    walk(walk, 0, first);
}

}  // namespace

Borrower::Borrower(std::unique_ptr<IBufferAccessor> chain) : chain_(std::move(chain)) {
    chain_->setClient(this);
}

Borrower::~Borrower() {
    // An owner may need the chain that lent it: first the block, then the chain.
    handle_.replace({}).reset();
    chain_.reset();
}

bool Borrower::tryCopy(Extent4 const& region, std::size_t sampleSize, char* samples) {
    auto const notices = handle_.notices();
    void const* const buffer = handle_.buffer();
    auto const info = handle_.infoSnapshot();
    if (buffer == nullptr) {
        return false;
    }
    for (int axis = 0; axis < 4; ++axis) {
        int const one = region[axis].origin;
        int const other = one + (region[axis].count - 1) * region[axis].step;
        if (std::min(one, other) < info.range.min[axis] || std::max(one, other) >= info.range.max[axis]) {
            return false;
        }
    }
    // Twice: the description above may be that of two blocks, and the block may go while it is copied.
    if (!handle_.standsSince(notices)) {
        return false;
    }
    copyRegion(buffer, info, region, sampleSize, samples);
    return handle_.standsSince(notices);
}

void Borrower::fetch(Index4 const& index) {
    handle_.reset(/*releaseOwner=*/false);
    chain_->getBuffer(index, AdtEnums::Read, handle_);
}

void Borrower::use(std::function<void(IBufferAccessor&)> const& act) {
    handle_.reset(/*releaseOwner=*/true);
    // What is called registers a client of its own and takes it away.
    act(*chain_);
    chain_->setClient(this);
}

void Borrower::accessorUpdated() {
    handle_.invalidate(/*emptyRange=*/true);
}

void Borrower::bufferInvalidated(BufferHandle::Owner const* owner) {
    if (owner == handle_.owner()) {
        handle_.invalidate(/*emptyRange=*/true);
    }
}

bool Borrower::prepareBufferRelease(void const* buffer, int& value) {
    if (buffer != handle_.buffer()) {
        return false;
    }
    value = std::max(value, 10000);
    handle_.invalidate(/*emptyRange=*/true);
    return true;
}

void Borrower::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) {
    handle_.tryThreadSafeReset(buffer, std::move(owner));
}

std::unique_ptr<IBufferAccessor> Borrower::releaseAccessor() {
    return nullptr;
}

// A borrower that is idle again at the end, unless what it did failed or the samples have changed.
class Chain::Lease {
  public:
    explicit Lease(Chain& chain) : chain_(chain), one_(chain.lockIfSerial()), changes_(chain.storage_->changes) {
        auto const stale = chain.takeStale();
        std::lock_guard const lock(chain.mutex_);
        if (chain.idle_.empty()) {
            borrower_ = std::make_unique<Borrower>(chain.prototype_->createClone());
        } else {
            borrower_ = std::move(chain.idle_.back());
            chain.idle_.pop_back();
        }
    }

    Borrower* operator->() const { return borrower_.get(); }

    // To be called at the end of what went well.
    void keep() {
        std::lock_guard const lock(chain_.mutex_);
        if (changes_ == chain_.idleSince_) {
            chain_.idle_.push_back(std::move(borrower_));
        }
    }

  private:
    Chain& chain_;
    std::unique_lock<std::recursive_mutex> one_;
    std::uint64_t changes_;
    std::unique_ptr<Borrower> borrower_;
};

Chain::Chain(std::unique_ptr<IBufferAccessor> prototype, Adt::BulkView::DataInfo info)
    : info_(std::move(info)),
      size_(prototype->getSize()),
      traits_(Adt::BulkView::traitsOf(*prototype)),
      prototype_(std::move(prototype)),
      storage_(std::make_shared<Storage>()) {
    if (*traits_.sampleType == typeid(void)) {
        throw std::invalid_argument("the sample type of the data is unknown");
    }
}

std::unique_lock<std::recursive_mutex> Chain::lockIfSerial() const {
    return isSerial() ? std::unique_lock(storage_->one) : std::unique_lock<std::recursive_mutex>();
}

// Those that may keep samples of before the last change: to be dropped without a lock.
Chain::Borrowers Chain::takeStale() {
    Borrowers stale;
    std::lock_guard const lock(mutex_);
    if (std::uint64_t const changes = storage_->changes; idleSince_ != changes) {
        idleSince_ = changes;
        std::swap(stale, idle_);
    }
    return stale;
}

std::shared_ptr<Chain> Chain::derived(Wrap const& wrap, Adt::BulkView::DataInfo info) const {
    auto const one = lockIfSerial();
    std::unique_lock lock(mutex_);
    auto target = prototype_->createClone();
    lock.unlock();
    auto chain = std::make_shared<Chain>(wrap(std::move(target)), std::move(info));
    chain->storage_ = storage_;
    chain->idleSince_ = storage_->changes;
    return chain;
}

bool Chain::tryCopy(Extent4 const& region, std::size_t sampleSize, char* samples) {
    if (isSerial()) {
        return false;
    }
    std::unique_lock const lock(mutex_, std::try_to_lock);
    // Under the lock: what is copied is a row at most, and giving a clone back would take it once more.
    return lock.owns_lock() && !idle_.empty() && idleSince_ == storage_->changes &&
           idle_.back()->tryCopy(region, sampleSize, samples);
}

void Chain::copyByBlock(
    Extent4 const& region, std::size_t sampleSize, char* samples, std::function<void()> const& other) {
    Index4 first;
    for (int axis = 0; axis < 4; ++axis) {
        first[axis] = region[axis].origin;
    }
    {
        Lease lease(*this);
        bool copied = lease->tryCopy(region, sampleSize, samples);
        if (!copied) {
            lease->fetch(first);
            copied = lease->tryCopy(region, sampleSize, samples);
        }
        lease.keep();
        if (copied) {
            return;
        }
    }
    other();
}

void Chain::with(std::function<void(IBufferAccessor&)> const& act) {
    Lease lease(*this);
    lease->use(act);
    lease.keep();
}

void Chain::change(std::function<void(IBufferAccessor&)> const& act) {
    Lease lease(*this);
    // Also when it fails: a part may have been written. Not given back either, as it may keep what it has read.
    struct Counted {
        std::atomic<std::uint64_t>& changes;
        ~Counted() { ++changes; }
    } const counted{storage_->changes};
    lease->use(act);
}

std::unique_ptr<Borrower> Chain::borrower() {
    auto const one = lockIfSerial();
    std::lock_guard const lock(mutex_);
    return std::make_unique<Borrower>(prototype_->createClone());
}

void Chain::giveBack(std::unique_ptr<Borrower> borrower) {
    auto const one = lockIfSerial();
    borrower.reset();
}

}  // namespace Quorvel::Dravik::Python
