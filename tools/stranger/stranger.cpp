// SPDX-License-Identifier: Apache-2.0
// Uses one thing of the headers alone, one that is linked, and one whose type has to be the same on both sides.

#include <dravik/adt/core/extent.h>

#include <iostream>
#include <stdexcept>

int main() {
    using namespace Quorvel::Dravik::Adt;
    FixedVector<3, int> size(4, 5, 6);
    try {
        size[3] = 7;
        return 1;
    } catch (std::invalid_argument const& error) {
        std::cout << error.what() << '\n';
    }
    ExtentImpl<int> const odd{1, 2, 5};
    std::cout << odd.intersection({0, 3, 4}) << '\n';
    return odd.intersection({0, 3, 4}) == ExtentImpl<int>{3, 6, 2} ? 0 : 1;
}
