// SPDX-License-Identifier: Apache-2.0
// One value of every kind that the gdb printers show; check_printers.sh stops in `look` and reads them.
// With an argument it tells their names.

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/constant_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/buffer_handle.h"
#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/converters/scale_offset.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/index_set.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/statistics/histogram.h"

#include <iostream>
#include <memory>

using namespace Quorvel::Dravik::Adt;

extern "C" void look() {
    std::cout << std::flush;
}

namespace {

// As the printer words it, out of what the class itself says.
struct Described {
    SharedBuffer const& buffer;

    friend std::ostream& operator<<(std::ostream& out, Described const& described) {
        SharedBuffer const& buffer = described.buffer;
        if (buffer.isNull()) {
            return out << "no bytes";
        }
        return out << buffer.getBufferByteSize() << (buffer.isShareable() ? "" : " external") << " bytes"
                   << (buffer.getBufferNoAlloc() == nullptr ? ", not allocated" : "")
                   << (buffer.isReadOnly() ? ", read-only" : "");
    }
};

}  // namespace

int main(int argc, char**) {
    if (argc > 1) {
        std::cout << "vector extent block range values array shared info transform "
                     "nothing box several grid noBytes bytes later external handle view unset histogram subset\n";
        return 0;
    }
    FixedVector<3, int> const vector(1, -2, 3);
    ExtentImpl<int> const extent{9, -1, 10};
    ExtentK<2, int> const block({0, 5}, {4, 6});
    OpenEndedRange<2, int> const range{{0, 1}, {4, 3}};
    ClosedRange<1, double> const values{-0.5, 2};
    ArrayConstRef<2> const array({{2, 0}, {5, 4}}, {4, 1}, nullptr, 7, typeid(float), 32);
    SharedArray<2> const shared = SharedArray<2>::Make<unsigned char>(range);
    BulkView::BufferHandle::ArrayInfo const info{{{0, 0, 2, 0}, {4, 3, 5, 1}}, {9, 3, -1, 0}, 2};
    ScaleOffset const transform(0.5, -3);
    std::cout << vector << '\n' << extent << '\n' << block << '\n' << range << '\n' << values << '\n';
    std::cout << array << '\n' << shared << '\n' << info << '\n' << transform << '\n';

    using Set = IndexSet<2, int>;
    Set const nothing;
    Set const box(range);
    Set several(range);
    Set grid({4, 4}, {{0, 0}, {32, 32}});
    for (int at = 0; at < 40; at += 5) {
        several.add(Set::Box{{at, at}, {at + 1, at + 3}});
        grid.add(Set::Box{{at, 0}, {at + 3, 2}});
    }
    std::cout << nothing << '\n' << box << '\n' << several << '\n' << grid << '\n';

    int number = 0;
    SharedBuffer const noBytes;
    SharedBuffer bytes(new SharedBuffer::BasicArrayOwner(100));
    bytes.getBuffer(100, /*allocate=*/true, /*createOwner=*/false);
    SharedBuffer const later(new SharedBuffer::BasicArrayOwner(200));
    SharedBuffer const external(new SharedBuffer::ExternalPointerOwner(&number, sizeof(number), /*writable=*/false));
    std::cout << Described{noBytes} << '\n' << Described{bytes} << '\n';
    std::cout << Described{later} << '\n' << Described{external} << '\n';

    BulkView::BufferHandle handle;
    handle.update(&number, info, BulkView::AdtEnums::Read);
    auto const samples = SharedArray<2>::Make<float>(OpenEndedRange<2, int>::OfSize({3, 4}));
    BulkView::Typed2dRoView<float> const view(std::make_unique<BulkView::Accessors::MemoryAccessor>(samples));
    BulkView::Typed2dRwView<short> const unset;
    Histogram histogram(Histogram::fixed, 0, 10, 5);
    histogram.add(3);
    BulkDef::View::ArraySubsetDef<2> const subset(block);
    std::cout << "Read of " << info << '\n';
    std::cout << "Typed2dRoView<float> (3,4) over MemoryAccessor, block empty\n";
    std::cout << "Typed2dRwView<short> without an accessor\n";
    std::cout << "5 bins over [0,10): 0 samples, 0 below, 0 above, 1 not yet counted\n";
    std::cout << "ArraySubsetDef<2>(subset=" << block << ")\n";
    look();
}
