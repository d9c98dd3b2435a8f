// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/value_convert_filter.h"

#include "dravik/adt/converters/type_register.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <typeinfo>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

constexpr int kWholeRowAtMost = 100;  // samples
constexpr int kPartOfRow = 64;        // samples

int runAxis(OpenEndedRange<4, int> const& block) {
    return block.size(2) > 1 ? 2 : block.size(1) > 1 ? 1 : 0;
}

// A sample of a buffer as converters take it: `index` samples from `base`.
struct Place {
    char* base;
    int index;
};

// Converters count from the base in 32 bits; what lies farther away gets a base nearer by.
Place placeOf(void* buffer, std::int64_t offset, std::type_info const& type) {
    auto* base = static_cast<char*>(buffer);
    if (offset > std::numeric_limits<int>::max()) {
        // Whole bytes of any type, and room for runs that go backwards.
        constexpr std::int64_t kRoom = 1 << 30;
        std::int64_t const skippedOctets = (offset - kRoom) / 8;
        base += skippedOctets * TypeRegister::sizeofTypeInBits(type);
        offset -= skippedOctets * 8;
    }
    return {base, static_cast<int>(offset)};
}

}  // namespace

// Keeps the run that a handle shows, and through a handle of its own the target's block that the run was made from.
// Attached to its filter as long as both live; only an attached owner has anything pending.
class ValueConvertFilter::TempBufferOwner final : public BufferHandle::Owner {
  public:
    explicit TempBufferOwner(ValueConvertFilter& filter) noexcept
        : Owner(&filter), filter_(&filter), slot_(&filter.owners_), next_(filter.owners_) {
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

    void writeBack() {
        if (pendingCount_ != 0 && filter_->inverse_ != nullptr) {
            convertIntoBlock();
        }
        pendingCount_ = 0;
    }

    // After this the filter may go.
    void detach() noexcept {
        pendingCount_ = 0;
        *slot_ = next_;
        if (next_ != nullptr) {
            next_->slot_ = slot_;
        }
        filter_ = nullptr;
    }

    void writeBackOrDropAndDetach() noexcept {
        if (filter_ == nullptr) {
            return;
        }
        try {
            writeBack();
        } catch (...) {
            // Destructors have nobody to tell.
        }
        detach();
    }

    // The target's blocks are other ones now. Without an owner this one may be gone already.
    void distrustBlock() noexcept {
        holdsBlock_ = false;
        isBlockStale_ = true;
        if (block_.owner() == nullptr) {
            pendingCount_ = 0;
        }
    }

    TempBufferOwner* next() const noexcept { return next_; }

  private:
    void lock() override {}
    void unlock() override {}

    bool servesFromBlock(FixedVector<4, int> const& position, AdtEnums::Access access) const noexcept {
        return holdsBlock_ && block_.contains(position) &&
               (access == AdtEnums::Read || AdtEnums::isWriteAccess(block_.access()));
    }

    void fetchBlock(FixedVector<4, int> const& position, AdtEnums::Access access) {
        holdsBlock_ = false;
        if (isBlockStale_) {
            block_.reset(/*releaseOwner=*/true);
            isBlockStale_ = false;
        }
        filter_->targetAccessor().getBuffer(position, access, block_);
        while (!block_.confirm()) {
            block_.reset(/*releaseOwner=*/true);
            filter_->targetAccessor().getBuffer(position, access, block_);
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
        }
    }

    void reserveRun() {
        auto const bytes = static_cast<std::size_t>(std::max<std::int64_t>(runLength_, 0)) *
                           static_cast<std::size_t>(filter_->sampleSize_);
        if (bytes > capacity_) {
            run_.reset(new unsigned char[bytes]);
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
        IValueConverter const& forward = *filter_->forward_;
        Place const from = placeOf(block_.buffer(), offset, forward.getInputType());
        int const stride = block_.info().strides[axis_];
        if (stride == 1) {
            forward.convertContiguous(from.base, from.index, run_.get(), 0, count);
        } else {
            forward.convertStrided(from.base, from.index, stride, run_.get(), 0, 1, count);
        }
    }

    void convertIntoBlock() const {
        IValueConverter const& inverse = *filter_->inverse_;
        Place const to = placeOf(block_.buffer(), pendingOffset_, inverse.getOutputType());
        int const stride = block_.info().strides[axis_];
        if (stride == 1) {
            inverse.convertContiguous(run_.get(), 0, to.base, to.index, pendingCount_);
        } else {
            inverse.convertStrided(run_.get(), 0, 1, to.base, to.index, stride, pendingCount_);
        }
    }

    ValueConvertFilter* filter_;  // null once detached
    TempBufferOwner** slot_;      // the pointer of the filter's list that points here
    TempBufferOwner* next_;

    std::unique_ptr<unsigned char[]> run_;  // converted samples, one beside the other
    std::size_t capacity_ = 0;              // bytes
    BufferHandle block_;
    bool isBlockStale_ = false;  // good for what is pending and for nothing else
    bool holdsBlock_ = false;    // whether the block may serve further requests, and axis, length and capacity fit it
    int axis_ = 0;
    std::int64_t runLength_ = 0;      // samples
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

void ValueConvertFilter::accessorUpdated() {
    for (TempBufferOwner* owner = owners_; owner != nullptr; owner = owner->next()) {
        owner->distrustBlock();
    }
    relay(&IClient::accessorUpdated);
}

void ValueConvertFilter::bufferInvalidated(BufferHandle::Owner const*) {}

bool ValueConvertFilter::prepareBufferRelease(void const*, int&) {
    return false;
}

void ValueConvertFilter::releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) {}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
