// SPDX-License-Identifier: Apache-2.0
// What a region costs beside the memory copy of the same bytes, raw loops and the strided views of others.

#include "report.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/core/shared_array.h"

#if __has_include(<xtensor/xadapt.hpp>)
#include <xtensor/xadapt.hpp>
#include <xtensor/xnoalias.hpp>
#include <xtensor/xstrided_view.hpp>
#endif

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <numeric>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using BulkView::IBufferAccessor;
using Box = OpenEndedRange<4, int>;
using Extent = ExtentImpl<int>;
using Extent4 = ExtentK<4, int>;
using Index = FixedVector<4, int>;

constexpr int kSide = 128;  // samples of a box along each axis
constexpr Extent kAll{0, 1, kSide};
constexpr Extent kOne{0, 1, 1};

/// A way to take a box: which samples, and where they go.
struct Way {
    char const* name;
    Extent4 region;
    Index strides;  // of the array, in samples
};

std::uint64_t sumOf(std::vector<char> const& bytes) {
    // A few bytes of it: the sum of all would take as long as the copy.
    std::uint64_t sum = 0;
    for (std::size_t at = 0; at < bytes.size(); at += bytes.size() / 61 + 1) {
        sum = sum * 31 + static_cast<unsigned char>(bytes[at]);
    }
    return sum;
}

Box boxOf(Extent4 const& region) {
    return Box::OfSize({region[0].count, region[1].count, region[2].count, region[3].count});
}

template <class T>
class RegionBench {
  public:
    static constexpr int kBits = static_cast<int>(8 * sizeof(T));

    RegionBench(IBufferAccessor& accessor, T const* samples, int side)
        : accessor_(accessor), samples_(samples), side_(side) {}

    /// Compares `way` with a memory copy of as many bytes as it reads out, and with raw loops.
    void measure(Report& report, std::string const& from, Way const& way, double atMost) {
        auto const box = boxOf(way.region);
        auto const bytes = static_cast<std::size_t>(box.pointCount()) * sizeof(T);
        std::vector<char> read(bytes), looped(bytes), copied(bytes);
        ArrayRef<4> const array(box, way.strides, read.data(), 0, typeid(T), kBits);
        Contest contest(from + ", " + std::to_string(sizeof(T)) + "-byte samples, " + way.name);
        contest.enter("readRegion", [&] {
            BulkView::readRegion(accessor_, way.region, array);
            return keep(read.data()), sumOf(read);
        });
        contest.enter("raw loops", [&] {
            loop(way, reinterpret_cast<T*>(looped.data()));
            return keep(looped.data()), sumOf(looped);
        });
        enterXtensor(contest, way, box, copied);
        std::uint64_t const checksum = (BulkView::readRegion(accessor_, way.region, array), sumOf(read));
        contest.enter("memory copy", [&, checksum] {
            std::memcpy(copied.data(), samples_, copied.size());
            return keep(copied.data()), checksum;
        });
        contest.run();
        report.ratio(contest, "readRegion", "memory copy", {atMost});
        report.ratio(contest, "readRegion", "raw loops");
        report.ratio(contest, "readRegion", "xtensor", {1});
    }

  private:
    void loop(Way const& way, T* out) const {
        auto const& [i0, j0, k0] = std::array{way.region[0], way.region[1], way.region[2]};
        for (int i = 0; i < i0.count; ++i) {
            for (int j = 0; j < j0.count; ++j) {
                T const* const row =
                    samples_ + std::ptrdiff_t{(i0.origin + i * i0.step) * side_ + j0.origin + j * j0.step} * side_;
                T* const to = out + std::ptrdiff_t{i} * way.strides[0] + std::ptrdiff_t{j} * way.strides[1];
                for (int k = 0; k < k0.count; ++k) {
                    to[std::ptrdiff_t{k} * way.strides[2]] = row[k0.origin + k * k0.step];
                }
            }
        }
    }

#if __has_include(<xtensor/xadapt.hpp>)
    void enterXtensor(Contest& contest, Way const& way, Box const& box, std::vector<char>& out) const {
        auto const side = static_cast<std::size_t>(side_);
        std::vector<std::size_t> const shape{
            static_cast<std::size_t>(box.max[0]), static_cast<std::size_t>(box.max[1]),
            static_cast<std::size_t>(box.max[2])};
        std::vector<std::ptrdiff_t> const strides{way.strides[0], way.strides[1], way.strides[2]};
        contest.enter("xtensor", [=, this, &out] {
            auto const whole =
                xt::adapt(samples_, side * side * side, xt::no_ownership(), std::array{side, side, side});
            auto const along = [](Extent const& axis) {
                std::ptrdiff_t const end = axis.origin + std::ptrdiff_t{axis.count} * axis.step;
                return xt::range(axis.origin, end < 0 ? -1 - (1 << 20) : end, axis.step);
            };
            auto to =
                xt::adapt(reinterpret_cast<T*>(out.data()), out.size() / sizeof(T), xt::no_ownership(), shape, strides);
            xt::noalias(to) =
                xt::strided_view(whole, {along(way.region[0]), along(way.region[1]), along(way.region[2])});
            return keep(out.data()), sumOf(out);
        });
    }
#else
    void enterXtensor(Contest&, Way const&, Box const&, std::vector<char>&) const {}
#endif

    IBufferAccessor& accessor_;
    T const* samples_;
    int side_;
};

Way box(char const* name, Extent const& last, Index const& strides) {
    return {name, Extent4(kAll, kAll, last, kOne), strides};
}

constexpr int kHalf = kSide / 2, kThird = kSide / 3;
Index const kDense(kSide* kSide, kSide, 1, 0);

Way const kBox = {"box", Extent4(Extent{16, 1, kSide}, Extent{16, 1, kSide}, Extent{16, 1, kSide}, kOne), kDense};
Way const kReversed = box("reversed", {kSide - 1, -1, kSide}, kDense);
Way const kSecond = box("every second", {0, 2, kHalf}, {kSide * kHalf, kHalf, 1, 0});
Way const kThirds = box("every third", {0, 3, kThird}, {kSide * kThird, kThird, 1, 0});
Way const kTransposed = box("transposed", kAll, {1, kSide, kSide* kSide, 0});

template <class T>
struct Memory {
    static constexpr int kWhole = kSide + 32;
    SharedArray<4> array = SharedArray<4>::Make<T>(Box::OfSize({kWhole, kWhole, kWhole, 1}));
    BulkView::Accessors::MemoryAccessor accessor{array};
    T* samples = reinterpret_cast<T*>(array.data());
    Memory() { std::iota(samples, samples + array.range().pointCount(), T{}); }
    RegionBench<T> bench() { return {accessor, samples, kWhole}; }
};

template <class T>
void fromMemory(Report& report, double reversed, double transposed) {
    Memory<T> memory;
    auto bench = memory.bench();
    bench.measure(report, "memory", kReversed, reversed);
    bench.measure(report, "memory", kTransposed, transposed);
}

/// A cube of floats in bricks of 64 samples along each axis, last axis fastest.
class Bricks final : public IBufferAccessor {
  public:
    static constexpr int kEdge = 64;

    explicit Bricks(Memory<float> const& memory) : side_(Memory<float>::kWhole), perAxis_((side_ + kEdge - 1) / kEdge) {
        for (int brick = 0; brick < perAxis_ * perAxis_ * perAxis_; ++brick) {
            auto const box = boxAt(brick);
            auto const copy = SharedArray<4>::Make<float>(box);
            Bricks::fill(memory, box, reinterpret_cast<float*>(copy.data()));
            bricks_.push_back(copy);
        }
    }

    Index getSize() override { return {side_, side_, side_, 1}; }
    void setClient(IClient*) override {}
    void setHint(HintType, Box const&, float) override {}
    void getBuffer(Index p, BulkView::AdtEnums::Access access, BulkView::BufferHandle& handle) override {
        int const brick = (p[0] / kEdge * perAxis_ + p[1] / kEdge) * perAxis_ + p[2] / kEdge;
        handle.update(bricks_[static_cast<std::size_t>(brick)], access);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<Bricks>(*this); }
    void dispose(bool) override {}

  private:
    Box boxAt(int brick) const {
        Index const min(
            brick / (perAxis_ * perAxis_) * kEdge, brick / perAxis_ % perAxis_ * kEdge, brick % perAxis_ * kEdge, 0);
        Box box{min, min + Index(kEdge, kEdge, kEdge, 1)};
        box.intersect(Box::OfSize({side_, side_, side_, 1}));
        return box;
    }
    static void fill(Memory<float> const& memory, Box const& box, float* out) {
        for (int i = box.min[0]; i < box.max[0]; ++i) {
            for (int j = box.min[1]; j < box.max[1]; ++j) {
                float const* const row = memory.samples + memory.array.position({i, j, 0, 0});
                out = std::copy(row + box.min[2], row + box.max[2], out);
            }
        }
    }

    int side_;
    int perAxis_;
    std::vector<SharedArray<4>> bricks_;
};

void fromBricks(Report& report) {
    Memory<float> memory;
    Bricks bricks(memory);
    RegionBench<float> bench(bricks, memory.samples, Memory<float>::kWhole);
    bench.measure(report, "64³ bricks", kBox, 2);
    bench.measure(report, "64³ bricks", kReversed, 1.7);
    bench.measure(report, "64³ bricks", kSecond, 3);
}

void converted(Report& report) {
    Memory<float> memory;
    auto const region = kBox.region;
    auto const converter = Converters::ValueConverterFactory::getTypeConverter(typeid(float), typeid(unsigned char));
    std::vector<char> read(std::size_t{kSide} * kSide * kSide), alone(read.size());
    ArrayRef<4> const array(boxOf(region), kDense, read.data(), 0, typeid(unsigned char), 8);
    Contest contest("memory, float to bytes");
    contest.enter("readRegion", [&] {
        BulkView::readRegion(memory.accessor, region, array);
        return keep(read.data()), std::uint64_t{0};
    });
    contest.enter("the converter alone", [&] {
        converter->convertContiguous(memory.samples, 0, alone.data(), 0, static_cast<int>(alone.size()));
        return keep(alone.data()), std::uint64_t{0};
    });
    contest.run();
    report.ratio(contest, "readRegion", "the converter alone", {1.5});
}

void single(Report& report) {
    Memory<float> memory;
    float sample = 0;
    ArrayRef<4> const array(Box::OfSize({1, 1, 1, 1}), {}, reinterpret_cast<char*>(&sample), 0, typeid(float), 32);
    Contest contest("one sample");
    contest.enter("readRegion", [&] {
        BulkView::readRegion(memory.accessor, Extent4(Extent{5, 1, 1}, Extent{6, 1, 1}, Extent{7, 1, 1}, kOne), array);
        return keep(&sample), std::uint64_t{0};
    });
    contest.run();
    report.time(contest, "readRegion", 1, {200});
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("Regions", "What a box of 128³ samples costs in one call.");
    {
        Memory<float> memory;
        auto bench = memory.bench();
        bench.measure(report, "memory", kBox, 1.3);
        bench.measure(report, "memory", kSecond, 2.5);
        bench.measure(report, "memory", kThirds, 2.2);
    }
    fromMemory<float>(report, 1.2, 2.5);
    fromMemory<unsigned char>(report, 1.5, 4);
    fromMemory<short>(report, 1.5, 3);
    fromMemory<double>(report, 1.5, 2);
    fromBricks(report);
    converted(report);
    single(report);
}
