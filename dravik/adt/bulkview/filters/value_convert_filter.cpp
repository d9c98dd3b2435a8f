// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/value_convert_filter.h"

#include "dravik/adt/bulkview/detail/cancellation_hold.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/bulkview/write_back.h"
#include "dravik/adt/converters/composite_converter.h"
#include "dravik/adt/converters/detail/long_run.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/platform/type_name.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

constexpr int kWholeRowAtMost = 100;  // samples
constexpr int kPartOfRow = 64;        // samples

int runAxis(OpenEndedRange<4, int> const& block) {
    return block.size(2) > 1 ? 2 : block.size(1) > 1 ? 1 : 0;
}

// Calls `convert(place, start, count)` for each part of a run that converters can address.
template <class Void, class Convert>
void forEachPart(Converters::Detail::LongRun<Void> const& run, int count, Convert const& convert) {
    int const longest = run.longestPart();
    for (int start = 0; start < count;) {
        int const part = std::min(count - start, longest);
        convert(run.part(start, part), start, part);
        start += part;
    }
}

// Of a sample of `type`, or of whole bytes where that is not known.
int bitsOf(std::type_info const& type, int byteSize) {
    return TypeRegister::isTypeRegisted(type) ? TypeRegister::sizeofTypeInBits(type) : byteSize * 8;
}

bool meets(ExtentK<4, int> const& region, OpenEndedRange<4, int> const& box) {
    ExtentK<4, int> const inside(box);
    return std::equal(region.data(), region.data() + 4, inside.data(), [](auto const& wanted, auto const& there) {
        return !wanted.intersection(there).isEmpty();
    });
}

IValueConverter::ConstPtr chained(IValueConverter::ConstPtr const& first, IValueConverter::ConstPtr const& second) {
    bool const isChain = first != nullptr && second != nullptr;
    return isChain            ? Converters::CompositeConverter::getCompositeConverter(first, second, nullptr)
           : first != nullptr ? first
                              : second;
}

void checkConverters(int sampleSize, IValueConverter const& forward, IValueConverter const* inverse) {
    using Platform::readableTypeName;
    std::type_info const& shown = forward.getOutputType();
    int const size = (bitsOf(shown, sampleSize) + 7) / 8;
    if (sampleSize < 1 || sampleSize != size) {
        throw std::invalid_argument(
            "[ValueConvertFilter::Apply] Invalid argument: a sample size of " + std::to_string(sampleSize) +
            " bytes does not fit '" + readableTypeName(shown) + "', which the forward converter writes.");
    }
    if (inverse != nullptr &&
        (inverse->getInputType() != shown || inverse->getOutputType() != forward.getInputType())) {
        throw std::invalid_argument(
            "[ValueConvertFilter::Apply] Invalid argument: the inverse converter goes from '" +
            readableTypeName(inverse->getInputType()) + "' to '" + readableTypeName(inverse->getOutputType()) +
            "', the forward converter from '" + readableTypeName(forward.getInputType()) + "' to '" +
            readableTypeName(shown) + "'.");
    }
}

}  // namespace

// Keeps the run that a handle shows, and through a handle of its own the target's block that the run was made from.
// Attached to its filter as long as both live; only an attached owner has anything pending.
class ValueConvertFilter::TempBufferOwner final : public BufferHandle::Owner, public IWriteBack {
  public:
    explicit TempBufferOwner(ValueConvertFilter& filter) noexcept
        : Owner(&filter), filter_(&filter), slot_(&filter.owners_) {
        std::lock_guard const lock(filter.mutex_);
        next_ = filter.owners_;
        *slot_ = this;
        if (next_ != nullptr) {
            next_->slot_ = &next_;
        }
    }

    ~TempBufferOwner() override { writeBackOrDropAndDetach(); }

    // The owner that `handle` alone holds, if it is one of `filter`. Its tag does not tell: that is the address of
    // whoever made the owner, who may have been somebody else in the same place before.
    static TempBufferOwner* soleOwner(BufferHandle const& handle, ValueConvertFilter const& filter) noexcept {
        Owner* const owner = handle.owner();
        if (owner == nullptr || !owner->isUniqueRef() || typeid(*owner) != typeid(TempBufferOwner)) {
            return nullptr;
        }
        auto* const mine = static_cast<TempBufferOwner*>(owner);
        return mine->filter_ == &filter ? mine : nullptr;
    }

    void lend(FixedVector<4, int> const& position, AdtEnums::Access access, BufferHandle& handle) {
        if (!servesFromBlock(position, access)) {
            fetchBlock(position, access);
        }
        auto const info = runAround(position);
        lent_ = info.range;
        if (block_.isNull()) {
            handle.update(nullptr, info, access);
            return;
        }
        int const count = info.range.max.data()[axis_] - info.range.min.data()[axis_];
        std::int64_t const offset = block_.offset(info.range.min);
        convertFromBlock(offset, count);
        handle.update(run_.get(), info, access);
        if (AdtEnums::isWriteAccess(access)) {
            pendingCount_ = count;
            pendingOffset_ = offset;
        }
    }

    void writeBack() override {
        carryDown();
        pendingCount_ = 0;
    }

    // The run stays pending: its holder may go on writing into it.
    void carryDown() const {
        if (pendingCount_ != 0 && filter_->inverse_ != nullptr) {
            convertIntoBlock();
        }
    }

    bool shows(ExtentK<4, int> const& region) const noexcept { return meets(region, lent_); }

    // Carries the run to the storage for the last time, as far as others do not share the block.
    void takeBack() {
        writeBack();
        BufferHandle::Owner* const owner = block_.owner();
        if (owner != nullptr && owner->isUniqueRef()) {
            if (auto* const below = dynamic_cast<IWriteBack*>(owner)) {
                below->writeBack();
            }
        }
        letBlockGo();
        lent_ = {};
    }

    // After this the filter may go.
    void detach() noexcept {
        pendingCount_ = 0;
        {
            std::lock_guard const lock(filter_->mutex_);
            *slot_ = next_;
            if (next_ != nullptr) {
                next_->slot_ = slot_;
            }
        }
        filter_ = nullptr;
        letBlockGo();
    }

    void writeBackOrDropAndDetach() noexcept {
        if (filter_ == nullptr) {
            return;
        }
        // Cancellation unwinds by an exception that nobody may keep in.
        BulkView::Detail::CancellationHold const heldOff;
        try {
            writeBack();
        } catch (...) {
            // Destructors have nobody to tell.
        }
        detach();
    }

    // The target's blocks are other ones now. Without an owner this one may be gone already.
    void distrustBlock() noexcept {
        block_.invalidate(/*emptyRange=*/false);
        if (block_.owner() == nullptr) {
            pendingCount_ = 0;
        }
    }

    // For notifications: read under the filter's lock, possibly on another thread.

    bool holds(void const* buffer) const noexcept { return buffer != nullptr && block_.buffer() == buffer; }
    BufferHandle::Owner const* blockOwner() const noexcept { return block_.owner(); }
    void const* run() const noexcept { return run_.get(); }
    bool hasBorrowed(void const* buffer) const noexcept {
        return hasBorrowed_.load(std::memory_order_relaxed) && holds(buffer);
    }
    // Also where a fetch is under way: its loan is then not confirmed.
    void invalidateBlock() noexcept { block_.invalidate(/*emptyRange=*/false); }

    // Drops what is pending.
    void letBlockGo() noexcept {
        pendingCount_ = 0;
        holdsBlock_ = false;
        hasBorrowed_.store(false, std::memory_order_relaxed);
        // Assigned and not reset: this must not take the lock of the block's owner, which may fail.
        block_ = BufferHandle();
    }

    TempBufferOwner* next() const noexcept { return next_; }

  private:
    void lock() override {}
    void unlock() override {}

    bool servesFromBlock(FixedVector<4, int> const& position, AdtEnums::Access access) const noexcept {
        return holdsBlock_ && !block_.isInvalidated() && block_.contains(position) &&
               (access == AdtEnums::Read || AdtEnums::isWriteAccess(block_.access()));
    }

    void fetchBlock(FixedVector<4, int> const& position, AdtEnums::Access access) {
        holdsBlock_ = false;
        hasBorrowed_.store(false, std::memory_order_relaxed);
        if (block_.isInvalidated()) {
            block_.reset(/*releaseOwner=*/true);
        }
        for (bool stands = false; !stands;) {
            auto const notices = block_.notices();
            filter_->targetAccessor().getBuffer(position, access, block_);
            stands = block_.standsSince(notices);
            stands ? void() : block_.reset(/*releaseOwner=*/true);
        }
        auto const range = block_.range4();
        axis_ = runAxis(range);
        runLength_ = range.size(axis_);
        if (runLength_ > kWholeRowAtMost && position.data()[axis_] != range.min.data()[axis_]) {
            runLength_ = kPartOfRow;
        }
        if (!block_.isNull()) {
            reserveRun();
            holdsBlock_ = true;
            hasBorrowed_.store(block_.owner() == nullptr, std::memory_order_relaxed);
        }
    }

    void reserveRun() {
        auto const bytes = static_cast<std::size_t>(std::max<std::int64_t>(runLength_, 0)) *
                           static_cast<std::size_t>(filter_->sampleSize_);
        if (bytes > capacity_) {
            std::unique_ptr<unsigned char[]> room(new unsigned char[bytes]);
            std::lock_guard const lock(filter_->mutex_);
            run_.swap(room);
            capacity_ = bytes;
        }
    }

    BufferHandle::ArrayInfo runAround(FixedVector<4, int> const& position) const {
        auto const block = block_.range4();
        BufferHandle::ArrayInfo info{{position, position + FixedVector<4, int>::Filled(1)}, {}, 0};
        std::int64_t const high = std::min<std::int64_t>(position[axis_] + runLength_, block.max[axis_]);
        info.range.max[axis_] = static_cast<int>(high);
        info.range.min[axis_] = static_cast<int>(std::max<std::int64_t>(block.min[axis_], high - runLength_));
        info.strides[axis_] = 1;
        return info;
    }

    void convertFromBlock(std::int64_t offset, int count) const {
        using Converters::Detail::LongRun;
        IValueConverter const& forward = *filter_->forward_;
        int const stride = block_.info().strides[axis_];
        LongRun<void const> const run(block_.buffer(), offset, stride, count, forward.getInputType());
        forEachPart(run, count, [&](auto const& from, int start, int part) {
            if (stride == 1) {
                forward.convertContiguous(from.base, from.index, run_.get(), start, part);
            } else {
                forward.convertStrided(from.base, from.index, stride, run_.get(), start, 1, part);
            }
        });
    }

    void convertIntoBlock() const {
        using Converters::Detail::LongRun;
        IValueConverter const& inverse = *filter_->inverse_;
        int const stride = block_.info().strides[axis_];
        LongRun<void> const run(block_.buffer(), pendingOffset_, stride, pendingCount_, inverse.getOutputType());
        forEachPart(run, pendingCount_, [&](auto const& to, int start, int part) {
            if (stride == 1) {
                inverse.convertContiguous(run_.get(), start, to.base, to.index, part);
            } else {
                inverse.convertStrided(run_.get(), start, 1, to.base, to.index, stride, part);
            }
        });
    }

    ValueConvertFilter* filter_;  // null once detached
    TempBufferOwner** slot_;      // the pointer of the filter's list that points here
    TempBufferOwner* next_;

    std::unique_ptr<unsigned char[]> run_;  // converted samples, one beside the other
    std::size_t capacity_ = 0;              // bytes
    BufferHandle block_;
    std::atomic<bool> hasBorrowed_ = false;  // whether the block has no owner, so that notifications take it back
    bool holdsBlock_ = false;  // whether the block may serve further requests, and axis, length and capacity fit it
    int axis_ = 0;
    std::int64_t runLength_ = 0;      // samples
    OpenEndedRange<4, int> lent_;     // what the run shows
    int pendingCount_ = 0;            // samples of the run to carry back
    std::int64_t pendingOffset_ = 0;  // samples from the block's buffer to the first of them
};

std::unique_ptr<IBufferAccessor> ValueConvertFilter::Apply(
    std::unique_ptr<IBufferAccessor> target, int sampleSize, ConverterPtr const& forward, ConverterPtr const& inverse) {
    if (target == nullptr) {
        throw std::invalid_argument("[ValueConvertFilter::Apply] Invalid argument: target accessor is null.");
    }
    if (forward == nullptr) {
        return target;
    }
    checkConverters(sampleSize, *forward, inverse.get());
    return std::unique_ptr<IBufferAccessor>(new ValueConvertFilter(std::move(target), sampleSize, forward, inverse));
}

ValueConvertFilter::ValueConvertFilter(
    std::unique_ptr<IBufferAccessor> target, int sampleSize, ConverterPtr const& forward, ConverterPtr const& inverse)
    : StatefulBufferAccessorFilter(std::move(target)), sampleSize_(sampleSize), forward_(forward), inverse_(inverse) {}

ValueConvertFilter::ValueConvertFilter(ValueConvertFilter const& other)
    : StatefulBufferAccessorFilter(other),
      sampleSize_(other.sampleSize_),
      forward_(other.forward_),
      inverse_(other.inverse_) {}

ValueConvertFilter::~ValueConvertFilter() {
    while (owners_ != nullptr) {
        owners_->writeBackOrDropAndDetach();
    }
    StatefulBufferAccessorFilter::dispose();
}

FixedVector<4, int> ValueConvertFilter::getSize() {
    return targetAccessor().getSize();
}

void ValueConvertFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    targetAccessor().setHint(type, range, weight);
}

void ValueConvertFilter::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    boost::intrusive_ptr<TempBufferOwner> made;
    TempBufferOwner* owner = TempBufferOwner::soleOwner(handle, *this);
    if (owner != nullptr) {
        owner->writeBack();
    } else {
        made.reset(owner = new TempBufferOwner(*this));
    }
    // The run so far is over. Whatever fails from here on must not leave the handle showing it: it is about to be
    // overwritten, and what is written into it now would be lost.
    handle.updateBufferAndResetInfo(nullptr, AdtEnums::NoAccess);
    if (made != nullptr) {
        handle.setOwner(owner);
    }
    owner->lend(position, access, handle);
}

std::unique_ptr<IBufferAccessor> ValueConvertFilter::createClone() const {
    return std::unique_ptr<IBufferAccessor>(new ValueConvertFilter(*this));
}

void ValueConvertFilter::dispose(bool flag) {
    while (owners_ != nullptr) {
        owners_->writeBack();
        owners_->detach();
    }
    StatefulBufferAccessorFilter::dispose(flag);
}

AccessTraits ValueConvertFilter::traits() const {
    auto traits = targetTraits();
    traits.sampleType = &forward_->getOutputType();
    traits.bitSize = bitSize();
    traits.writable = traits.writable && inverse_ != nullptr;
    if (!knowsSampleSizes()) {
        traits.concurrency = AccessTraits::Concurrency::Serial;  // runs of two clones may overlap
    }
    return traits;
}

int ValueConvertFilter::bitSize() const {
    return bitsOf(forward_->getOutputType(), sampleSize_);
}

// Samples of unknown size cannot be addressed, nor kept between two converters.
bool ValueConvertFilter::knowsSampleSizes() const {
    return TypeRegister::isTypeRegisted(forward_->getInputType()) &&
           TypeRegister::isTypeRegisted(forward_->getOutputType());
}

bool ValueConvertFilter::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    bool const isRead = request.access == AdtEnums::Read;
    if (!isRead && inverse_ == nullptr) {
        throw Exceptions::NotSupportedException("ValueConvertFilter", "writing without an inverse converter.");
    }
    if (request.converter == nullptr && request.array.bitSize() != bitSize()) {
        throw std::invalid_argument(
            "[ValueConvertFilter] An array of " + std::to_string(request.array.bitSize()) +
            " bits per sample for samples of " + std::to_string(bitSize()) + " bits.");
    }
    carryDown();
    if (isRead) {
        return tryPass(request, transfer);
    }
    // Held here, since the client may let them go while it is told of the first.
    auto const owners = showing(request.region);
    bool isDone = false;
    try {
        for (auto const& owner : owners) {
            owner->takeBack();
        }
        isDone = tryPass(request, transfer);
    } catch (...) {
        tellOfOverwritten(owners);
        throw;
    }
    tellOfOverwritten(owners);
    return isDone;
}

bool ValueConvertFilter::tryPass(RegionRequest const& request, RegionTransfer& transfer) {
    if (!knowsSampleSizes()) {
        return false;
    }
    auto below = request;
    below.converter =
        request.access == AdtEnums::Read ? chained(forward_, request.converter) : chained(request.converter, inverse_);
    isPassing_ = true;
    try {
        transfer.run(targetAccessor(), below);
    } catch (...) {
        isPassing_ = false;
        throw;
    }
    isPassing_ = false;
    return true;
}

void ValueConvertFilter::carryDown() const {
    for (TempBufferOwner const* owner = owners_; owner != nullptr; owner = owner->next()) {
        owner->carryDown();
    }
}

ValueConvertFilter::Owners ValueConvertFilter::showing(ExtentK<4, int> const& region) const {
    Owners owners;
    for (TempBufferOwner* owner = owners_; owner != nullptr; owner = owner->next()) {
        if (owner->shows(region)) {
            owners.emplace_back(owner);
        }
    }
    return owners;
}

void ValueConvertFilter::tellOfOverwritten(Owners const& owners) const {
    for (auto const& owner : owners) {
        relay(&IClient::bufferInvalidated, owner.get());
    }
}

void ValueConvertFilter::flush() {
    carryDown();
    flushTarget();
}

void ValueConvertFilter::accessorUpdated() {
    for (TempBufferOwner* owner = owners_; owner != nullptr; owner = owner->next()) {
        owner->distrustBlock();
    }
    relay(&IClient::accessorUpdated);
}

void ValueConvertFilter::bufferInvalidated(BufferHandle::Owner const* owner) {
    if (isPassing_) {
        relay(&IClient::bufferInvalidated, owner);
    }
}

template <class Predicate>
std::vector<void const*> ValueConvertFilter::invalidateBlocks(Predicate const& isMeant) {
    std::vector<void const*> runs;
    std::lock_guard const lock(mutex_);
    for (TempBufferOwner* owner = owners_; owner != nullptr; owner = owner->next()) {
        if (isMeant(*owner)) {
            runs.push_back(owner->run());
        }
    }
    for (TempBufferOwner* owner = owners_; owner != nullptr; owner = owner->next()) {
        if (isMeant(*owner)) {
            owner->invalidateBlock();
        }
    }
    return runs;
}

ValueConvertFilter::TempBufferOwner* ValueConvertFilter::borrowerOf(void const* buffer) {
    std::lock_guard const lock(mutex_);
    TempBufferOwner* owner = owners_;
    while (owner != nullptr && !owner->hasBorrowed(buffer)) {
        owner = owner->next();
    }
    return owner;
}

void ValueConvertFilter::giveBack(void const* buffer) {
    while (TempBufferOwner* const owner = borrowerOf(buffer)) {
        owner->writeBack();
        owner->letBlockGo();
    }
}

bool ValueConvertFilter::prepareBufferRelease(void const* buffer, int& value) {
    auto const runs = invalidateBlocks([&](TempBufferOwner const& owner) { return owner.holds(buffer); });
    giveBack(buffer);
    for (void const* run : runs) {
        relay(&IClient::prepareBufferRelease, run, value);
    }
    bool const isHeldAbove = isPassing_ && relay(&IClient::prepareBufferRelease, buffer, value);
    return isHeldAbove || !runs.empty();
}

void ValueConvertFilter::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> blockOwner) {
    auto const runs = invalidateBlocks(
        [&](TempBufferOwner const& owner) { return owner.holds(buffer) && owner.blockOwner() == blockOwner.get(); });
    if (blockOwner == nullptr) {
        try {
            giveBack(buffer);
        } catch (...) {
            // The memory goes all the same.
            while (TempBufferOwner* const owner = borrowerOf(buffer)) {
                owner->letBlockGo();
            }
            throw;
        }
    }
    int unused = 0;
    for (void const* run : runs) {
        relay(&IClient::prepareBufferRelease, run, unused);
    }
    if (isPassing_) {
        relay(&IClient::releaseBuffer, buffer, std::move(blockOwner));
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
