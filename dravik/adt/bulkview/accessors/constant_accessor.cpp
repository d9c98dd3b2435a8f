// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/constant_accessor.h"

#include "dravik/adt/bulkview/accessors/detail/read_only.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"

#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

// Keeps the sample of all loans.
class ConstantAccessor::Sample final : public BufferHandle::Owner {
  public:
    Sample(void const* value, int byteSize)
        : bytes(static_cast<char const*>(value), static_cast<char const*>(value) + byteSize) {}

    std::vector<char> bytes;
};

ConstantAccessor::ConstantAccessor(
    FixedVector<4, int> const& size, std::type_info const& sampleType, int bitSize, void const* value)
    : size_(size), sampleType_(&sampleType), bitSize_(bitSize) {
    Detail::requireSize("ConstantAccessor", size);
    if (value == nullptr || bitSize < 1 || (bitSize != 1 && bitSize % 8 != 0)) {
        std::ostringstream text;
        text << "[ConstantAccessor] Invalid argument: "
             << (value == nullptr ? "no value" : "a sample that is neither 1 bit nor whole bytes, ") << bitSize
             << " bits.";
        throw std::invalid_argument(text.str());
    }
    sample_.reset(new Sample(value, (bitSize + 7) / 8));
}

ConstantAccessor::ConstantAccessor(ConstantAccessor const& other) = default;
ConstantAccessor::~ConstantAccessor() = default;

FixedVector<4, int> ConstantAccessor::getSize() {
    return size_;
}

void ConstantAccessor::setClient(IClient*) {}

void ConstantAccessor::setHint(HintType, OpenEndedRange<4, int> const&, float) {}

void ConstantAccessor::getBuffer(FixedVector<4, int>, AdtEnums::Access access, BufferHandle& handle) {
    Detail::refuseWriting("ConstantAccessor", access);
    handle.setOwner(sample_.get());
    handle.update(sample_->bytes.data(), {OpenEndedRange<4, int>::OfSize(size_), {}, 0}, AdtEnums::Read);
}

std::unique_ptr<IBufferAccessor> ConstantAccessor::createClone() const {
    return std::unique_ptr<IBufferAccessor>(new ConstantAccessor(*this));
}

void ConstantAccessor::dispose(bool) {}

AccessTraits ConstantAccessor::traits() const {
    AccessTraits traits;
    traits.sampleType = sampleType_;
    traits.bitSize = bitSize_;
    traits.concurrency = AccessTraits::Concurrency::PerClone;
    return traits;
}

bool ConstantAccessor::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    BufferHandle handle;
    getBuffer({}, request.access, handle);
    transfer.copy(request, handle);
    return true;
}

void ConstantAccessor::flush() {}

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
