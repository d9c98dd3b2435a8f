// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/concat_filter.h"

#include "dravik/adt/bulkview/detail/clone_of.h"
#include "dravik/adt/bulkview/filters/detail/subset_block.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/bulkview/write_back.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

using Index = FixedVector<4, int>;

template <class Error, class... Pieces>
[[noreturn]] void refuse(Pieces const&... pieces) {
    std::ostringstream text;
    text << "[ConcatFilter::Apply] Invalid argument: ";
    (text << ... << pieces);
    throw Error(text.str());
}

// The places of `along` whose indices lie in [low, high), given that there are some.
OpenEndedRange<1, int> placesIn(ExtentImpl<int> const& along, int low, int high) {
    ExtentImpl<int> const there = along.intersection({low, 1, high - low});
    int const first = there.relativeTo(along).origin;
    return {FixedVector<1, int>(first), FixedVector<1, int>(first + there.count)};
}

// What `request` has from place `first` to `end` along `axis`, in indices of an accessor that starts at `start`.
RegionRequest partOf(RegionRequest request, int axis, OpenEndedRange<1, int> const& places, int start) {
    int const first = places.min[0];
    auto& along = request.region[axis];
    along = {along.at(first) - start, along.step, places.max[0] - first};
    auto& array = request.array;
    auto range = array.range();
    range.min[axis] += first;
    range.max[axis] = range.min[axis] + along.count;
    std::int64_t const offset = array.bufferOffset() + std::int64_t{first} * array.strides()[axis];
    std::int64_t const octets = offset >> 3;  // whole bytes of any type; an offset has 32 bits
    array = ArrayRef<4>(
        range, array.strides(), array.data() + octets * array.bitSize(), static_cast<int>(offset - octets * 8),
        array.valueType(), array.bitSize());
    return request;
}

}  // namespace

// One of the accessors, and the client of it.
class ConcatFilter::Part final : public IClient {
  public:
    Part(ConcatFilter& filter, std::unique_ptr<IBufferAccessor> accessor) noexcept
        : filter_(filter), accessor_(std::move(accessor)) {}

    IBufferAccessor& accessor() const {
        if (accessor_ == nullptr) {
            throw Exceptions::ObjectDisposedException("a part of a ConcatFilter that released itself.");
        }
        return *accessor_;
    }
    bool isThere() const noexcept { return accessor_ != nullptr; }
    int end() const noexcept { return start + length; }

    void accessorUpdated() override {
        filter_.isMeasured_ = false;
        relay([](IClient& client) { client.accessorUpdated(); });
    }
    void bufferInvalidated(BufferHandle::Owner const* owner) override {
        relay([=](IClient& client) { client.bufferInvalidated(owner); });
    }
    bool prepareBufferRelease(void const* buffer, int& value) override {
        bool isHeld = false;
        relay([&](IClient& client) { isHeld = client.prepareBufferRelease(buffer, value); });
        return isHeld;
    }
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override {
        relay([&](IClient& client) { client.releaseBuffer(buffer, std::move(owner)); });
    }
    std::unique_ptr<IBufferAccessor> releaseAccessor() override {
        // It hears of nothing more here, and goes its own ways before the client looks for it.
        std::unique_ptr<IBufferAccessor> released = std::move(accessor_);
        if (released != nullptr) {
            released->setClient(nullptr);
        }
        relay([](IClient& client) { client.accessorUpdated(); });
        return released;
    }

    int start = 0;   // index of its first sample along the axis
    int length = 0;  // samples along the axis

  private:
    template <class Tell>
    void relay(Tell const& tell) const {
        if (IClient* const client = filter_.client_.load(std::memory_order_acquire)) {
            tell(*client);
        }
    }

    ConcatFilter& filter_;
    std::unique_ptr<IBufferAccessor> accessor_;
};

std::unique_ptr<IBufferAccessor> ConcatFilter::Apply(std::vector<std::unique_ptr<IBufferAccessor>> parts, int axis) {
    if (parts.empty() || std::count(parts.begin(), parts.end(), nullptr) != 0) {
        refuse<std::invalid_argument>(parts.empty() ? "no parts." : "a part is null.");
    }
    if (axis < 0 || axis > 3) {
        refuse<std::invalid_argument>("no axis has the number ", axis, ".");
    }
    if (parts.size() == 1) {
        return std::move(parts.front());
    }
    std::unique_ptr<ConcatFilter> filter(new ConcatFilter(axis));
    std::type_info const* type = &typeid(void);
    for (auto& part : parts) {
        auto const& its = *traitsOf(*part).sampleType;
        if (*type != typeid(void) && its != typeid(void) && its != *type) {
            refuse<std::invalid_argument>("the parts have different sample types.");
        }
        type = its == typeid(void) ? type : &its;
        filter->add(std::move(part));
    }
    filter->measure();
    return filter;
}

ConcatFilter::ConcatFilter(int axis) noexcept : axis_(axis) {}

ConcatFilter::~ConcatFilter() = default;

void ConcatFilter::add(std::unique_ptr<IBufferAccessor> part) {
    parts_.push_back(std::make_unique<Part>(*this, std::move(part)));
}

// Where each part starts, and the size of all. A part that released itself keeps its place.
void ConcatFilter::measure() {
    if (isMeasured_) {
        return;
    }
    Index whole;
    std::int64_t total = 0;
    for (auto const& part : parts_) {
        Index size = size_;
        size[axis_] = part->length;
        size = part->isThere() ? part->accessor().getSize() : size;
        part->start = static_cast<int>(total);
        part->length = size[axis_];
        total += part->length;
        if (total > std::numeric_limits<int>::max()) {
            refuse<std::length_error>("more than 2^31 - 1 indices along axis ", axis_, ".");
        }
        size[axis_] = 0;
        if (part != parts_.front() && size != whole) {
            refuse<std::invalid_argument>(
                "parts of sizes ", whole, " and ", size, ", beside axis ", axis_, ", do not fit together.");
        }
        whole = size;
    }
    whole[axis_] = static_cast<int>(total);
    size_ = whole;
    isMeasured_ = true;
}

ConcatFilter::Part& ConcatFilter::partAt(int index) {
    measure();
    auto const found = std::upper_bound(
        parts_.begin(), parts_.end() - 1, index, [](int place, auto const& part) { return place < part->end(); });
    return **found;
}

FixedVector<4, int> ConcatFilter::getSize() {
    measure();
    return size_;
}

void ConcatFilter::setClient(IClient* client) {
    client_.store(client, std::memory_order_release);
    for (auto const& part : parts_) {
        if (part->isThere()) {
            part->accessor().setClient(client == nullptr ? nullptr : part.get());
        }
    }
}

void ConcatFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    measure();
    for (auto const& part : parts_) {
        auto own = range;
        own.min[axis_] = std::max(range.min[axis_], part->start) - part->start;
        own.max[axis_] = std::min(range.max[axis_], part->end()) - part->start;
        if (part->isThere() && (range.isEmpty() || !own.isEmpty())) {
            part->accessor().setHint(type, range.isEmpty() ? range : own, weight);
        }
    }
}

void ConcatFilter::getBuffer(Index position, AdtEnums::Access access, BufferHandle& handle) {
    Part& part = partAt(position[axis_]);
    // A part need not know the owner of another one, nor let it go.
    int const held = handle.range4().min[axis_];
    if (handle.owner() != nullptr && (held < part.start || held >= part.end())) {
        if (auto* const pending = dynamic_cast<IWriteBack*>(handle.owner())) {
            pending->writeBack();
        }
        handle.setOwner(nullptr);
    }
    position[axis_] -= part.start;
    part.accessor().getBuffer(position, access, handle);
    Detail::SubsetBlock block(handle.infoSnapshot());
    std::int64_t const cut = std::max<std::int64_t>(-block.min(axis_), 0);
    std::int64_t const end = std::min<std::int64_t>(block.max(axis_), part.length);
    block.relabel(axis_, cut, block.min(axis_) + cut + part.start, end + part.start);
    handle.relabel(block.info());
}

std::unique_ptr<IBufferAccessor> ConcatFilter::createClone() const {
    std::unique_ptr<ConcatFilter> clone(new ConcatFilter(axis_));
    for (auto const& part : parts_) {
        clone->add(BulkView::Detail::cloneOf(part->accessor()));
    }
    return clone;
}

void ConcatFilter::dispose(bool flag) {
    for (auto const& part : parts_) {
        if (part->isThere()) {
            part->accessor().dispose(flag);
        }
    }
    client_.store(nullptr, std::memory_order_release);
}

AccessTraits ConcatFilter::traits() const {
    auto traits = traitsOf(parts_.front()->accessor());
    for (auto const& part : parts_) {
        auto const its = traitsOf(part->accessor());
        for (int axis = 0; axis < 4; ++axis) {
            traits.naturalBlock[axis] = std::max(traits.naturalBlock[axis], its.naturalBlock[axis]);
        }
        // Where only some tell their type, it is that of all.
        if (*traits.sampleType == typeid(void)) {
            traits.sampleType = its.sampleType;
            traits.bitSize = its.bitSize;
        }
        traits.fastestAxis = its.fastestAxis == traits.fastestAxis ? traits.fastestAxis : -1;
        traits.concurrency = std::min(traits.concurrency, its.concurrency);
        traits.writable = traits.writable && its.writable;
    }
    return traits;
}

bool ConcatFilter::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    measure();
    for (auto const& part : parts_) {
        auto const& along = request.region[axis_];
        if (!along.intersection({part->start, 1, part->length}).isEmpty()) {
            auto const places = placesIn(along, part->start, part->end());
            transfer.run(part->accessor(), partOf(request, axis_, places, part->start));
        }
    }
    return true;
}

void ConcatFilter::flush() {
    for (auto const& part : parts_) {
        part->isThere() ? BulkView::flush(part->accessor()) : void();
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
