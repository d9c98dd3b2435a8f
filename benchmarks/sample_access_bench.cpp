// SPDX-License-Identifier: Apache-2.0
// What a sample costs through a typed view: in memory order, along the slowest axis, at random; in one block and over
// bricks; one by one, iterated and as traces. Beside a raw pointer, an array that checks its bounds, and others'
// arrays.

#include "report.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/core/shared_array.h"

#include <boost/multi_array.hpp>
#if __has_include(<xtensor/xadapt.hpp>)
#include <xtensor/xadapt.hpp>
#define DRAVIK_ADT_BENCH_XTENSOR
#endif
#ifdef DRAVIK_ADT_BENCH_OPENVDB  // which has to be linked, so the build says whether it is there
#include <openvdb/openvdb.h>
#include <openvdb/tools/Dense.h>
#endif

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using BulkView::AdtEnums;
using BulkView::BufferHandle;
using BulkView::IBufferAccessor;
using BulkView::Accessors::MemoryAccessor;
using View = BulkView::Typed3dRoView<float>;
using Index3 = FixedVector<3, int>;

constexpr int kReads = 1 << 20;

std::uint64_t bitsOf(float sample) {
    return std::bit_cast<std::uint32_t>(sample);
}

// What every entry does with the samples: add them up one after the other, as rounding demands, so that the price of
// reading is not set against loops that a compiler may reorder.

template <class Read>
std::uint64_t sumInOrder(int side, Read read) {
    float sum = 0;
    for (int i = 0; i < side; ++i) {
        for (int j = 0; j < side; ++j) {
            for (int k = 0; k < side; ++k) {
                sum += read(i, j, k);
            }
        }
    }
    return bitsOf(sum);
}

/// The first axis, the slowest in memory, innermost; over a quarter of the planes.
template <class Read>
std::uint64_t sumAcross(int side, Read read) {
    float sum = 0;
    for (int k = 0; k < side; k += 4) {
        for (int j = 0; j < side; ++j) {
            for (int i = 0; i < side; ++i) {
                sum += read(i, j, k);
            }
        }
    }
    return bitsOf(sum);
}

template <class Read>
std::uint64_t sumAt(std::vector<Index3> const& indices, Read read) {
    float sum = 0;
    for (Index3 const& index : indices) {
        int const* const p = index.data();
        sum += read(p[0], p[1], p[2]);
    }
    return bitsOf(sum);
}

/// A pointer and two strides.
struct RawArray {
    float operator()(int i, int j, int k) const { return samples[i * plane + j * row + k]; }

    float const* samples;
    std::ptrdiff_t plane, row;
};

/// The same, with each index checked against its size.
class CheckedArray {
  public:
    CheckedArray(RawArray const& array, int side)
        : array_(array), sizes_{unsigned(side), unsigned(side), unsigned(side)} {}

    float operator()(int i, int j, int k) const {
        if (outside(i, 0) || outside(j, 1) || outside(k, 2)) {
            throw std::out_of_range("index outside");
        }
        return array_(i, j, k);
    }

  private:
    bool outside(int index, std::size_t axis) const { return static_cast<unsigned>(index) >= sizes_[axis]; }

    RawArray array_;
    std::array<unsigned, 3> sizes_;
};

/// Lends bricks that are all in memory, without owners: what a request costs is the view's share of it.
class Bricks : public IBufferAccessor {
  public:
    Bricks(RawArray const& array, int side) : side_(side), perAxis_(side / kBrick) {
        for (int corner = 0; corner < perAxis_ * perAxis_ * perAxis_; ++corner) {
            int const i = corner / (perAxis_ * perAxis_) * kBrick, j = corner / perAxis_ % perAxis_ * kBrick;
            auto& brick = bricks_.emplace_back();
            for (int row = 0; row < kBrick * kBrick; ++row) {
                float const* const start = &array.samples
                                                [(i + row / kBrick) * array.plane + (j + row % kBrick) * array.row +
                                                 corner % perAxis_ * kBrick];
                brick.insert(brick.end(), start, start + kBrick);
            }
        }
    }

    FixedVector<4, int> getSize() override { return {side_, side_, side_, 1}; }
    void setClient(IClient*) override {}
    void setHint(HintType, OpenEndedRange<4, int> const&, float) override {}
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access, BufferHandle& handle) override {
        int const i = position.data()[0] / kBrick, j = position.data()[1] / kBrick, k = position.data()[2] / kBrick;
        int const place = (i * perAxis_ + j) * perAxis_ + k;
        FixedVector<4, int> const min(i * kBrick, j * kBrick, k * kBrick, 0);
        FixedVector<4, int> const max((i + 1) * kBrick, (j + 1) * kBrick, (k + 1) * kBrick, 1);
        auto* const memory = bricks_[std::size_t(place)].data();
        handle.update(memory, {{min, max}, {kBrick * kBrick, kBrick, 1, 0}, 0}, AdtEnums::Read);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<Bricks>(*this); }
    void dispose(bool) override {}

    /// A sample by way of the table, without a request: a peer of views over this.
    float operator()(int i, int j, int k) const {
        int const place = (i / kBrick * perAxis_ + j / kBrick) * perAxis_ + k / kBrick;
        return bricks_[std::size_t(place)][std::size_t((i % kBrick * kBrick + j % kBrick) * kBrick + k % kBrick)];
    }

  private:
    static constexpr int kBrick = 64;

    int side_;
    int perAxis_;
    std::vector<std::vector<float>> bricks_;
};

auto readerOf(View const& view) {
    return [&view](int i, int j, int k) { return view.get(i, j, k); };
}

std::uint64_t sumOf(View const& view) {
    float sum = 0;
    for (float const sample : view.samples()) {
        sum += sample;
    }
    return bitsOf(sum);
}

/// A cube of samples, and everybody's way to read it.
constexpr char const* kInstructions =
    "an access is two dozen instructions, since nothing that a notification may change stays in a register: 3 cycles, "
    "or 4 where the loop lies badly. Of the peers a compiler moves everything but the sum's 2 cycles out of the loop.";
constexpr char const* kMisses =
    "a request is some 250 instructions, a locked one among them: fewer requests than reads of a table fit into what "
    "the processor looks ahead, so less of the memory's delay is hidden.";
constexpr char const* kOneLook = "the look at the block and the call take as long as some samples of a loop.";
constexpr char const* kCacheMisses =
    "the loops are the same; every sample is a miss of the cache, and a trace costs one look at the block more.";

class SampleAccessBench {
  public:
    explicit SampleAccessBench(int side)
        : side_(side),
          samples_(std::size_t(side) * std::size_t(side) * std::size_t(side)),
          raw_{samples_.data(), std::ptrdiff_t{side} * side, side},
          block_(std::make_unique<MemoryAccessor>(SharedArray<3>::Wrap<float>(samples_, {{}, Index3::Filled(side)}))),
          multi_(samples_.data(), boost::extents[side][side][side]) {
        for (std::size_t place = 0; place < samples_.size(); ++place) {
            samples_[place] = static_cast<float>(place % 9973);
        }
        bricks_.init(std::make_unique<Bricks>(raw_, side));
#ifdef DRAVIK_ADT_BENCH_OPENVDB
        openvdb::initialize();
        openvdb::tools::Dense<float const, openvdb::tools::LayoutZYX> const dense(
            openvdb::CoordBBox({0, 0, 0}, {side - 1, side - 1, side - 1}), samples_.data());
        openvdb::tools::copyFromDense(dense, *tree_, /*tolerance=*/0.0f);
#endif
    }

    void readOneByOne(Report& report) {
        std::string const cube = " of " + std::to_string(side_) + "³";
        bool const inCache = side_ == 64;
        enterAll(
            report, "all samples" + cube + " in memory order", {.checked = {1.5, kInstructions}, .tree = {0.5}},
            [this](auto read) { return sumInOrder(side_, read); });
        enterAll(
            report, "every fourth plane" + cube + " across memory order", {.raw = {1.15, kInstructions}},
            [this](auto read) { return sumAcross(side_, read); });
        std::mt19937 engine(7);
        std::uniform_int_distribution<int> index(0, side_ - 1);
        std::vector<Index3> indices(kReads);
        for (Index3& each : indices) {
            each = Index3(index(engine), index(engine), index(engine));
        }
        enterAll(report, "2²⁰ samples" + cube + " at random", {.checked = {inCache ? 1.7 : 0}}, [&](auto read) {
            return sumAt(indices, read);
        });
    }

    /// Another brick with nearly every sample, in memory that is far or at hand.
    void changeBricks(Report& report) {
        std::mt19937 engine(7);
        std::uniform_int_distribution<int> index(0, side_ - 1);
        std::vector<Index3> far(kReads), atHand(kReads);
        for (int read = 0; read < kReads; ++read) {
            far[std::size_t(read)] = Index3(index(engine), index(engine), index(engine));
            // One sample of each brick, in an order without neighbours, and each in another set of the cache.
            int const brick = read * 37 % 64;
            atHand[std::size_t(read)] =
                Index3(brick / 16 * 64 + 5, brick / 4 % 4 * 64 + brick, brick % 4 * 64 + brick / 16 * 16);
        }
        changeBricks(report, "2²⁰ samples of 256³ at random, a brick each", far, {70, kMisses});
        changeBricks(report, "one sample of each of 64 bricks, again and again", atHand, {15, kMisses});
    }

    void iterate(Report& report) {
        Contest contest(std::to_string(side_) + "³ samples");
        contest.enter("raw pointer", [this] { return sumInOrder(side_, raw_); });
        contest.enter("one block", [this] { return sumOf(block_); });
        contest.enter("bricks of 64³", [this] { return sumOf(bricks_); });
        contest.run();
        report.ratio(contest, "one block", "raw pointer", {1.15});
        report.ratio(contest, "bricks of 64³", "raw pointer");
    }

    void copyTraces(Report& report, int count) {
        Contest contest(std::to_string(count) + " adjacent samples");
        std::vector<float> out(static_cast<std::size_t>(count));
        enterTraces(contest, "memcpy", [&](int i, int j) {
            std::memcpy(out.data(), &raw_.samples[i * raw_.plane + j * raw_.row], out.size() * sizeof(float));
            return bitsOf(out.back());
        });
        enterTraces(contest, "one block", [&](int i, int j) {
            block_.prototypeGetKTrace(i, j, 0, out.data(), count);
            return bitsOf(out.back());
        });
        enterTraces(contest, "bricks of 64³", [&](int i, int j) {
            bricks_.prototypeGetKTrace(i, j, 0, out.data(), count);
            return bitsOf(out.back());
        });
        contest.run();
        report.ratio(contest, "one block", "memcpy", {count >= 64 ? 1.3 : 0});
        report.ratio(contest, "bricks of 64³", "memcpy");
    }

    /// The volume seen with its axes the other way round: samples along the third axis lie a plane apart.
    void copyStridedTraces(Report& report, int count, Wanted wanted) {
        View const turned(std::make_unique<MemoryAccessor>(
            SharedArray<3>::Wrap<float>(samples_, {{}, Index3::Filled(side_)}, {1, side_, side_ * side_})));
        Contest contest(std::to_string(count) + " samples, each a plane apart");
        std::vector<float> out(static_cast<std::size_t>(count));
        enterTraces(contest, "raw pointer", [&](int i, int j) {
            float const* from = raw_.samples + i + j * raw_.row;
            for (float& sample : out) {
                sample = *from;
                from += raw_.plane;
            }
            return bitsOf(out.back());
        });
        enterTraces(contest, "one block", [&](int i, int j) {
            turned.prototypeGetKTrace(i, j, 0, out.data(), count);
            return bitsOf(out.back());
        });
        contest.run();
        report.ratio(contest, "one block", "raw pointer", wanted);
    }

  private:
    // One trace from each of 64^2 rows.
    template <class Copy>
    static void enterTraces(Contest& contest, std::string name, Copy copy) {
        contest.enter(std::move(name), [copy] {
            std::uint64_t sum = 0;
            for (int row = 0; row < 64 * 64; ++row) {
                sum += copy(row / 64, row % 64);
            }
            return sum;
        });
    }

    void changeBricks(Report& report, std::string title, std::vector<Index3> const& indices, Wanted wanted) {
        Contest contest(std::move(title));
        Bricks const table(raw_, side_);
        contest.enter("table of bricks", [&] { return sumAt(indices, table); });
        contest.enter("bricks of 64³", [&] { return sumAt(indices, readerOf(bricks_)); });
#ifdef DRAVIK_ADT_BENCH_OPENVDB
        contest.enter("OpenVDB's cached accessor", [&] {
            auto const accessor = tree_->getConstAccessor();
            return sumAt(indices, [&accessor](int i, int j, int k) { return accessor.getValue({i, j, k}); });
        });
#endif
        contest.run();
        report.ratio(contest, "bricks of 64³", "table of bricks");
        report.ratio(contest, "bricks of 64³", "OpenVDB's cached accessor");
        report.time(contest, "bricks of 64³", kReads, wanted);
    }

    // What a sample of one block may cost.
    struct Prices {
        Wanted checked = {}, raw = {}, tree = {};
    };

    // Each way to read takes part with `sum(read)`.
    template <class Sum>
    void enterAll(Report& report, std::string title, Prices const& wanted, Sum sum) {
        Contest contest(std::move(title));
        contest.enter("array that checks its bounds", [this, sum] { return sum(CheckedArray(raw_, side_)); });
        contest.enter("raw pointer", [this, sum] { return sum(raw_); });
        contest.enter("one block", [this, sum] { return sum(readerOf(block_)); });
        contest.enter("bricks of 64³", [this, sum] { return sum(readerOf(bricks_)); });
        contest.enter(
            "boost::multi_array", [this, sum] { return sum([this](int i, int j, int k) { return multi_[i][j][k]; }); });
#ifdef DRAVIK_ADT_BENCH_XTENSOR
        contest.enter("xtensor", [this, sum] {
            auto const side = static_cast<std::size_t>(side_);
            auto const tensor = xt::adapt(samples_, std::array<std::size_t, 3>{side, side, side});
            return sum([&tensor](int i, int j, int k) { return tensor(i, j, k); });
        });
#endif
#ifdef DRAVIK_ADT_BENCH_OPENVDB
        contest.enter("OpenVDB's cached accessor", [this, sum] {
            auto const accessor = tree_->getConstAccessor();
            return sum([&accessor](int i, int j, int k) { return accessor.getValue({i, j, k}); });
        });
#endif
        contest.run();
        report.ratio(contest, "one block", "array that checks its bounds", wanted.checked);
        report.ratio(contest, "one block", "raw pointer", wanted.raw);
        report.ratio(contest, "one block", "boost::multi_array");
        report.ratio(contest, "one block", "xtensor");
        report.ratio(contest, "one block", "OpenVDB's cached accessor", wanted.tree);
        report.ratio(contest, "bricks of 64³", "array that checks its bounds");
        report.ratio(contest, "bricks of 64³", "OpenVDB's cached accessor", wanted.tree);
    }

    int side_;
    std::vector<float> samples_;
    RawArray raw_;
    View block_;
    View bricks_;
    boost::multi_array_ref<float, 3> multi_;
#ifdef DRAVIK_ADT_BENCH_OPENVDB
    openvdb::FloatGrid::Ptr tree_ = openvdb::FloatGrid::create(-1.0f);
#endif
};

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    SampleAccessBench inCache(64);
    SampleAccessBench large(256);
    {
        Report report("Views: sample by sample", "`get(i, j, k)` of a typed view, each sample added to a sum.");
        inCache.readOneByOne(report);
        large.readOneByOne(report);
        large.changeBricks(report);
    }
    {
        Report report("Views: iteration", "`samples()` of a typed view, each sample added to a sum.");
        inCache.iterate(report);
        large.iterate(report);
    }
    Report report("Views: traces", "`prototypeGetKTrace`, from 64² rows of 256³ samples.");
    for (int const count : {16, 64, 256}) {
        large.copyTraces(report, count);
    }
    large.copyStridedTraces(report, 256, {1.05, kCacheMisses});
    inCache.copyStridedTraces(report, 8, {1.5, kOneLook});
}
