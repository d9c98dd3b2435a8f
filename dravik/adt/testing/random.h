// SPDX-License-Identifier: Apache-2.0
#pragma once

// Random input for laws against plain models: one seed per test program, printed when a test that used it fails, fixed
// unless the environment variable DRAVIK_TEST_SEED overrides it. Under a fuzzer its bytes decide in place of the seed.
// One generator belongs to one thread.

#include <gtest/gtest.h>

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <random>
#include <span>
#include <string>

namespace Quorvel::Dravik::Adt::Testing {

/// The seed in force.
inline std::uint64_t randomSeed() {
    char const* const text = std::getenv("DRAVIK_TEST_SEED");
    return text == nullptr ? 20031u : std::strtoull(text, nullptr, 10);
}

/// What a fuzzer lets every default-made generator of the process take its decisions from.
struct FuzzedBytes {
    /// Thrown where they are used up, which ends the law. No std::exception: no test takes it for one of the library's.
    struct UsedUp {};

    inline static bool inUse = false;
    inline static std::span<std::uint8_t const> left;

    /// A number from 0 to `highest`, of as few bytes as hold that.
    static std::uint64_t take(std::uint64_t highest) {
        std::uint64_t value = 0;
        for (std::uint64_t reach = highest; reach != 0; reach >>= 8) {
            if (left.empty()) {
                throw UsedUp();
            }
            value = value << 8 | left.front();
            left = left.subspan(1);
        }
        return reduce(value, highest);
    }

    static constexpr std::uint64_t reduce(std::uint64_t value, std::uint64_t highest) {
        return highest == UINT64_MAX ? value : value % (highest + 1);
    }
};

/// A generator for one test; its trace names the seed in every failure message of the scope that holds it.
class Random {
  public:
    Random() : Random(randomSeed()) { isFuzzed_ = FuzzedBytes::inUse; }
    /// Not for a fuzzer to decide: for what is many, and alike whatever its values are.
    explicit Random(std::uint64_t seed)
        : engine_(seed), trace_(__FILE__, __LINE__, "DRAVIK_TEST_SEED=" + std::to_string(seed)) {}

    /// A whole number in [lowest, highest].
    template <std::integral T>
    T between(T lowest, T highest) {
        auto const low = static_cast<std::uint64_t>(lowest);
        auto const span = static_cast<std::uint64_t>(highest) - low;
        // No distribution of the standard library, which differs from one to the next.
        return static_cast<T>(low + (isFuzzed_ ? FuzzedBytes::take(span) : FuzzedBytes::reduce(engine_(), span)));
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
        std::int64_t const wide = chance(50)
                                      ? oneOf<std::int64_t>({low - 1LL, low, low + 1LL, high - 1LL, high, high + 1LL})
                                      : between<std::int64_t>(low, high);
        return static_cast<int>(std::clamp<std::int64_t>(wide, INT32_MIN, INT32_MAX));
    }

    /// Any int: small, at an end of its range, or anywhere.
    int anyInt() {
        int const small = between(-9, 9);
        return oneOf({small, small, small < 0 ? INT32_MAX + small + 1 : INT32_MIN + small, edgy(INT32_MIN, INT32_MAX)});
    }

    std::mt19937_64& engine() { return engine_; }

  private:
    bool isFuzzed_ = false;
    std::mt19937_64 engine_;
    testing::ScopedTrace trace_;
};

}  // namespace Quorvel::Dravik::Adt::Testing
