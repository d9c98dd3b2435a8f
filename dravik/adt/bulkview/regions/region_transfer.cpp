// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/region_transfer.h"

#include "dravik/adt/bulkview/regions/detail/block_walk.h"
#include "dravik/adt/bulkview/regions/detail/strided_copy.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/exceptions/cancelled_exception.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Box = OpenEndedRange<4, int>;

Box wholeOf(ExtentK<4, int> const& region) {
    Box whole;
    for (int axis = 0; axis < 4; ++axis) {
        whole.max.data()[axis] = region.data()[axis].count;
    }
    return whole;
}

// Where the sample at `places.min` lies in the array of the request.
std::int64_t positionInArray(RegionRequest const& request, Box const& places) {
    std::int64_t position = request.array.bufferOffset();
    for (int axis = 0; axis < 4; ++axis) {
        position += std::int64_t{places.min.data()[axis]} * request.array.strides().data()[axis];
    }
    return position;
}

FixedVector<4, int> indexOf(ExtentK<4, int> const& region, FixedVector<4, int> const& place) {
    FixedVector<4, int> index;
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = region.data()[axis];
        index.data()[axis] = static_cast<int>(along.origin + std::int64_t{place.data()[axis]} * along.step);
    }
    return index;
}

// Bits of a sample of the accessor.
int bitSizeBelow(RegionRequest const& request) {
    if (request.converter == nullptr) {
        return request.array.bitSize();
    }
    return TypeRegister::sizeofTypeInBits(
        request.access == AdtEnums::Read ? request.converter->getInputType() : request.converter->getOutputType());
}

// The null value that views show for the type: a quiet NaN where there is one, else zeros.
template <class T>
bool putNull(std::type_info const& type, char* memory) {
    if (type != typeid(T)) {
        return false;
    }
    T const null = std::numeric_limits<T>::quiet_NaN();
    std::memcpy(memory, &null, sizeof null);
    return true;
}

// Writes the null value of `type` wherever `plan` writes.
void fillStrided(Detail::StridedCopy plan, std::type_info const& type) {
    std::vector<char> null(static_cast<std::size_t>((plan.to.bitSize + 7) / 8));
    static_cast<void>(putNull<float>(type, null.data()) || putNull<double>(type, null.data()));
    plan.from = {null.data(), 0, plan.to.bitSize};
    plan.converter = nullptr;
    for (auto& axis : plan.axes) {
        axis.from = 0;
    }
    copyStrided(plan);
}

// Steps of several indices upwards, the array turned round with them.
RegionRequest withPositiveSteps(RegionRequest request) {
    auto strides = request.array.strides();
    std::int64_t offset = request.array.bufferOffset();
    for (int axis = 0; axis < 4; ++axis) {
        auto& along = request.region.data()[axis];
        if (along.count == 1) {
            along.step = 1;
        } else if (along.step < 0) {
            along = {along.last(), -along.step, along.count};
            offset += (std::int64_t{along.count} - 1) * strides.data()[axis];
            strides.data()[axis] = -strides.data()[axis];
        }
    }
    // Whole octets of samples go into the pointer, since an offset has 32 bits.
    std::int64_t const octets = offset >> 3;
    request.array = ArrayRef<4>(
        request.array.range(), strides, request.array.data() + octets * request.array.bitSize(),
        static_cast<int>(offset - octets * 8), request.array.valueType(), request.array.bitSize());
    return request;
}

}  // namespace

RegionTransfer::RegionTransfer(TransferOptions const& options, std::int64_t total) noexcept
    : options_(options), total_(total) {}

RegionTransfer::~RegionTransfer() = default;

void RegionTransfer::start(IBufferAccessor& accessor, RegionRequest const& request) {
    Detail::LoanClient::Attachment const attachment(accessor, client_);
    run(accessor, request);
}

void RegionTransfer::run(IBufferAccessor& accessor, RegionRequest const& request) {
    stop();
    std::int64_t const before = done_;
    auto* const regions = dynamic_cast<IRegionAccess*>(&accessor);
    if (regions == nullptr || !regions->tryTransfer(request, *this)) {
        runByBlocks(accessor, request);
    } else if (done_ == before) {
        moved(wholeOf(request.region).pointCount());
    }
}

void RegionTransfer::runByBlocks(IBufferAccessor& accessor, RegionRequest const& request) {
    auto const upwards = withPositiveSteps(request);
    // Never for writing alone: what the region leaves out of a block has to stay.
    auto const access = request.access == AdtEnums::Read ? AdtEnums::Read : AdtEnums::ReadWrite;
    Detail::BlockWalk walk(accessor, upwards.region, access, client_.handle);
    for (; !walk.isAtEnd(); walk.advance()) {
        do {
            stop();
            walk.fetch();
            copy(upwards, client_.handle, walk.places());
        } while (!walk.stands());
        moved(walk.places().pointCount());
    }
}

void RegionTransfer::copy(RegionRequest const& request, BufferHandle const& handle, Box const& places) {
    bool const isRead = request.access == AdtEnums::Read;
    auto* const buffer = static_cast<char*>(handle.buffer());
    auto const info = handle.infoSnapshot();
    auto const& array = request.array;
    Detail::StridedCopy plan{};
    std::int64_t below = info.offset;
    auto const index = indexOf(request.region, places.min);
    for (int axis = 0; axis < 4; ++axis) {
        std::int64_t const stride = info.strides.data()[axis];
        below += (std::int64_t{index.data()[axis]} - info.range.min.data()[axis]) * stride;
        std::int64_t const step = stride * request.region.data()[axis].step;
        std::int64_t const above = array.strides().data()[axis];
        plan.axes[axis] = {places.size(axis), isRead ? step : above, isRead ? above : step};
    }
    Detail::CopySide const inBlock{buffer, below, bitSizeBelow(request)};
    Detail::CopySide const inArray{array.data(), positionInArray(request, places), array.bitSize()};
    plan.from = isRead ? inBlock : inArray;
    plan.to = isRead ? inArray : inBlock;
    plan.converter = request.converter.get();
    if (buffer != nullptr) {
        copyStrided(plan);
    } else if (isRead) {
        fillStrided(plan, array.valueType());
    }
}

void RegionTransfer::copy(RegionRequest const& request, BufferHandle const& handle) {
    copy(request, handle, wholeOf(request.region));
}

void RegionTransfer::fill(RegionRequest const& request) {
    copy(request, BufferHandle());
}

void RegionTransfer::stop() const {
    if (options_.stop.stop_requested()) {
        throw Exceptions::CancelledException("[BulkView] The transfer of a region was stopped.");
    }
}

void RegionTransfer::moved(std::int64_t samples) {
    done_ += samples;
    if (options_.progress) {
        options_.progress(done_, total_);
    }
}

void RegionTransfer::visitBlocks(IBufferAccessor& accessor, std::function<void(Lend const&)> const& act) {
    Detail::LoanClient::Attachment const attachment(accessor, client_);
    act([&](FixedVector<4, int> const& index, Visit const& visit) {
        ExtentK<4, int> const one(index, FixedVector<4, int>::Filled(1));
        Detail::BlockWalk walk(accessor, one, AdtEnums::Read, client_.handle);
        do {
            stop();
            walk.fetch();
            visit(client_.handle);
        } while (!walk.stands());
    });
}

}  // namespace Quorvel::Dravik::Adt::BulkView
