// SPDX-License-Identifier: Apache-2.0
#pragma once

// Included before everything else in a build of mutants. Which fault is live is decided when the program starts, so
// that one build carries all of them: DRAVIK_MUTANT is the number of the live one, DRAVIK_MUTANT_TRACE a file that
// every program appends the numbers of the places it reached to. Plain C++ only: the sources that include it may not
// know more yet.

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Mutation {

inline constexpr int kMost = 1 << 14;

struct State {
    int live = std::getenv("DRAVIK_MUTANT") != nullptr ? std::atoi(std::getenv("DRAVIK_MUTANT")) : -1;
    char const* trace = std::getenv("DRAVIK_MUTANT_TRACE");
    std::atomic<bool> reached[kMost] = {};

    ~State() {
        std::FILE* const file = trace != nullptr ? std::fopen(trace, "a") : nullptr;
        if (file == nullptr) {
            return;
        }
        for (int mutant = 0; mutant < kMost; ++mutant) {
            if (reached[mutant]) {
                std::fprintf(file, "%d\n", mutant);
            }
        }
        std::fclose(file);
    }
};

inline State& state() {
    static State state;
    return state;
}

inline bool isLive(int mutant) {
    State& now = state();
    if (now.trace != nullptr) {
        now.reached[mutant].store(true, std::memory_order_relaxed);
    }
    return now.live == mutant;
}

/// Whether the fault at this place is the live one; never in a constant expression, which stays as it was written.
constexpr bool live(int mutant) {
    return !__builtin_is_constant_evaluated() && isLive(mutant);
}

}  // namespace Mutation
