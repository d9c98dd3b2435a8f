// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/lent_blocks.h"

#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/regions/detail/block_walk.h"
#include "dravik/adt/bulkview/regions/detail/loan_client.h"
#include "dravik/adt/bulkview/regions/detail/region_checks.h"

#include <cstdint>
#include <optional>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Box = OpenEndedRange<4, int>;

void requireSamples(AccessTraits const& traits, std::type_info const& type, int bitSize) {
    bool const isOtherType = *traits.sampleType != typeid(void) && *traits.sampleType != type;
    if (isOtherType || (traits.bitSize != 0 && traits.bitSize != bitSize)) {
        Detail::refuseRegion<std::invalid_argument>(
            "blocks of ", Adt::Detail::sampleTypeName(*traits.sampleType), " of ", traits.bitSize, " bits as ",
            Adt::Detail::sampleTypeName(type), " of ", bitSize, " bits.");
    }
    Detail::requireBitSize(bitSize);
}

}  // namespace

// The client stays in its place: the chain has its address.
class LentBlocks::Loans {
  public:
    Loans(IBufferAccessor& accessor, Box const& range, std::type_info const& type, int bitSize)
        : min_(range.min), type_(type), bitSize_(bitSize), attachment_(accessor, client_) {
        if (!range.isEmpty()) {
            walk_.emplace(accessor, ExtentK<4, int>(range), AdtEnums::Read, client_.handle);
        }
    }

    bool isAtEnd() const noexcept { return !walk_ || walk_->isAtEnd(); }
    bool isFetched() const noexcept { return isFetched_; }
    bool stands() noexcept { return isFetched_ && walk_->stands(); }

    Block fetch() {
        isFetched_ = false;
        walk_->fetch();
        isFetched_ = true;
        return block();
    }

    void advance() {
        isFetched_ = false;
        walk_->advance();
        if (walk_->isAtEnd()) {
            client_.handle.reset(/*releaseOwner=*/true);
        }
    }

  private:
    Block block() const {
        auto const& places = walk_->places();
        Box const box{places.min + min_, places.max + min_};
        auto const info = client_.handle.infoSnapshot();
        std::int64_t offset = info.offset;
        for (int axis = 0; axis < 4; ++axis) {
            offset += (std::int64_t{box.min.data()[axis]} - info.range.min.data()[axis]) * info.strides.data()[axis];
        }
        // Whole octets of samples go into the pointer, since an offset has 32 bits.
        std::int64_t const octets = offset >> 3;
        auto const* memory = static_cast<char const*>(client_.handle.buffer());
        memory = memory == nullptr ? nullptr : memory + octets * bitSize_;
        return {
            box,
            {box, info.strides, memory, memory == nullptr ? 0 : static_cast<int>(offset - octets * 8), type_,
             bitSize_}};
    }

    FixedVector<4, int> min_;
    std::type_info const& type_;
    int bitSize_;
    bool isFetched_ = false;
    Detail::LoanClient client_;
    Detail::LoanClient::Attachment attachment_;
    std::optional<Detail::BlockWalk> walk_;
};

LentBlocks::LentBlocks(
    IBufferAccessor& accessor, OpenEndedRange<4, int> const& range, std::type_info const& type, int bitSize) {
    requireSamples(traitsOf(accessor), type, bitSize);
    if (!range.isEmpty()) {
        Detail::requireInside(ExtentK<4, int>(range), accessor.getSize());
    }
    loans_ = std::make_unique<Loans>(accessor, range, type, bitSize);
}

LentBlocks::~LentBlocks() = default;

LentBlocks::Iterator LentBlocks::begin() {
    if (!loans_->isAtEnd() && !loans_->isFetched()) {
        lendAgain();
    }
    return Iterator(*this);
}

bool LentBlocks::stands() const noexcept {
    return loans_->stands();
}

void LentBlocks::lendAgain() {
    block_ = loans_->fetch();
}

void LentBlocks::goOn() {
    loans_->advance();
    if (!loans_->isAtEnd()) {
        lendAgain();
    }
}

bool LentBlocks::Iterator::isAtEnd() const noexcept {
    return blocks_->loans_->isAtEnd();
}

}  // namespace Quorvel::Dravik::Adt::BulkView
