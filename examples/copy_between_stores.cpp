// SPDX-License-Identifier: Apache-2.0
// From one storage to another with bricks and samples of another kind, in slabs that fit memory. What cannot be written
// is told by flush, and nothing is lost by it.

#include <dravik/adt/bulkview/regions/region.h>
#include <dravik/adt/bulkview/stores/store_accessor.h>
#include <dravik/adt/core/shared_array.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

constexpr FixedVector<4, int> kSize{60, 40, 1, 1};

// Stands for a file; `disk` is what reaches it.
template <class T>
class Grid final : public IBrickStore {
  public:
    explicit Grid(FixedVector<4, int> const& brick) : disk(60 * 40), brick_(brick) {}

    FixedVector<4, int> size() const override { return kSize; }
    AccessTraits traits() const override {
        AccessTraits traits;
        traits.naturalBlock = brick_;
        traits.sampleType = &typeid(T);
        traits.bitSize = static_cast<int>(8 * sizeof(T));
        traits.writable = true;
        return traits;
    }
    void read(OpenEndedRange<4, int> const& box, void* samples) const override {
        auto* out = static_cast<T*>(samples);
        for (int row = box.min[0]; row < box.max[0]; ++row) {
            out = std::copy_n(disk.data() + row * 40 + box.min[1], box.size(1), out);
        }
    }
    //! [write]
    void write(OpenEndedRange<4, int> const& box, void const* samples) override {
        if (isFull) {
            throw std::runtime_error("no room left on the device");
        }
        auto const* in = static_cast<T const*>(samples);
        for (int row = box.min[0]; row < box.max[0]; ++row, in += box.size(1)) {
            std::copy_n(in, box.size(1), disk.data() + row * 40 + box.min[1]);
        }
    }
    //! [write]

    std::vector<T> disk;
    bool isFull = false;

  private:
    FixedVector<4, int> brick_;
};

}  // namespace

int main() {
    auto const pool = std::make_shared<BrickPool>(1 << 20);
    auto const heights = std::make_shared<Grid<short>>(FixedVector<4, int>(16, 16, 1, 1));
    auto const copies = std::make_shared<Grid<float>>(FixedVector<4, int>(60, 8, 1, 1));
    std::iota(heights->disk.begin(), heights->disk.end(), short{0});

    //! [copy]
    auto const source = StoreAccessor::Make(heights, pool);
    auto const target = StoreAccessor::Make(copies, pool);
    for (int row = 0; row < kSize[0]; row += 16) {
        int const rows = std::min(16, kSize[0] - row);
        // In the target's type: readRegion converts on the way.
        auto const slab = SharedArray<4>::Make<float>({{row, 0, 0, 0}, {row + rows, kSize[1], 1, 1}});
        readRegion(*source, ExtentK<4, int>(slab.range()), slab);
        writeRegion(*target, ExtentK<4, int>(slab.range()), slab);
    }
    //! [copy]
    copies->isFull = true;
    //! [flush]
    try {
        flush(*target);
    } catch (std::runtime_error const& failure) {
        std::cout << "not yet: " << failure.what() << '\n';
        copies->isFull = false;  // somebody makes room
        flush(*target);
    }
    //! [flush]
    std::cout << "the last sample is " << copies->disk.back() << ", all are equal: " << std::boolalpha
              << std::equal(heights->disk.begin(), heights->disk.end(), copies->disk.begin()) << '\n';
}
