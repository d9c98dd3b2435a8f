// SPDX-License-Identifier: Apache-2.0
// One sample type for another: a run of samples through a converter, and floats behind a view of bytes.

#include <dravik/adt/bulkview/accessors/memory_accessor.h>
#include <dravik/adt/bulkview/filters/value_convert_filter.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>
#include <dravik/adt/converters/scale_offset.h>
#include <dravik/adt/converters/value_converter_factory.h>

#include <cmath>
#include <iostream>
#include <memory>
#include <span>

using namespace Quorvel::Dravik::Adt;

namespace {

template <int Count>
void print(char const* title, unsigned char const (&bytes)[Count]) {
    std::cout << title << ':';
    for (unsigned char const byte : bytes) {
        std::cout << ' ' << int{byte};
    }
    std::cout << '\n';
}

}  // namespace

int main() {
    using Converters::ValueConverterFactory;
    float samples[] = {-7.0f, 2.5f, 3.5f, 300.0f, 3e9f, NAN};
    unsigned char bytes[6];

    //! [plain]
    auto const toBytes = ValueConverterFactory::getTypeConverter(typeid(float), typeid(unsigned char));
    toBytes->convertContiguous(samples, 0, bytes, 0, 6);  // positions and counts in samples
    print("rounded and saturated", bytes);
    //! [plain]

    //! [scaled]
    auto const toGrey = ScaleOffset::getRangeTransform({-7.0, 300.0}, {0.0, 255.0});
    auto const scaled =
        ValueConverterFactory::getTypeConverter(typeid(float), typeid(unsigned char), toGrey, /*copyIfSame=*/true);
    scaled->convertStrided(samples, 3, -1, bytes, 0, 1, 4);  // from 300 backwards
    print("scaled to 0 ... 255", {bytes[0], bytes[1], bytes[2], bytes[3]});
    //! [scaled]

    //! [filter]
    using namespace BulkView;
    auto const grid = SharedArray<2>::Wrap<float>(std::span(samples, 4), {{0, 0}, {2, 2}});
    auto const back = ValueConverterFactory::getTypeConverter(
        typeid(unsigned char), typeid(float), toGrey.getInverse(), /*copyIfSame=*/true);
    Typed2dRwView<unsigned char> grey(Filters::ValueConvertFilter::Apply(
        std::make_unique<Accessors::MemoryAccessor>(grid), sizeof(unsigned char), scaled, back));
    grey.set(0, 0, 255);
    std::cout << "the view shows " << int{grey(0, 0)} << ", below it is still " << samples[0] << '\n';
    grey.dispose();
    std::cout << "carried back: " << samples[0] << ", and its neighbour 2.5 as " << samples[1] << '\n';
    //! [filter]
}
