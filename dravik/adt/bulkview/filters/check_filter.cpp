// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/check_filter.h"

#include "dravik/adt/platform/type_name.h"

#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

using Index = FixedVector<4, int>;

template <class... Parts>
std::string textOf(Parts const&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

char const* nameOf(AdtEnums::Access access) {
    constexpr char const* kNames[] = {"NoAccess", "Read", "ReadWrite", "Write", "Populate"};
    return access >= 0 && access <= 4 ? kNames[access] : "an unknown access";
}

// Any loan serves Read.
bool covers(AdtEnums::Access granted, AdtEnums::Access asked) {
    switch (asked) {
    case AdtEnums::Read:
        return granted != AdtEnums::NoAccess;
    case AdtEnums::ReadWrite:
        return granted == AdtEnums::ReadWrite;
    case AdtEnums::Write:
    case AdtEnums::Populate:
        return granted == asked || AdtEnums::isWriteAccess(granted);
    default:
        return true;
    }
}

// Sets a flag for a scope.
class Flagged {
  public:
    explicit Flagged(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
    Flagged(Flagged const&) = delete;
    Flagged& operator=(Flagged const&) = delete;
    ~Flagged() { flag_ = false; }

  private:
    std::atomic<bool>& flag_;
};

}  // namespace

// A thread in the chain. It may come back, as a client does that asks for the size when it is told of an update.
class CheckFilter::Call {
  public:
    Call(CheckFilter const& filter, char const* operation) : caller_(filter.caller_) {
        auto const self = std::this_thread::get_id();
        std::thread::id other;
        isFirst_ = caller_.compare_exchange_strong(other, self);
        if (!isFirst_ && other != self) {
            filter.refuse(textOf("thread ", self, " calls ", operation, " while thread ", other, " is in the chain"));
        }
    }
    Call(Call const&) = delete;
    Call& operator=(Call const&) = delete;
    ~Call() {
        if (isFirst_) {
            caller_ = std::thread::id();
        }
    }

  private:
    std::atomic<std::thread::id>& caller_;
    bool isFirst_;
};

std::unique_ptr<IBufferAccessor> CheckFilter::Apply(std::unique_ptr<IBufferAccessor> target) {
    if (target == nullptr) {
        throw std::invalid_argument("[CheckFilter::Apply] Invalid argument: target accessor is null.");
    }
    return std::unique_ptr<IBufferAccessor>(new CheckFilter(std::move(target)));
}

CheckFilter::CheckFilter(std::unique_ptr<IBufferAccessor> target) noexcept
    : StatefulBufferAccessorFilter(std::move(target)) {}

CheckFilter::CheckFilter(CheckFilter const& other)
    : StatefulBufferAccessorFilter(other), isSizeKnown_(other.isSizeKnown_.load()), size_(other.size_) {}

CheckFilter::~CheckFilter() {
    StatefulBufferAccessorFilter::dispose();
}

void CheckFilter::refuse(std::string const& broken) const {
    IBufferAccessor const& target = targetAccessor();
    throw std::logic_error("[CheckFilter] " + Platform::readableTypeName(typeid(target)) + ": " + broken + ".");
}

void CheckFilter::checkSize(Index const& size) const {
    if (!size.allGreaterEqual(Index::Filled(1))) {
        refuse(textOf("the size ", size, " is not positive on every axis"));
    }
    if (isSizeKnown_ && size != size_) {
        refuse(textOf("the size went from ", size_, " to ", size, " without accessorUpdated"));
    }
}

FixedVector<4, int> CheckFilter::getSize() {
    Call const call(*this, "getSize");
    auto const size = targetAccessor().getSize();
    checkSize(size);
    size_ = size;
    isSizeKnown_ = true;
    return size;
}

void CheckFilter::setClient(IClient* client) {
    Call const call(*this, "setClient");
    StatefulBufferAccessorFilter::setClient(client);
}

void CheckFilter::dispose(bool flag) {
    Call const call(*this, "dispose");
    StatefulBufferAccessorFilter::dispose(flag);
}

void CheckFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    Call const call(*this, "setHint");
    targetAccessor().setHint(type, range, weight);
}

void CheckFilter::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    Call const call(*this, "getBuffer");
    // So that the block of a request before does not pass for an answer.
    handle.updateBufferAndResetInfo(nullptr, AdtEnums::NoAccess);
    auto const notices = handle.notices();
    {
        Flagged const asking(isAsking_);
        targetAccessor().getBuffer(position, access, handle);
    }
    auto const loan = handle.loan();
    if (handle.standsSince(notices)) {
        if (loan.buffer != nullptr) {
            (loan.owner == nullptr ? hasOwnerless_ : hasOwners_) = true;
        }
        check(position, access, loan);
    }
}

void CheckFilter::check(Index const& position, AdtEnums::Access access, BufferHandle::Loan const& loan) const {
    if (loan.info.range == OpenEndedRange<4, int>() && loan.buffer == nullptr) {
        refuse(textOf("the request for ", position, " left the handle empty"));
    }
    if (!loan.info.range.contains(position)) {
        refuse(textOf("the block ", loan.info.range, " does not contain the position asked for, ", position));
    }
    if (!covers(loan.access, access)) {
        refuse(textOf("the access granted, ", nameOf(loan.access), ", does not cover ", nameOf(access)));
    }
    if (loan.buffer != nullptr) {
        checkLayout(loan.info, AdtEnums::isWriteAccess(loan.access) || AdtEnums::isPopulateAccess(loan.access));
    }
}

void CheckFilter::checkLayout(BufferHandle::ArrayInfo const& info, bool isWritable) const {
    std::int64_t low = info.offset;
    std::int64_t high = info.offset;
    for (int axis = 0; axis < 4; ++axis) {
        std::int64_t const steps = info.range.size(axis) - 1;
        std::int64_t const reach = steps * info.strides[axis];  // both below 2^32 in amount
        std::int64_t& end = reach < 0 ? low : high;
        if (__builtin_add_overflow(end, reach, &end)) {
            refuse(textOf("a sample of the block ", info, " lies beyond 64 bits"));
        }
        if (isWritable && steps > 0 && info.strides[axis] == 0) {
            refuse(textOf("a block to write has ", steps + 1, " samples in one place along axis ", axis, ": ", info));
        }
    }
    if (low < 0) {
        refuse(textOf("a sample of the block ", info, " lies ", -low, " samples before its memory"));
    }
}

std::unique_ptr<IBufferAccessor> CheckFilter::createClone() const {
    Call const call(*this, "createClone");
    std::unique_ptr<CheckFilter> clone(new CheckFilter(*this));
    if (isSizeKnown_) {
        clone->getSize();
    }
    return clone;
}

AccessTraits CheckFilter::traits() const {
    Call const call(*this, "traits");
    return targetTraits();
}

bool CheckFilter::tryTransfer(RegionRequest const&, RegionTransfer&) {
    return false;
}

void CheckFilter::flush() {
    Call const call(*this, "flush");
    flushTarget();
}

void CheckFilter::checkOwner(char const* notification, BufferHandle::Owner const* owner) const {
    bool const isOfBlocks = owner == nullptr ? hasOwnerless_ : hasOwners_;
    if (!isOfBlocks && (hasOwners_ || hasOwnerless_)) {
        refuse(textOf(
            notification,
            owner == nullptr ? " names no owner, and every block has one" : " names an owner, and no block has one"));
    }
}

void CheckFilter::accessorUpdated() {
    if (isAsking_) {
        refuse("accessorUpdated comes during a request");
    }
    isSizeKnown_ = false;
    relay(&IClient::accessorUpdated);
}

void CheckFilter::bufferInvalidated(BufferHandle::Owner const* owner) {
    checkOwner("bufferInvalidated", owner);
    relay(&IClient::bufferInvalidated, owner);
}

bool CheckFilter::prepareBufferRelease(void const* buffer, int& value) {
    return relay(&IClient::prepareBufferRelease, buffer, value);
}

void CheckFilter::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) {
    checkOwner("releaseBuffer", owner.get());
    relay(&IClient::releaseBuffer, buffer, std::move(owner));
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
