// SPDX-License-Identifier: Apache-2.0
#pragma once

// forAxes: a loop over axes for paths that cost a few nanoseconds. Threads: as what is called.

#include <utility>

namespace Quorvel::Dravik::Adt::Detail {

template <class Act, int... Axis>
[[gnu::always_inline]] constexpr void forAxesOf(Act const& act, std::integer_sequence<int, Axis...>) noexcept {
    (act(Axis), ...);
}

/// Calls act(0) … act(N - 1). Unrolled where it is compiled, so that vectors of N components stay in registers; a loop
/// leaves them in memory, where compilers then read in wide words what was just written in narrow ones, which stalls.
template <int N, class Act>
[[gnu::always_inline]] constexpr void forAxes(Act const& act) noexcept {
    forAxesOf(act, std::make_integer_sequence<int, N>());
}

}  // namespace Quorvel::Dravik::Adt::Detail
