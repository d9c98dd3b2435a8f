// SPDX-License-Identifier: Apache-2.0
#pragma once

// IndexWindow: the test that every sample access begins with. A plain value. Threads: as `int`.

#include "dravik/adt/core/detail/for_axes.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <algorithm>
#include <climits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// The box of the block that a view holds, and the word by which the view notices that it holds it no longer.
///
/// Both bounds of all axes are tested at once, and the word with them, so that an access costs one branch: per axis, an
/// index lies in [min, max) if index - min, as an unsigned number, is below max - min. Compares are signed where
/// vectors are concerned, hence both sides are kept with their highest bit turned over.
template <int N>
class IndexWindow {
    static_assert(1 <= N && N <= 4);

  public:
    using Index = FixedVector<N, int>;

    /// Admits nothing.
    IndexWindow() noexcept { close(); }

    /// Admits the indices of `range` as long as the word stays as it is: range.max[0], which becomes 0 when the loan
    /// ends. A box whose first axis ends at 0 anyway admits nothing here, nor does an empty one; false for these, and
    /// the caller asks the handle.
    bool open(OpenEndedRange<4, int> const& range) noexcept {
        int bias[4] = {0, 0, 0, 0};
        int limit[4] = {INT_MAX, INT_MAX, INT_MAX, INT_MAX};
        bool isEmpty = range.max.data()[0] == 0;
        Adt::Detail::forAxes<N>([&](int axis) {
            int const min = range.min.data()[axis];
            int const max = range.max.data()[axis];
            isEmpty = isEmpty || max <= min;
            bias[axis] = turned(static_cast<unsigned>(min));
            limit[axis] = turned(static_cast<unsigned>(max) - static_cast<unsigned>(min) - 1u);
        });
        if (isEmpty) {
            close();
            return false;
        }
        store(bias_, bias);
        store(limit_, limit);
        word_ = range.max.data()[0];
        return true;
    }

    /// Admits nothing. With all four axes in use there is an exception that no accessor can lend: the index of all
    /// largest numbers, while the word is the smallest.
    void close() noexcept {
        if constexpr (N < 4) {
            limit_[N] = -1;
        } else {
            for (int axis = 0; axis < N; ++axis) {
                bias_[axis] = turned(INT_MAX);
                limit_[axis] = turned(0);
            }
        }
        word_ = INT_MIN;
    }

    /// The word that must still be found for the window to stand.
    int word() const noexcept { return word_; }

    bool admits(Index const& index, int word) const noexcept { return (outside(index) | (word ^ word_)) == 0; }

  private:
    static int turned(unsigned value) noexcept { return static_cast<int>(value ^ 0x80000000u); }

    // In one piece, as the next access reads them.
    static void store(int (&to)[4], int const (&from)[4]) noexcept {
#if defined(__SSE2__)
        _mm_store_si128(reinterpret_cast<__m128i*>(to), _mm_setr_epi32(from[0], from[1], from[2], from[3]));
#else
        std::copy_n(from, 4, to);
#endif
    }

    template <int Axis>
    static int component(Index const& index) noexcept {
        if constexpr (Axis < N) {
            return index.data()[Axis];
        } else {
            return 0;
        }
    }

    // 0 if the index lies inside.
    int outside(Index const& index) const noexcept {
#if defined(__SSE2__)
        __m128i const point =
            _mm_setr_epi32(component<0>(index), component<1>(index), component<2>(index), component<3>(index));
        __m128i const bias = _mm_load_si128(reinterpret_cast<__m128i const*>(bias_));
        __m128i const limit = _mm_load_si128(reinterpret_cast<__m128i const*>(limit_));
        return _mm_movemask_epi8(_mm_cmpgt_epi32(_mm_sub_epi32(point, bias), limit));
#else
        int const point[] = {component<0>(index), component<1>(index), component<2>(index), component<3>(index)};
        int result = 0;
        for (int axis = 0; axis < 4; ++axis) {
            unsigned const distance = static_cast<unsigned>(point[axis]) - static_cast<unsigned>(bias_[axis]);
            result |= static_cast<int>(distance) > limit_[axis];
        }
        return result;
#endif
    }

    // Axes beyond N compare 0 - 0 with the largest number, or the first of them with -1 to close the window.
    alignas(16) int bias_[4] = {0, 0, 0, 0};
    alignas(16) int limit_[4] = {INT_MAX, INT_MAX, INT_MAX, INT_MAX};
    int word_ = 0;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
