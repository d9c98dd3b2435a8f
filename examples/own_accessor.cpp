// SPDX-License-Identifier: Apache-2.0
// Storage of your own behind the library's views: a paged file lends its pages, and gets each one back when nobody
// looks at it any more.

#include <dravik/adt/bulkview/accessors/read_only_accessor.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>

#include <iostream>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

// Stands for what you have: a grid that is in memory only page by page, and only as long as a page is pinned.
class PageFile {
  public:
    static constexpr int kRows = 12, kColumns = 6, kRowsPerPage = 4;

    PageFile() : samples_(kRows * kColumns) { std::iota(samples_.begin(), samples_.end(), 0.0f); }

    float* pin(int page) {
        std::cout << "  page " << page << " comes\n";
        return samples_.data() + page * (kRowsPerPage * kColumns);
    }
    void unpin(int page) { std::cout << "  page " << page << " goes\n"; }

  private:
    std::vector<float> samples_;
};

//! [owner]
// Keeps a page pinned while a handle refers to it.
class PinnedPage final : public BufferHandle::Owner {
  public:
    PinnedPage(std::shared_ptr<PageFile> file, int page)
        : file_(std::move(file)), page_(page), samples_(file_->pin(page)) {}

    float* samples() const noexcept { return samples_; }

  private:
    ~PinnedPage() override { file_->unpin(page_); }

    std::shared_ptr<PageFile> file_;
    int page_;
    float* samples_;
};
//! [owner]

//! [accessor]
class PageAccessor final : public Accessors::ReadOnlyAccessor {
  public:
    explicit PageAccessor(std::shared_ptr<PageFile> file) : file_(std::move(file)) {}

    FixedVector<4, int> getSize() override { return {PageFile::kRows, PageFile::kColumns, 1, 1}; }
    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<PageAccessor>(file_); }

  private:
    void lend(FixedVector<4, int> const& position, BufferHandle& handle) override {
        int const page = position[0] / PageFile::kRowsPerPage;
        int const firstRow = page * PageFile::kRowsPerPage;
        boost::intrusive_ptr<PinnedPage> const pinned(new PinnedPage(file_, page));
        BufferHandle::ArrayInfo info;
        info.range = {{firstRow, 0, 0, 0}, {firstRow + PageFile::kRowsPerPage, PageFile::kColumns, 1, 1}};
        info.strides = {PageFile::kColumns, 1, 0, 0};
        handle.setOwner(pinned.get());
        handle.update(pinned->samples(), info, AdtEnums::Read);
    }

    std::shared_ptr<PageFile> file_;
};
//! [accessor]

}  // namespace

int main() {
    Typed2dRoView<float> const view(std::make_unique<PageAccessor>(std::make_shared<PageFile>()));
    for (int const row : {0, 3, 4}) {
        std::cout << "row " << row << '\n';
        float const sample = view(row, 5);
        std::cout << "  sample 5 is " << sample << '\n';
    }
    std::cout << "end\n";
}
