// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/views/detail/index_window.h"

#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <climits>

namespace Quorvel::Dravik::Adt::BulkView::Detail {
namespace {

// Boxes and indices around 0 and around both ends of `int`, every third box empty on some axis.
template <int N>
void admitsWhatTheBoxHolds(Testing::Random& random) {
    IndexWindow<N> window;
    EXPECT_FALSE(window.admits({}, 0)) << "closed at first";
    for (int round = 0; round < 20000; ++round) {
        OpenEndedRange<4, int> box;
        FixedVector<N, int> index;
        bool inside = true;
        for (int axis = 0; axis < 4; ++axis) {
            int const base = random.oneOf({INT_MIN, -3, 0, INT_MAX - 4});
            box.min[axis] = random.edgy(base, base + 4);
            box.max[axis] = random.chance(10) ? random.oneOf({INT_MIN, 0, INT_MAX}) : random.edgy(base, base + 4);
            if (axis < N) {
                index[axis] = random.chance(70) ? random.edgy(base, base + 4) : random.oneOf({INT_MIN, -1, 0, INT_MAX});
                inside = inside && box.min[axis] <= index[axis] && index[axis] < box.max[axis];
            }
        }
        if (N == 4 && box.max[0] == INT_MIN) {
            continue;  // where one index passes that no accessor can lend
        }
        window.open(box);
        ASSERT_EQ(window.admits(index, box.max[0]), inside && box.max[0] != 0) << index << " in " << box;
        ASSERT_FALSE(window.admits(index, 0)) << "the loan has ended";
        if (random.chance(50)) {
            window.close();
            ASSERT_FALSE(window.admits(index, box.max[0])) << "closed again";
        }
    }
}

TEST(IndexWindow, AdmitsWhatItsBoxHolds) {
    Testing::Random random;
    admitsWhatTheBoxHolds<1>(random);
    admitsWhatTheBoxHolds<2>(random);
    admitsWhatTheBoxHolds<3>(random);
    admitsWhatTheBoxHolds<4>(random);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
