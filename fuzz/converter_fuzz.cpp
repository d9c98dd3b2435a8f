// SPDX-License-Identifier: Apache-2.0
// Runs of samples through every converter, with any stride, position, length and bits, against the same converter asked
// for one value at a time; and the lengths of runs of bits against a loop over bits.

#include "dravik/adt/converters/int1.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"

#include "input.h"

#include <algorithm>
#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

using Converters::ValueConverterFactory;
using Bytes = std::vector<unsigned char>;

std::type_info const& anyType(Input& input) {
    switch (input.between(0, 5)) {
    case 0:
        return typeid(unsigned char);
    case 1:
        return typeid(char);
    case 2:
        return typeid(unsigned short);
    case 3:
        return typeid(short);
    case 4:
        return typeid(int);
    default:
        return typeid(float);
    }
}

double anyFactor(Input& input) {
    switch (input.between(0, 3)) {
    case 0:
        return input.between(-20, 20) / 4.0;
    case 1:
        return 0.1 * input.between(-100, 100);
    case 2:
        return 1e30 * input.between(-2, 2);
    default:
        return input.take<int>() * 1e-7;
    }
}

IValueConverter::ConstPtr anyConverter(Input& input) {
    auto const& in = anyType(input);
    auto const& out = anyType(input);
    try {
        switch (input.between(0, 2)) {
        case 0:
            return ValueConverterFactory::getTypeConverter(in, out, ScaleOffset(), /*copyIfSame=*/true);
        case 1:
            return ValueConverterFactory::getTypeConverter(
                in, out, ScaleOffset(anyFactor(input), anyFactor(input)), /*copyIfSame=*/true);
        default:
            return ValueConverterFactory::appendTypeConverter(
                ValueConverterFactory::getTypeConverter(in, out, ScaleOffset(2, 1), true), /*withInverse=*/false,
                anyType(input), ScaleOffset(anyFactor(input), 3));
        }
    } catch (Exceptions::NotImplementedException const&) {
        return nullptr;
    }
}

/// A start position that keeps `count` steps of `stride` inside a buffer which then needs the size given back.
struct Walk {
    Walk(Input& input, int count) : stride(input.between(-3, 3)) {
        index = input.between(0, 9) + (stride < 0 ? -stride * (count - 1) : 0);
        size = index + std::max(stride, 0) * (count - 1) + 1;
    }
    int stride;
    int index;
    int size;
};

/// Some of them from the input, which has to last for further rounds; the others count up.
Bytes anyBytes(Input& input, std::size_t count) {
    Bytes bytes(count);
    int given = std::max(input.between(-40, 40), 0);
    unsigned char filler = input.take<unsigned char>();
    for (unsigned char& byte : bytes) {
        byte = given-- > 0 ? input.take<unsigned char>() : filler++;
    }
    return bytes;
}

void checkRuns(Input& input) {
    auto const converter = anyConverter(input);
    if (converter == nullptr) {
        return;
    }
    int const count = input.between(1, 200);
    Walk const from(input, count);
    Walk const to(input, count);
    auto const inBytes = static_cast<std::size_t>(TypeRegister::sizeofTypeInBits(converter->getInputType()) / 8);
    auto const outBytes = static_cast<std::size_t>(TypeRegister::sizeofTypeInBits(converter->getOutputType()) / 8);
    // One byte in front, so that nothing is aligned.
    Bytes const in = anyBytes(input, 1 + static_cast<std::size_t>(from.size) * inBytes);
    Bytes actual(1 + static_cast<std::size_t>(to.size) * outBytes, 0xA5);
    Bytes expected = actual;
    for (int k = 0; k < count; ++k) {
        converter->convert(
            in.data() + 1 + static_cast<std::size_t>(from.index + k * from.stride) * inBytes,
            expected.data() + 1 + static_cast<std::size_t>(to.index + k * to.stride) * outBytes);
    }
    if (from.stride == 1 && to.stride == 1) {
        converter->convertContiguous(in.data() + 1, from.index, actual.data() + 1, to.index, count);
    } else {
        converter->convertStrided(
            in.data() + 1, from.index, from.stride, actual.data() + 1, to.index, to.stride, count);
    }
    auto const at = std::mismatch(actual.begin(), actual.end(), expected.begin()).first - actual.begin();
    require(
        actual == expected, "run and single values differ", converter->getInputType().name(),
        converter->getOutputType().name(), "byte", at, "strides", from.stride, to.stride, "count", count);
}

bool bitAt(Bytes const& bytes, int position) {
    return (bytes[static_cast<std::size_t>(position / 8)] >> (position % 8) & 1) != 0;
}

void checkBits(Input& input) {
    int const count = input.between(0, 300);
    Walk const from(input, std::max(count, 1));
    Walk const to(input, std::max(count, 1));
    Bytes const in = anyBytes(input, static_cast<std::size_t>(from.size + 7) / 8);
    Bytes actual = anyBytes(input, static_cast<std::size_t>(to.size + 7) / 8);
    Bytes expected = actual;
    for (int k = 0; k < count; ++k) {
        int const position = to.index + k * to.stride;
        auto& byte = expected[static_cast<std::size_t>(position / 8)];
        auto const mask = static_cast<unsigned char>(1u << (position % 8));
        byte = static_cast<unsigned char>(bitAt(in, from.index + k * from.stride) ? byte | mask : byte & ~mask);
    }
    auto const& converter = ValueConverterFactory::getCopyConverterRef(1);
    if (from.stride == 1 && to.stride == 1) {
        converter.convertContiguous(in.data(), from.index, actual.data(), to.index, count);
    } else {
        converter.convertStrided(in.data(), from.index, from.stride, actual.data(), to.index, to.stride, count);
    }
    require(actual == expected, "bits differ", from.index, from.stride, to.index, to.stride, count);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    for (int rounds = 0; rounds < 60 && (rounds == 0 || !input.isEmpty()); ++rounds) {
        if (input.flag()) {
            checkRuns(input);
        } else {
            checkBits(input);
        }
    }
    return 0;
}
