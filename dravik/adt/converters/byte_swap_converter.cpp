// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/byte_swap_converter.h"

#include "dravik/adt/converters/composite_converter.h"
#include "dravik/adt/converters/type_register.h"

#include <boost/make_shared.hpp>

#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::Converters {

namespace {

int bytesToSwap(std::type_info const& type) {
    int const bits = TypeRegister::sizeofTypeInBits(type);
    if (bits != 16 && bits != 32 && bits != 64) {
        throw std::invalid_argument(
            "[ByteSwapConverter] Invalid argument: values of " + std::to_string(bits) + " bits.");
    }
    return bits / 8;
}

IValueConverter const& required(IValueConverter::ConstPtr const& converter) {
    if (converter == nullptr) {
        throw std::invalid_argument("[ByteSwapConverter] null converter argument");
    }
    return *converter;
}

}  // namespace

ByteSwapConverter::ByteSwapConverter(std::type_info const& type)
    : type_(&type), conversion_(Detail::Conversion::Swap(bytesToSwap(type))) {}

IValueConverter::ConstPtr ByteSwapConverter::Before(ConstPtr const& then) {
    auto const swap = boost::make_shared<ByteSwapConverter>(required(then).getInputType());
    return CompositeConverter::getCompositeConverter(swap, then, {});
}

IValueConverter::ConstPtr ByteSwapConverter::After(ConstPtr const& first) {
    auto const swap = boost::make_shared<ByteSwapConverter>(required(first).getOutputType());
    return CompositeConverter::getCompositeConverter(first, swap, {});
}

std::type_info const& ByteSwapConverter::getInputType() const {
    return *type_;
}

std::type_info const& ByteSwapConverter::getOutputType() const {
    return *type_;
}

void ByteSwapConverter::convert(void const* in, void* out) const {
    conversion_.one(in, out);
}

void ByteSwapConverter::convertStrided(
    void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const {
    conversion_.strided(in, inIndex, inStride, out, outIndex, outStride, count);
}

void ByteSwapConverter::convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const {
    conversion_.contiguous(in, inIndex, out, outIndex, count);
}

}  // namespace Quorvel::Dravik::Adt::Converters
