// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/region_checks.h"

#include "dravik/adt/converters/value_converter_factory.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

void requireBitSize(int bitSize) {
    if (bitSize <= 0 || (bitSize != 1 && bitSize % 8 != 0)) {
        refuseRegion<std::invalid_argument>("samples of ", bitSize, " bits, neither 1 nor whole bytes.");
    }
}

void requireMemory(char const* data, int bitSize) {
    if (data == nullptr) {
        refuseRegion<std::invalid_argument>("an array without memory.");
    }
    requireBitSize(bitSize);
}

void requireFit(ExtentK<4, int> const& region, ArrayRef<4> const& array) {
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = region.data()[axis];
        if (along.count != array.range().size(axis)) {
            refuseRegion<std::invalid_argument>("the region ", region, " and the array ", array, " differ in size.");
        }
        if (along.step == 0 && along.count > 1) {
            refuseRegion<std::invalid_argument>("a step of 0 in ", region, ".");
        }
    }
    requireMemory(array.data(), array.bitSize());
}

void requireInside(ExtentK<4, int> const& region, FixedVector<4, int> const& size) {
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = region.data()[axis];
        std::int64_t const last = along.origin + (std::int64_t{along.count} - 1) * along.step;
        if (std::min<std::int64_t>(along.origin, last) < 0 ||
            std::max<std::int64_t>(along.origin, last) >= size.data()[axis]) {
            refuseRegion<std::out_of_range>(region, " reaches outside the size ", size, ".");
        }
    }
}

IValueConverter::ConstPtr converterOf(
    std::type_info const& from, std::type_info const& to, IValueConverter::ConstPtr const& given) {
    if (given == nullptr) {
        bool const isKnown = from != typeid(void) && to != typeid(void);
        return isKnown ? Converters::ValueConverterFactory::getTypeConverter(from, to) : nullptr;
    }
    auto const fits = [](std::type_info const& told, std::type_info const& taken) {
        return told == typeid(void) || told == taken;
    };
    if (!fits(from, given->getInputType()) || !fits(to, given->getOutputType())) {
        refuseRegion<std::invalid_argument>(
            "a converter from ", Adt::Detail::sampleTypeName(given->getInputType()), " to ",
            Adt::Detail::sampleTypeName(given->getOutputType()), " between ", Adt::Detail::sampleTypeName(from),
            " and ", Adt::Detail::sampleTypeName(to), ".");
    }
    return given;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
