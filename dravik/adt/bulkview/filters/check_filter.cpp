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

bool covers(AdtEnums::Access granted, AdtEnums::Access asked) {
    switch (asked) {
    case AdtEnums::NoAccess:
        return true;
    case AdtEnums::Read:
        return AdtEnums::isReadAccess(granted);
    case AdtEnums::Populate:
        return AdtEnums::isPopulateAccess(granted) || AdtEnums::isWriteAccess(granted);
    default:
        return AdtEnums::isWriteAccess(granted) && (asked != AdtEnums::ReadWrite || AdtEnums::isReadAccess(granted));
    }
}

// Whether the place of a corner of the block, in samples from its memory, fits into 64 bits.
bool hasPlaces(BufferHandle::ArrayInfo const& info) {
    std::int64_t low = info.offset;
    std::int64_t high = info.offset;
    bool fits = true;
    for (int axis = 0; axis < 4; ++axis) {
        std::int64_t const steps = info.range.size(axis) - 1;
        std::int64_t const reach = steps * info.strides[axis];  // both below 2^32 in amount
        std::int64_t& end = reach < 0 ? low : high;
        fits = fits && !__builtin_add_overflow(end, reach, &end);
    }
    return fits;
}

}  // namespace

std::unique_ptr<IBufferAccessor> CheckFilter::Apply(std::unique_ptr<IBufferAccessor> target) {
    if (target == nullptr) {
        throw std::invalid_argument("[CheckFilter::Apply] Invalid argument: target accessor is null.");
    }
    return std::unique_ptr<IBufferAccessor>(new CheckFilter(std::move(target)));
}

CheckFilter::CheckFilter(std::unique_ptr<IBufferAccessor> target) noexcept
    : StatefulBufferAccessorFilter(std::move(target)) {}

CheckFilter::CheckFilter(CheckFilter const& other) : StatefulBufferAccessorFilter(other), size_(other.size_) {}

CheckFilter::~CheckFilter() {
    StatefulBufferAccessorFilter::dispose();
}

void CheckFilter::refuse(std::string const& broken) const {
    IBufferAccessor const& target = targetAccessor();
    throw std::logic_error("[CheckFilter] " + Platform::readableTypeName(typeid(target)) + ": " + broken + ".");
}

FixedVector<4, int> CheckFilter::getSize() {
    auto const size = targetAccessor().getSize();
    if (!size.allGreaterEqual(Index::Filled(1))) {
        refuse(textOf("the size ", size, " is not positive on every axis"));
    }
    if (size_ != Index() && size != size_) {
        refuse(textOf("the size went from ", size_, " to ", size, " without accessorUpdated"));
    }
    return size_ = size;
}

void CheckFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    targetAccessor().setHint(type, range, weight);
}

void CheckFilter::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    auto const notices = handle.notices();
    targetAccessor().getBuffer(position, access, handle);
    auto const loan = handle.loan();
    if (handle.standsSince(notices)) {
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
    if (loan.buffer != nullptr && !hasPlaces(loan.info)) {
        refuse(textOf("a sample of the block ", loan.info, " lies beyond 64 bits"));
    }
}

std::unique_ptr<IBufferAccessor> CheckFilter::createClone() const {
    return std::unique_ptr<IBufferAccessor>(new CheckFilter(*this));
}

void CheckFilter::accessorUpdated() {
    size_ = Index();
    relay(&IClient::accessorUpdated);
}

void CheckFilter::bufferInvalidated(BufferHandle::Owner const* owner) {
    relay(&IClient::bufferInvalidated, owner);
}

bool CheckFilter::prepareBufferRelease(void const* buffer, int& value) {
    return relay(&IClient::prepareBufferRelease, buffer, value);
}

void CheckFilter::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) {
    relay(&IClient::releaseBuffer, buffer, std::move(owner));
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
