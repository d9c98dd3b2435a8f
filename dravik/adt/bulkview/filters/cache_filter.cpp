// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/cache_filter.h"

#include "dravik/adt/bulkview/filters/detail/cache_filter_impl.h"

#include <boost/container/small_vector.hpp>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

// Does something when a scope is left, by an exception as well.
template <class Action>
class AtExit {
  public:
    explicit AtExit(Action action) noexcept : action_(action) {}
    AtExit(AtExit const&) = delete;
    AtExit& operator=(AtExit const&) = delete;
    ~AtExit() { action_(); }

  private:
    Action action_;
};

}  // namespace

std::unique_ptr<IBufferAccessor> CacheFilter::Apply(
    std::unique_ptr<IBufferAccessor> target, int sampleBudget, int halfDensityThreshold, int fullDensityThreshold) {
    if (target == nullptr) {
        throw std::invalid_argument("[CacheFilter::Apply] Invalid argument: target accessor is null.");
    }
    auto const size = target->getSize();
    if (size[3] >= 2) {
        return std::make_unique<CacheFilterImpl<4>>(
            std::move(target), sampleBudget, halfDensityThreshold, fullDensityThreshold);
    }
    if (size[2] >= 2) {
        return std::make_unique<CacheFilterImpl<3>>(
            std::move(target), sampleBudget, halfDensityThreshold, fullDensityThreshold);
    }
    if (size[1] >= 2) {
        return std::make_unique<CacheFilterImpl<2>>(
            std::move(target), sampleBudget, halfDensityThreshold, fullDensityThreshold);
    }
    return target;
}

CacheFilter::CacheFilter(std::unique_ptr<IBufferAccessor> target, int axes, Limits const& limits)
    : StatefulBufferAccessorFilter(std::move(target)), index_(axes, limits) {
    reserve();
}

CacheFilter::CacheFilter(CacheFilter const& other)
    : StatefulBufferAccessorFilter(other), index_(other.index_.axes(), other.index_.limits()) {
    reserve();
}

CacheFilter::~CacheFilter() {
    removeAll();
    StatefulBufferAccessorFilter::dispose();
}

void CacheFilter::reserve() {
    // A limit that is never reached asks for no memory.
    constexpr int kMostReserved = 4096;
    int const entries = std::clamp(index_.limits().fullDensityThreshold, 0, kMostReserved);
    loans_.reserve(static_cast<std::size_t>(entries));
    index_.reserve(static_cast<int>(loans_.capacity()));
}

FixedVector<4, int> CacheFilter::getSize() {
    return targetAccessor().getSize();
}

void CacheFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    targetAccessor().setHint(type, range, weight);
}

// In each of the following, what leaves the table is declared before the lock and so destroyed after it: the last
// reference to an owner may run anybody's code. So may operator new and delete: memory comes and goes without the lock.

template <int N>
bool CacheFilter::tryServe(
    FixedVector<4, int> const& position, AdtEnums::Access access, BufferHandle& handle, Moment& moment) {
    moment.notices = handle.notices();
    boost::intrusive_ptr<BufferHandle::Owner> dropped;
    std::lock_guard const lock(mutex_);
    int const entry = index_.lookUp<N>(position, access);
    if (entry == Detail::CacheIndex::kNone) {
        moment.removals = removals_;
        return false;
    }
    dropped = handle.replace(loans_[static_cast<std::size_t>(entry)]);
    return true;
}

void CacheFilter::store(BufferHandle& handle, Moment const& moment) {
    std::size_t room = 0;  // for as many blocks, tables are brought along
    do {
        Loans loans;
        Detail::CacheIndex index(index_.axes(), index_.limits());
        if (room != 0) {
            loans.reserve(room);
            index.reserve(static_cast<int>(loans.capacity()));
        }
        room = tryStore(handle, moment, loans, index);
    } while (room != 0);
}

// The room that tables need for the block if those in use are full or to be dropped. 0 once there is nothing left to
// do. The index always has room for as many blocks as loans_.
std::size_t CacheFilter::tryStore(
    BufferHandle& handle, Moment const& moment, Loans& loans, Detail::CacheIndex& index) noexcept {
    constexpr std::size_t kFewest = 16;
    BufferHandle::Loan loan;
    std::lock_guard const lock(mutex_);
    // A notification bars blocks and counts that before it tells the client: a block that was asked for before is
    // either found there, or not used here.
    loan = handle.loan();
    bool const isLate = removals_ != moment.removals;
    loan.invalidated = isLate || !handle.standsSince(moment.notices);
    std::size_t const count = loans_.size();
    bool const isReset = index_.isResetBy(loan.info.range);
    if (isReset || count == loans_.capacity()) {
        std::size_t const room = isReset ? count + 1 : std::max(2 * count, kFewest);
        if (loans.capacity() < room) {
            return room;
        }
        index_.moveInto(index);
        if (!isReset) {
            std::move(loans_.begin(), loans_.end(), std::back_inserter(loans));
        }
        loans_.swap(loans);
    }
    index_.store(loan.info.range, loan.access, loan.invalidated);
    loans_.push_back(std::move(loan));
    return 0;
}

// Must not fail for want of memory, since the memory of the blocks may be what is wanted back: the blocks go together
// if there is room to carry them out of the lock, else one after the other.
template <class IsGone>
bool CacheFilter::remove(IsGone isGone) noexcept {
    bool any = false;
    for (std::size_t room = 1;;) {
        boost::container::small_vector<BufferHandle::Loan, 1> dropped;
        try {
            dropped.reserve(room);
        } catch (std::bad_alloc const&) {
        }
        std::lock_guard const lock(mutex_);
        auto const goneCount = static_cast<std::size_t>(std::count_if(loans_.begin(), loans_.end(), isGone));
        if (goneCount > room) {
            room = goneCount;
            continue;
        }
        any = any || goneCount != 0;
        if (goneCount != 0) {
            takeOut(isGone, dropped);
        }
        if (goneCount <= dropped.capacity()) {
            return any;
        }
    }
}

// As many as `dropped` has room for.
template <class IsGone, class Dropped>
void CacheFilter::takeOut(IsGone isGone, Dropped& dropped) noexcept {
    auto left = static_cast<std::ptrdiff_t>(dropped.capacity());
    index_.remove([&](int entry) { return isGone(loans_[static_cast<std::size_t>(entry)]) && left-- > 0; });
    auto kept = loans_.begin();
    for (BufferHandle::Loan& loan : loans_) {
        if (isGone(loan) && dropped.size() < dropped.capacity()) {
            dropped.push_back(std::move(loan));
        } else {
            std::swap(*kept++, loan);
        }
    }
    loans_.erase(kept, loans_.end());
}

// Such blocks do not serve any more, nor does one that is on its way here.
template <class IsGone>
void CacheFilter::bar(IsGone isGone) noexcept {
    std::lock_guard const lock(mutex_);
    ++removals_;
    index_.bar([&](int entry) { return isGone(loans_[static_cast<std::size_t>(entry)]); });
}

void CacheFilter::removeAll() noexcept {
    Loans dropped;
    std::lock_guard const lock(mutex_);
    dropped.swap(loans_);
    index_.remove([](int) { return true; });
}

bool CacheFilter::removeBuffer(void const* buffer) noexcept {
    return remove([=](BufferHandle::Loan const& loan) { return loan.buffer == buffer; });
}

void CacheFilter::dispose(bool flag) {
    removeAll();
    StatefulBufferAccessorFilter::dispose(flag);
}

// Blocks are barred before the client is told, so that none is served to a client that has been told. They go
// afterwards, whatever becomes of that: their owners may be anybody's code, and the client hears first.

void CacheFilter::accessorUpdated() {
    bar([](BufferHandle::Loan const&) { return true; });
    AtExit const removal([this] { removeAll(); });
    relay(&IClient::accessorUpdated);
}

void CacheFilter::bufferInvalidated(BufferHandle::Owner const* owner) {
    auto const isOfOwner = [=](BufferHandle::Loan const& loan) { return loan.owner == owner; };
    bar(isOfOwner);
    AtExit const removal([&] { remove(isOfOwner); });
    relay(&IClient::bufferInvalidated, owner);
}

bool CacheFilter::prepareBufferRelease(void const* buffer, int& value) {
    bar([=](BufferHandle::Loan const& loan) { return loan.buffer == buffer; });
    bool const isHeldAbove = relay(&IClient::prepareBufferRelease, buffer, value);
    bool const isHeldHere = removeBuffer(buffer);
    return isHeldAbove || isHeldHere;
}

void CacheFilter::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) {
    bar([=](BufferHandle::Loan const& loan) { return loan.buffer == buffer; });
    removeBuffer(buffer);
    relay(&IClient::releaseBuffer, buffer, std::move(owner));
}

AccessTraits CacheFilter::traits() const {
    return targetTraits();
}

bool CacheFilter::tryTransfer(RegionRequest const&, RegionTransfer&) {
    return false;
}

void CacheFilter::flush() {
    flushTarget();
}

template <int N>
CacheFilterImpl<N>::CacheFilterImpl(
    std::unique_ptr<IBufferAccessor> target, int sampleBudget, int halfDensityThreshold, int fullDensityThreshold)
    : CacheFilter(std::move(target), N, {sampleBudget, halfDensityThreshold, fullDensityThreshold}) {}

template <int N>
void CacheFilterImpl<N>::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    Moment moment;
    if (!tryServe<N>(position, access, handle, moment)) {
        targetAccessor().getBuffer(position, access, handle);
        store(handle, moment);
    }
}

template <int N>
std::unique_ptr<IBufferAccessor> CacheFilterImpl<N>::createClone() const {
    return std::make_unique<CacheFilterImpl>(*this);
}

template class CacheFilterImpl<2>;
template class CacheFilterImpl<3>;
template class CacheFilterImpl<4>;

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
