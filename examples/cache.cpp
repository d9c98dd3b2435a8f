// SPDX-License-Identifier: Apache-2.0
// A cache below a view whose loops run across the blocks of the storage.

#include <dravik/adt/bulkview/buffer_accessor.h>
#include <dravik/adt/bulkview/filters/cache_filter.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>

#include <array>
#include <iostream>
#include <memory>
#include <utility>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

constexpr int kRows = 100, kColumns = 50;

// The samples of one row; they live while somebody holds them.
struct Row final : BufferHandle::Owner {
    std::array<float, kColumns> samples;

  private:
    void lock() override {}
    void unlock() override {}
};

// Makes a row when it is asked for one, which stands for reading it from somewhere slow.
class RowAccessor final : public IBufferAccessor {
  public:
    explicit RowAccessor(int& rowsMade) : rowsMade_(rowsMade) {}

    FixedVector<4, int> getSize() override { return {kRows, kColumns, 1, 1}; }
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access /*access*/, BufferHandle& handle) override {
        boost::intrusive_ptr<Row> const row(new Row);
        row->samples.fill(static_cast<float>(position[0]));
        handle.setOwner(row.get());
        handle.update(
            row->samples.data(),
            {{{position[0], 0, 0, 0}, {position[0] + 1, kColumns, 1, 1}}, /*strides=*/{0, 1, 0, 0}, /*offset=*/0},
            AdtEnums::Read);
        ++rowsMade_;
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<RowAccessor>(rowsMade_); }
    void setClient(IClient* /*client*/) override {}
    void setHint(HintType /*type*/, OpenEndedRange<4, int> const& /*range*/, float /*weight*/) override {}
    void dispose(bool /*flag*/) override {}

  private:
    int& rowsMade_;
};

// Adds up all samples, column by column.
double sumByColumns(std::unique_ptr<IBufferAccessor> grid) {
    Typed2dRoView<float> const view(std::move(grid));
    double sum = 0;
    for (int column = 0; column < kColumns; ++column) {
        for (int row = 0; row < kRows; ++row) {
            sum += view(row, column);
        }
    }
    return sum;
}

}  // namespace

int main() {
    //! [cache]
    int rowsMade = 0;
    double const plain = sumByColumns(std::make_unique<RowAccessor>(rowsMade));
    std::cout << "without a cache: sum " << plain << ", " << rowsMade << " rows made\n";

    using Filters::CacheFilter;
    for (int const budget : {kRows * kColumns, kRows * kColumns / 2}) {  // in samples
        rowsMade = 0;
        auto cached = CacheFilter::Apply(
            std::make_unique<RowAccessor>(rowsMade), budget, CacheFilter::kNever, CacheFilter::kNever);
        double const sum = sumByColumns(std::move(cached));
        std::cout << "with room for " << budget << " samples: sum " << sum << ", " << rowsMade << " rows made\n";
    }
    //! [cache]
}
