// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/box_mean_filter.h"

#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Index = FixedVector<4, int>;
using Box = OpenEndedRange<4, int>;

// Clones of a chain for as many threads as work at once.
class Clones {
  public:
    explicit Clones(std::unique_ptr<IBufferAccessor> first) { idle_.push_back(std::move(first)); }

    template <class Act>
    void with(Act act) {
        auto chain = take();
        act(*chain);
        std::lock_guard const lock(mutex_);
        idle_.push_back(std::move(chain));
    }

  private:
    // One always stays, to be cloned. What failed in `with` is gone.
    std::unique_ptr<IBufferAccessor> take() {
        std::lock_guard const lock(mutex_);
        if (idle_.size() == 1) {
            return idle_.front()->createClone();
        }
        auto chain = std::move(idle_.back());
        idle_.pop_back();
        return chain;
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<IBufferAccessor>> idle_;
};

template <class T>
class BoxMeanStore final : public IBrickStore {
  public:
    BoxMeanStore(std::unique_ptr<IBufferAccessor> target, int factor)
        : factor_(factor), targetSize_(target->getSize()), traits_(traitsOf(*target)), clones_(std::move(target)) {
        constexpr int kSide = 64;  // of a block where the target has none of its own
        for (int axis = 0; axis < 4; ++axis) {
            size_[axis] = (targetSize_[axis] - 1) / factor_ + 1;
            int const block = traits_.naturalBlock[axis];
            traits_.naturalBlock[axis] = std::clamp(block == 0 ? kSide : block / factor_, 1, size_[axis]);
            traits_.blockOrigin[axis] = 0;
        }
        traits_.writable = false;
    }

    Index size() const override { return size_; }
    AccessTraits traits() const override { return traits_; }

    // Row by row of the first axis, so that the memory for what is read stays small.
    void read(Box const& box, void* samples) const override {
        auto* out = static_cast<T*>(samples);
        auto const rowLength = static_cast<std::size_t>(box.size(1) * box.size(2) * box.size(3));
        std::vector<double> sums(rowLength);
        std::vector<int> counts(rowLength);
        std::vector<T> memory;
        clones_.with([&](IBufferAccessor& chain) {
            for (int i = box.min[0]; i < box.max[0]; ++i, out += rowLength) {
                Box row = box;
                row.min[0] = i;
                row.max[0] = i + 1;
                addUp(chain, row, memory, sums, counts);
                std::transform(sums.begin(), sums.end(), counts.begin(), out, mean);
                std::fill(sums.begin(), sums.end(), 0.0);
                std::fill(counts.begin(), counts.end(), 0);
            }
        });
    }

  private:
    Box below(Box const& box) const {
        Box wanted;
        for (int axis = 0; axis < 4; ++axis) {
            wanted.min[axis] = box.min[axis] * factor_;
            wanted.max[axis] =
                static_cast<int>(std::min<std::int64_t>(std::int64_t{box.max[axis]} * factor_, targetSize_[axis]));
        }
        return wanted;
    }

    void addUp(
        IBufferAccessor& chain, Box const& row, std::vector<T>& memory, std::vector<double>& sums,
        std::vector<int>& counts) const {
        Box const wanted = below(row);
        memory.resize(static_cast<std::size_t>(wanted.pointCount()));
        readRegion(
            chain, ExtentK<4, int>(wanted),
            ArrayRef<4>(
                wanted, SharedArray<4>::DenseStrides(wanted), reinterpret_cast<char*>(memory.data()), 0, typeid(T),
                static_cast<int>(8 * sizeof(T))));
        T const* sample = memory.data();
        for (int i = wanted.min[0]; i < wanted.max[0]; ++i) {
            for (int j = wanted.min[1]; j < wanted.max[1]; ++j) {
                for (int k = wanted.min[2]; k < wanted.max[2]; ++k) {
                    auto const line =
                        ((j / factor_ - row.min[1]) * row.size(2) + (k / factor_ - row.min[2])) * row.size(3);
                    for (int l = wanted.min[3]; l < wanted.max[3]; ++l, ++sample) {
                        auto const place = static_cast<std::size_t>(line + l / factor_ - row.min[3]);
                        bool const counts1 = isNumber(*sample);
                        sums[place] += counts1 ? static_cast<double>(*sample) : 0.0;
                        counts[place] += counts1 ? 1 : 0;
                    }
                }
            }
        }
    }

    static bool isNumber(T sample) {
        if constexpr (std::is_floating_point_v<T>) {
            return !std::isnan(sample);
        }
        return true;
    }

    static T mean(double sum, int count) {
        if constexpr (std::is_floating_point_v<T>) {
            return count == 0 ? std::numeric_limits<T>::quiet_NaN() : static_cast<T>(sum / count);
        } else {
            return static_cast<T>(std::nearbyint(sum / count));
        }
    }

    int factor_;
    Index targetSize_;
    Index size_;
    AccessTraits traits_;
    mutable Clones clones_;
};

template <class... T>
std::shared_ptr<IBrickStore> storeOf(std::unique_ptr<IBufferAccessor>& target, int factor) {
    std::type_info const& type = *traitsOf(*target).sampleType;
    std::shared_ptr<IBrickStore> store;
    static_cast<void>(
        ((type == typeid(T) && (store = std::make_shared<BoxMeanStore<T>>(std::move(target), factor))) || ...));
    return store;
}

[[noreturn]] void refuse(std::string const& what) {
    throw std::invalid_argument("[BoxMeanFilter::Apply] Invalid argument: " + what + ".");
}

}  // namespace

std::unique_ptr<IBufferAccessor> BoxMeanFilter::Apply(
    std::unique_ptr<IBufferAccessor> target, int factor, std::shared_ptr<BrickPool> pool) {
    if (target == nullptr || pool == nullptr) {
        refuse(target == nullptr ? "target is null" : "pool is null");
    }
    if (factor < 1) {
        refuse("a factor of " + std::to_string(factor));
    }
    auto store = storeOf<unsigned char, char, unsigned short, short, int, unsigned int, std::int64_t, float, double>(
        target, factor);
    if (store == nullptr) {
        refuse("the target's samples are unknown, or no numbers");
    }
    return StoreAccessor::Make(std::move(store), std::move(pool));
}

}  // namespace Quorvel::Dravik::Adt::BulkView
