// SPDX-License-Identifier: Apache-2.0
// Storage of your own in three operations: what it takes to look at it, and what the library does for you then.

#include <dravik/adt/bulkview/regions/region.h>
#include <dravik/adt/bulkview/stores/store_accessor.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>
#include <dravik/adt/core/shared_array.h>

#include <iostream>
#include <memory>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

//! [store]
// A table of products, which no file has to hold: 1000 rows and columns in bricks of 100 x 250.
class Products final : public IBrickStore {
  public:
    FixedVector<4, int> size() const override { return {1000, 1000, 1, 1}; }
    AccessTraits traits() const override {
        AccessTraits traits;
        traits.naturalBlock = {100, 250, 1, 1};
        traits.sampleType = &typeid(float);
        traits.bitSize = 32;
        return traits;
    }
    void read(OpenEndedRange<4, int> const& box, void* samples) const override {
        std::cout << "  reads rows " << box.min[0] << " to " << box.max[0] - 1 << '\n';
        auto* sample = static_cast<float*>(samples);
        for (int row = box.min[0]; row < box.max[0]; ++row) {
            for (int column = box.min[1]; column < box.max[1]; ++column) {
                *sample++ = static_cast<float>(row * column);
            }
        }
    }
};
//! [store]

}  // namespace

int main() {
    //! [use]
    auto const pool = std::make_shared<BrickPool>(16 << 20);  // bytes, for as many stores as share it
    auto const chain = StoreAccessor::Make(std::make_shared<Products>(), pool);
    Typed2dRoView<float> const view(chain->createClone()), another(chain->createClone());
    //! [use]
    for (int const row : {12, 15, 350}) {
        std::cout << "row " << row << '\n';
        float const product = view(row, 7);
        std::cout << "  product " << product << '\n';
    }
    std::cout << "another view\n";
    float const product = another(12, 8);
    std::cout << "  product " << product << '\n';

    std::cout << "200 rows at once\n";
    //! [region]
    auto const rows = SharedArray<4>::Make<float>({{0, 0, 0, 0}, {200, 1000, 1, 1}});
    readRegion(*chain, ExtentK<4, int>(rows.range()), rows);
    //! [region]
    auto const counters = pool->counters();
    std::cout << "the pool keeps " << counters.bytesKept << " bytes after " << counters.misses << " reads and "
              << counters.hits << " hits\n";
}
