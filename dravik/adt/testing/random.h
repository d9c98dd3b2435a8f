// SPDX-License-Identifier: Apache-2.0
#pragma once

// Random input for laws against plain models: one seed per test program, printed when a test that used it fails, fixed
// unless the environment variable DRAVIK_TEST_SEED overrides it. One generator belongs to one thread.

#include <gtest/gtest.h>

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <random>
#include <string>

namespace Quorvel::Dravik::Adt::Testing {

/// The seed in force.
inline std::uint64_t randomSeed() {
    char const* const text = std::getenv("DRAVIK_TEST_SEED");
    return text == nullptr ? 20031u : std::strtoull(text, nullptr, 10);
}

/// A generator for one test; its trace names the seed in every failure message of the scope that holds it.
class Random {
  public:
    Random() : Random(randomSeed()) {}
    explicit Random(std::uint64_t seed)
        : engine_(seed), trace_(__FILE__, __LINE__, "DRAVIK_TEST_SEED=" + std::to_string(seed)) {}

    /// A whole number in [lowest, highest].
    template <std::integral T>
    T between(T lowest, T highest) {
        return std::uniform_int_distribution<T>(lowest, highest)(engine_);
    }

    /// True in `percent` of 100 cases.
    bool chance(int percent) { return between(1, 100) <= percent; }

    /// One of the values.
    template <class T>
    T oneOf(std::initializer_list<T> values) {
        return values.begin()[between<std::size_t>(0, values.size() - 1)];
    }

    /// Leans on the edges: `low` or `high` themselves, one beside or one beyond them, else anything in between.
    int edgy(int low, int high) {
        std::int64_t const wide =
            chance(50) ? oneOf<std::int64_t>({low, high}) + between(-1, 1) : between<std::int64_t>(low, high);
        return static_cast<int>(std::clamp<std::int64_t>(wide, INT32_MIN, INT32_MAX));
    }

    std::mt19937_64& engine() { return engine_; }

  private:
    std::mt19937_64 engine_;
    testing::ScopedTrace trace_;
};

}  // namespace Quorvel::Dravik::Adt::Testing
