// SPDX-License-Identifier: Apache-2.0
#pragma once

// FunctionAccessor: samples that a function of the index gives. Threads: one chain and all its clones on one thread at
// a time, unless the function may be called on several.

#include "dravik/adt/bulkview/accessors/computed_accessor.h"

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

/// Shows function(index) at every index, for tests, synthetic data and masks. The same index has to give the same
/// sample; clones have copies of the function.
///
///     FunctionAccessor<int> ramp({100, 200, 300, 1}, {64, 64, 64, 1}, [](auto const& index) { return index[2]; });
template <class T>
class FunctionAccessor final : public ComputedAccessor {
    static_assert(std::is_trivially_copyable_v<T>, "Samples are copied as bytes.");

  public:
    using Function = std::function<T(FixedVector<4, int> const& index)>;

    /// @throws std::invalid_argument for a size or a block that is not positive on every axis
    FunctionAccessor(FixedVector<4, int> const& size, FixedVector<4, int> const& block, Function function)
        : ComputedAccessor(size, block, typeid(T), static_cast<int>(sizeof(T))), function_(std::move(function)) {}

    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<FunctionAccessor>(*this); }

  protected:
    void compute(ExtentK<4, int> const& region, void* memory) const override {
        T* next = static_cast<T*>(memory);
        FixedVector<4, int> at;
        for (at[0] = 0; at[0] < region[0].count; ++at[0]) {
            for (at[1] = 0; at[1] < region[1].count; ++at[1]) {
                for (at[2] = 0; at[2] < region[2].count; ++at[2]) {
                    for (at[3] = 0; at[3] < region[3].count; ++at[3]) {
                        *next++ = function_(region.at(at));
                    }
                }
            }
        }
    }

  private:
    Function function_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
