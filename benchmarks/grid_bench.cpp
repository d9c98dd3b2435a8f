// SPDX-License-Identifier: Apache-2.0
// Whole 2-D grids through a region, beside the memory copy of the same bytes and OpenCV's functions for matrices.

#include "report.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"

#ifdef DRAVIK_ADT_BENCH_OPENCV
#include <opencv2/core.hpp>
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using Box = OpenEndedRange<4, int>;
using Extent = ExtentImpl<int>;

constexpr int kRows = 1500, kColumns = 1700;
constexpr Extent kOne{0, 1, 1};

std::uint64_t sumOf(std::vector<char> const& bytes) {
    std::uint64_t sum = 0;
    for (std::size_t at = 0; at < bytes.size(); at += bytes.size() / 997 + 1) {
        sum = sum * 31 + static_cast<unsigned char>(bytes[at]);
    }
    return sum;
}

/// A grid of In, read as Out in some way.
template <class In, class Out>
class GridBench {
  public:
    /// What the work does with the grid; `strides` are those of the array that is read into, in samples.
    struct Way {
        std::string name;
        Extent rows, columns;
        FixedVector<4, int> strides;
        double atMost;  // memory copies
    };
    /// The peer's work on a grid of kRows rows at the first pointer.
    using Peer = std::function<void(In*, Out*)>;

    void measure(Report& report, Way const& way, Peer const& peer) {
        std::vector<char> read(kCount * sizeof(Out)), made(read.size()), copied(kCount * sizeof(In));
        ArrayRef<4> const array(
            Box::OfSize({kRows, kColumns, 1, 1}), way.strides, read.data(), 0, typeid(Out), 8 * sizeof(Out));
        ExtentK<4, int> const region(way.rows, way.columns, kOne, kOne);
        Contest contest(way.name);
        contest.enter("readRegion", [&] {
            BulkView::readRegion(accessor_, region, array);
            return keep(read.data()), sumOf(read);
        });
        if (peer) {
            contest.enter("OpenCV", [&] {
                peer(samples(), reinterpret_cast<Out*>(made.data()));
                return keep(made.data()), sumOf(made);
            });
        }
        std::uint64_t const checksum = (BulkView::readRegion(accessor_, region, array), sumOf(read));
        contest.enter("memory copy", [&, checksum] {
            std::memcpy(copied.data(), samples(), copied.size());
            return keep(copied.data()), checksum;
        });
        contest.run();
        report.ratio(contest, "readRegion", "memory copy", {way.atMost});
        report.ratio(contest, "readRegion", "OpenCV", {1});
    }

  private:
    static constexpr std::size_t kCount = std::size_t{kRows} * kColumns;

    static SharedArray<4> filled() {
        auto const array = SharedArray<4>::Make<In>(Box::OfSize({kRows, kColumns, 1, 1}));
        auto* const samples = reinterpret_cast<In*>(array.data());
        for (std::size_t at = 0; at < kCount; ++at) {
            samples[at] = static_cast<In>(at * 2654435761U % 251);
        }
        return array;
    }
    In* samples() { return reinterpret_cast<In*>(array_.data()); }

    SharedArray<4> array_ = filled();
    BulkView::Accessors::MemoryAccessor accessor_{array_};
};

constexpr Extent kAllRows{0, 1, kRows}, kAllColumns{0, 1, kColumns};
constexpr Extent kRowsBackwards{kRows - 1, -1, kRows}, kColumnsBackwards{kColumns - 1, -1, kColumns};

#ifdef DRAVIK_ADT_BENCH_OPENCV
template <class T>
cv::Mat grid(T* samples, int rows = kRows, int columns = kColumns) {
    return {rows, columns, cv::DataType<T>::type, samples};
}
template <class T>
void transposed(T* in, T* out) {
    cv::Mat to = grid(out, kColumns, kRows);
    cv::transpose(grid(in), to);
}
template <class T, int kCode>
void flipped(T* in, T* out) {
    cv::Mat to = grid(out);
    cv::flip(grid(in), to, kCode);
}
template <class In, class Out>
void converted(In* in, Out* out) {
    cv::Mat to = grid(out);
    grid(in).convertTo(to, cv::DataType<Out>::type);
}
#else
template <class T>
constexpr std::nullptr_t transposed = nullptr;
template <class T, int kCode>
constexpr std::nullptr_t flipped = nullptr;
template <class In, class Out>
constexpr std::nullptr_t converted = nullptr;
#endif

template <class T>
void moved(Report& report, std::string const& type, double transposedAtMost) {
    GridBench<T, T> bench;
    FixedVector<4, int> const dense(kColumns, 1, 0, 0);
    bench.measure(
        report, {type + " transposed", kAllRows, kAllColumns, {1, kRows, 0, 0}, transposedAtMost}, transposed<T>);
    bench.measure(report, {type + " left to right", kAllRows, kColumnsBackwards, dense, 1.5}, flipped<T, 1>);
    bench.measure(
        report, {type + " turned by 180 degrees", kRowsBackwards, kColumnsBackwards, dense, 1.5}, flipped<T, -1>);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
#ifdef DRAVIK_ADT_BENCH_OPENCV
    cv::setNumThreads(1);
#endif
    Report report("Grids", "What a whole grid of 1500 x 1700 samples costs in one call.");
    moved<unsigned char>(report, "bytes", 4);
    moved<short>(report, "16-bit integers", 3);
    moved<float>(report, "floats", 2.5);
    moved<double>(report, "doubles", 2.5);
    GridBench<float, unsigned char> bench;
    bench.measure(
        report, {"floats to bytes", kAllRows, kAllColumns, {kColumns, 1, 0, 0}, 1.5}, converted<float, unsigned char>);
}
