// SPDX-License-Identifier: Apache-2.0
// What a sample costs through a subset of a subset and through exchanged axes: beside the bare target, and decimated
// beside the strided views of others.

#include "report.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/filters/permute_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/core/shared_array.h"

#include <boost/multi_array.hpp>
#if __has_include(<xtensor/xadapt.hpp>)
#include <xtensor/xadapt.hpp>
#include <xtensor/xview.hpp>
#endif

#include <cstddef>
#include <numeric>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using BulkView::IBufferAccessor;
using BulkView::Filters::PermuteFilter;
using BulkView::Filters::SubsetFilter;
using View = BulkView::Typed3dRoView<int>;
using Extent = ExtentImpl<int>;

constexpr int kSide = 192;    // samples of the volume along each axis
constexpr int kFirst = 32;    // where the part that is read starts
constexpr int kLength = 128;  // and how far it reaches

ExtentK<4, int> cube(Extent const& axis) {
    return {axis, axis, axis, Extent{0, 1, 1}};
}

/// Sum over a cube of `length` indices per axis; integers, so that adding up does not hide what reading costs.
template <class Read>
std::uint64_t sumOver(int length, Read read) {
    std::uint64_t sum = 0;
    for (int i = 0; i < length; ++i) {
        for (int j = 0; j < length; ++j) {
            for (int k = 0; k < length; ++k) {
                sum += static_cast<std::uint64_t>(static_cast<unsigned>(read(i, j, k)));
            }
        }
    }
    return sum;
}

class SubsetBench {
  public:
    SubsetBench() : samples_(std::size_t{kSide} * kSide * kSide) {
        std::iota(samples_.begin(), samples_.end(), 0);
        array_ = SharedArray<3>::Wrap<int>(samples_, {{0, 0, 0}, {kSide, kSide, kSide}});
    }

    void readDense(Report& report) {
        View const bare(accessor());
        View const nested(SubsetFilter::MakeSubset(
            SubsetFilter::MakeSubset(accessor(), cube({kFirst / 2, 1, kSide - kFirst})),
            cube({kFirst / 2, 1, kLength})));
        Contest contest("128³ samples in memory order");
        contest.enter("bare target", [&] {
            return sumOver(kLength, [&](int i, int j, int k) { return bare.get(kFirst + i, kFirst + j, kFirst + k); });
        });
        contest.enter("subset of a subset", [&] {
            return sumOver(kLength, [&](int i, int j, int k) { return nested.get(i, j, k); });
        });
        contest.run();
        report.ratio(contest, "subset of a subset", "bare target", {1.05});
    }

    void readDecimated(Report& report) {
        constexpr int kCount = kLength / 2;
        View const nested(SubsetFilter::MakeSubset(
            SubsetFilter::MakeSubset(accessor(), cube({kFirst, 1, kLength})), cube({0, 2, kCount})));
        Contest contest("64³ samples, every second one along each axis");
        contest.enter("subset of a subset", [&] {
            return sumOver(kCount, [&](int i, int j, int k) { return nested.get(i, j, k); });
        });
        contest.enter("the subset iterated", [&] {
            std::uint64_t sum = 0;
            for (int const sample : nested.samples()) {
                sum += static_cast<std::uint64_t>(static_cast<unsigned>(sample));
            }
            return sum;
        });
        int const* const raw = samples_.data();
        contest.enter("raw pointer", [&] {
            return sumOver(kCount, [&](int i, int j, int k) {
                return raw[((kFirst + 2 * i) * kSide + kFirst + 2 * j) * kSide + kFirst + 2 * k];
            });
        });
        boost::multi_array_ref<int, 3> whole(samples_.data(), boost::extents[kSide][kSide][kSide]);
        using Range = boost::multi_array_types::index_range;
        Range const range(kFirst, kFirst + kLength, 2);
        auto const multi = whole[boost::indices[range][range][range]];
        contest.enter("boost::multi_array view", [&] {
            return sumOver(kCount, [&](int i, int j, int k) { return multi[i][j][k]; });
        });
        enterXtensor(contest, kCount);
        contest.run();
        for (char const* const ours : {"subset of a subset", "the subset iterated"}) {
            for (char const* const peer : {"raw pointer", "boost::multi_array view", "xtensor view"}) {
                report.ratio(contest, ours, peer);
            }
        }
    }

    void readPermuted(Report& report) {
        // The loops of both give the first index the fastest, since the order of the arguments alone makes a difference
        // of a sixth; a cube this small lies in the nearest cache, however it is walked.
        constexpr int kSmall = 16;
        std::vector<int> few(std::size_t{kSmall} * kSmall * kSmall, 1);
        auto const small = SharedArray<3>::Wrap<int>(few, {{0, 0, 0}, {kSmall, kSmall, kSmall}});
        auto const lend = [&] { return std::make_unique<BulkView::Accessors::MemoryAccessor>(small); };
        View const bare(lend());
        View const turned(PermuteFilter::Apply(lend(), {2, 0, 1, 3}));
        auto const sumOfSmall = [](View const& view) {
            std::uint64_t sum = 0;
            for (int pass = 0; pass < 256; ++pass) {
                sum += sumOver(kSmall, [&](int i, int j, int k) { return view.get(k, i, j); });
            }
            return sum;
        };
        Contest contest("16³ samples, axes exchanged");
        contest.enter("bare target", [&] { return sumOfSmall(bare); });
        contest.enter("permuted view", [&] { return sumOfSmall(turned); });
        contest.run();
        report.ratio(contest, "permuted view", "bare target", {1.05});

        auto const plain = accessor();
        auto const permuted = PermuteFilter::Apply(accessor(), {2, 0, 1, 3});
        std::vector<int> out(std::size_t{kLength} * kLength * kLength);
        Extent const along{kFirst, 1, kLength};
        auto const read = [&](IBufferAccessor& chain, FixedVector<4, int> const& strides) {
            readRegion(
                chain, cube(along),
                ArrayRef<4>(
                    OpenEndedRange<4, int>::OfSize({kLength, kLength, kLength, 1}), strides,
                    reinterpret_cast<char*>(out.data()), 0, typeid(int), 32));
            return static_cast<std::uint64_t>(static_cast<unsigned>(out[12345]));
        };
        Contest regions("a box of 128³ samples, axes exchanged");
        regions.enter("bare target", [&] { return read(*plain, {kLength * kLength, kLength, 1, 0}); });
        regions.enter("permuted view", [&] { return read(*permuted, {1, kLength * kLength, kLength, 0}); });
        regions.run();
        report.ratio(regions, "permuted view", "bare target", {1.05});
    }

  private:
    std::unique_ptr<IBufferAccessor> accessor() const {
        return std::make_unique<BulkView::Accessors::MemoryAccessor>(array_);
    }

#if __has_include(<xtensor/xadapt.hpp>)
    void enterXtensor(Contest& contest, int count) {
        auto whole = xt::adapt(samples_, {kSide, kSide, kSide});
        contest.enter("xtensor view", [whole, count]() mutable {
            auto const everySecond = [] { return xt::range(kFirst, kFirst + kLength, 2); };
            auto const view = xt::view(whole, everySecond(), everySecond(), everySecond());
            return sumOver(count, [&](int i, int j, int k) { return view(i, j, k); });
        });
    }
#else
    void enterXtensor(Contest&, int) {}
#endif

    std::vector<int> samples_;
    SharedArray<3> array_;
};

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("Subsets", "What a sample costs through a subset of a subset.");
    SubsetBench bench;
    bench.readDense(report);
    bench.readDecimated(report);
    bench.readPermuted(report);
}
