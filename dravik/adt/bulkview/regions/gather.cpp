// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/gather.h"

#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/regions/detail/region_checks.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Index = FixedVector<4, int>;
using Box = OpenEndedRange<4, int>;
using Places = std::span<std::size_t>;

// The points of one call, told apart by where they lie beside the blocks.
class Gather {
  public:
    Gather(
        IBufferAccessor& accessor, std::span<Index const> indices, ArrayRef<1> const& destination,
        IValueConverter::ConstPtr const& converter, TransferOptions const& options)
        : accessor_(accessor),
          indices_(indices),
          destination_(destination),
          converter_(converter),
          transfer_(options, static_cast<std::int64_t>(indices.size())) {}

    void run() {
        std::vector<std::size_t> order(indices_.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::vector<Places> rest{order};
        transfer_.visitBlocks(accessor_, [&](RegionTransfer::Lend const& lend) {
            while (!rest.empty()) {
                Places const group = rest.back();
                rest.pop_back();
                Box block;
                std::int64_t moved = 0;
                lend(indices_[group[group.size() / 2]], [&](BufferHandle const& handle) {
                    block = handle.range4();
                    Places const inside = split(group, block, nullptr);
                    moved = static_cast<std::int64_t>(inside.size());
                    copy(inside, handle);
                });
                split(group, block, &rest);
                transfer_.moved(moved);
            }
        });
    }

  private:
    // Brings the points of `group` inside `block` together and returns them; those before and behind it along each axis
    // go to `rest` as groups of their own, which no block of a regular bricking straddles.
    Places split(Places group, Box const& block, std::vector<Places>* rest) const {
        for (int axis = 0; axis < 4; ++axis) {
            auto const at = [&](std::size_t point) { return indices_[point].data()[axis]; };
            auto const begin = std::partition(
                group.begin(), group.end(), [&](std::size_t point) { return at(point) < block.min.data()[axis]; });
            auto const end = std::partition(
                begin, group.end(), [&](std::size_t point) { return at(point) < block.max.data()[axis]; });
            for (Places const beside : {Places(group.begin(), begin), Places(end, group.end())}) {
                if (rest != nullptr && !beside.empty()) {
                    rest->push_back(beside);
                }
            }
            group = Places(begin, end);
        }
        return group;
    }

    void copy(Places points, BufferHandle const& handle) {
        RegionRequest request;
        request.converter = converter_;
        for (std::size_t const point : points) {
            for (int axis = 0; axis < 4; ++axis) {
                request.region.data()[axis] = {indices_[point].data()[axis], 1, 1};
            }
            std::int64_t const position =
                destination_.bufferOffset() + static_cast<std::int64_t>(point) * destination_.strides()[0];
            std::int64_t const octets = position >> 3;
            request.array = ArrayRef<4>(
                Box::OfSize(Index::Filled(1)), {}, destination_.data() + octets * destination_.bitSize(),
                static_cast<int>(position - octets * 8), destination_.valueType(), destination_.bitSize());
            transfer_.copy(request, handle);
        }
    }

    IBufferAccessor& accessor_;
    std::span<Index const> indices_;
    ArrayRef<1> destination_;
    IValueConverter::ConstPtr converter_;
    RegionTransfer transfer_;
};

}  // namespace

void gatherSamples(
    IBufferAccessor& accessor, std::span<Index const> indices, ArrayRef<1> const& destination,
    TransferOptions const& options) {
    if (static_cast<std::int64_t>(indices.size()) != destination.range().size(0)) {
        Detail::refuseRegion<std::invalid_argument>(
            indices.size(), " indices and the array ", destination, " differ in size.");
    }
    if (indices.empty()) {
        return;
    }
    Detail::requireMemory(destination.data(), destination.bitSize());
    auto const converter =
        Detail::converterOf(*traitsOf(accessor).sampleType, destination.valueType(), options.converter);
    auto const box = Box::OfSize(accessor.getSize());
    auto const outside =
        std::find_if(indices.begin(), indices.end(), [&](Index const& index) { return !box.contains(index); });
    if (outside != indices.end()) {
        Detail::refuseRegion<std::out_of_range>("the index ", *outside, " lies outside the size ", box.max, ".");
    }
    Gather(accessor, indices, destination, converter, options).run();
}

}  // namespace Quorvel::Dravik::Adt::BulkView
