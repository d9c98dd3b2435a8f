#include "dravik/adt/core/index_set.h"
#include <gtest/gtest.h>
#include <iostream>
namespace Quorvel::Dravik::Adt {
TEST(IndexSet, X) {
    using B = OpenEndedRange<2, int>;
    IndexSet<2, int> s;
    s.add(B{{0, 0}, {4, 4}});
    s.remove(B{{1, 1}, {2, 2}});
    std::cout << s << "\n" << s.toString() << s.size() << "\n";
}
}  // namespace Quorvel::Dravik::Adt
