// SPDX-License-Identifier: Apache-2.0
// What an intersection of extents costs beside a walk along both of them.

#include "report.h"

#include "dravik/adt/core/extent.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using Extent = ExtentImpl<int>;

/// The first common index, found by moving whichever of the two is behind, for as long as the steps do not repeat;
/// nothing common: -1.
std::int64_t walk(Extent const& left, Extent const& right) {
    std::int64_t x = left.origin, y = right.origin;
    std::int64_t const repeat = std::max(x, y) + std::lcm(std::int64_t{left.step}, std::int64_t{right.step});
    std::int64_t const leftEnd = std::min(repeat, x + std::int64_t{left.count} * left.step);
    std::int64_t const rightEnd = std::min(repeat, y + std::int64_t{right.count} * right.step);
    while (x != y && x < leftEnd && y < rightEnd) {
        (x < y ? x += left.step : y += right.step);
    }
    return x == y && x < leftEnd && y < rightEnd ? x : -1;
}

void intersect(Report& report, char const* name, int lowestStep, int highestStep, Wanted wanted) {
    std::mt19937 engine(7);
    std::vector<std::pair<Extent, Extent>> pairs(4096);
    auto const random = [&engine](int lowest, int highest) {
        return std::uniform_int_distribution<int>(lowest, highest)(engine);
    };
    for (auto& [left, right] : pairs) {
        left = {random(0, 1000), random(lowestStep, highestStep), 10000};
        right = {random(0, 1000), random(lowestStep, highestStep), 10000};
    }
    auto const sumOf = [&pairs](auto first) {
        std::int64_t sum = 0;
        for (auto const& [left, right] : pairs) {
            sum += first(left, right);
        }
        return static_cast<std::uint64_t>(sum);
    };
    Contest contest(name);
    contest.enter("walk", [&] { return sumOf(walk); });
    contest.enter("intersection", [&] {
        return sumOf([](Extent const& left, Extent const& right) {
            Extent const common = left.intersection(right);
            return common.isEmpty() ? std::int64_t{-1} : std::int64_t{common.origin};
        });
    });
    contest.run();
    report.ratio(contest, "intersection", "walk", wanted);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("Extents", "The intersection of two extents of 10 000 indices, beside a walk along both of them.");
    intersect(report, "steps of 1 to 4", 1, 4, {0.1});
    intersect(report, "steps of 1 to 16", 1, 16, {0.2});
    intersect(report, "steps of 1000 to 5000", 1000, 5000, {0.03});
}
