// One value of every kind that the gdb printers show; check_printers.sh stops in `look` and reads them.
// With an argument it tells their names.

#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/shared_array.h"

#include <iostream>

using namespace Quorvel::Dravik::Adt;

extern "C" void look() {
    std::cout << std::flush;
}

int main(int argc, char**) {
    if (argc > 1) {
        std::cout << "vector extent block range values array shared\n";
        return 0;
    }
    FixedVector<3, int> const vector(1, -2, 3);
    ExtentImpl<int> const extent{9, -1, 10};
    ExtentK<2, int> const block({0, 5}, {4, 6});
    OpenEndedRange<2, int> const range{{0, 1}, {4, 3}};
    ClosedRange<1, double> const values{-0.5, 2};
    ArrayConstRef<2> const array({{2, 0}, {5, 4}}, {4, 1}, nullptr, 7, typeid(float), 32);
    SharedArray<2> const shared = SharedArray<2>::Make<unsigned char>(range);
    std::cout << vector << '\n' << extent << '\n' << block << '\n' << range << '\n' << values << '\n';
    std::cout << array << '\n' << shared << '\n';
    look();
}
