// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/int1_copy_converter.h"

#include "dravik/adt/converters/int1.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Quorvel::Dravik::Adt::Converters {

namespace {

static_assert(std::endian::native == std::endian::little, "Words of bits are read with their first byte lowest.");

using Bytes = unsigned char*;
using ConstBytes = unsigned char const*;

// Writes the low `count` bits of `bits` at `bit`; they do not leave its byte.
void writeWithinByte(Bytes out, std::ptrdiff_t bit, unsigned bits, int count) {
    int const phase = static_cast<int>(bit % 8);
    unsigned const mask = ((1u << count) - 1) << phase;
    out[bit / 8] = static_cast<unsigned char>((out[bit / 8] & ~mask) | (bits << phase & mask));
}

void copyBit(ConstBytes in, std::ptrdiff_t inBit, Bytes out, std::ptrdiff_t outBit) {
    writeWithinByte(out, outBit, static_cast<unsigned>(in[inBit / 8] >> (inBit % 8)), 1);
}

// Moves 1 to 8 bits that do not leave their byte of `out`. Never reads a byte of `in` that holds none of them.
void copyWithinByte(ConstBytes in, std::ptrdiff_t inBit, Bytes out, std::ptrdiff_t outBit, int count) {
    int const phase = static_cast<int>(inBit % 8);
    unsigned bits = in[inBit / 8];
    if (phase + count > 8) {
        bits |= static_cast<unsigned>(in[inBit / 8 + 1]) << 8;
    }
    writeWithinByte(out, outBit, bits >> phase, count);
}

using Word = std::uint64_t;
using TwoWords [[gnu::vector_size(16)]] = Word;

// Writes a word, or several side by side, at `out` from a bit of the byte at `in`. The second load holds the bits that
// the shift of the first one has no room for, and more that both agree on; so it ends with the last byte that is
// needed.
template <class Words>
void copyShifted(ConstBytes in, int inPhase, Bytes out) {
    Words low;
    Words high;
    std::memcpy(&low, in, sizeof low);
    std::memcpy(&high, in + 1, sizeof high);
    Words const words = low >> inPhase | high << (8 - inPhase);
    std::memcpy(out, &words, sizeof words);
}

void copyShiftedWords(ConstBytes in, int inPhase, Bytes out, std::ptrdiff_t words) {
    std::ptrdiff_t k = 0;
    for (; k + 8 <= words; k += 8) {
        copyShifted<TwoWords>(in + 8 * k, inPhase, out + 8 * k);
        copyShifted<TwoWords>(in + 8 * k + 16, inPhase, out + 8 * k + 16);
        copyShifted<TwoWords>(in + 8 * k + 32, inPhase, out + 8 * k + 32);
        copyShifted<TwoWords>(in + 8 * k + 48, inPhase, out + 8 * k + 48);
    }
    for (; k < words; ++k) {
        copyShifted<Word>(in + 8 * k, inPhase, out + 8 * k);
    }
}

// Buffers that do not overlap. Brings `out` to a byte's border, then moves whole bytes, then the rest.
void copyApart(ConstBytes in, std::ptrdiff_t inBit, Bytes out, std::ptrdiff_t outBit, std::ptrdiff_t count) {
    auto const advance = [&](std::ptrdiff_t moved) {
        inBit += moved;
        outBit += moved;
        count -= moved;
    };
    if (outBit % 8 != 0) {
        int const head = static_cast<int>(std::min(count, 8 - outBit % 8));
        copyWithinByte(in, inBit, out, outBit, head);
        advance(head);
    }
    if (inBit % 8 == 0) {
        std::memcpy(out + outBit / 8, in + inBit / 8, static_cast<std::size_t>(count / 8));
        advance(count / 8 * 8);
    } else {
        copyShiftedWords(in + inBit / 8, static_cast<int>(inBit % 8), out + outBit / 8, count / 64);
        advance(count / 64 * 64);
    }
    while (count > 0) {
        int const rest = static_cast<int>(std::min<std::ptrdiff_t>(count, 8));
        copyWithinByte(in, inBit, out, outBit, rest);
        advance(rest);
    }
}

void fillBits(Bytes out, std::ptrdiff_t outBit, bool bit, std::ptrdiff_t count) {
    unsigned const byte = bit ? 0xff : 0;
    if (outBit % 8 != 0) {
        int const head = static_cast<int>(std::min(count, 8 - outBit % 8));
        writeWithinByte(out, outBit, byte, head);
        outBit += head;
        count -= head;
    }
    std::memset(out + outBit / 8, static_cast<int>(byte), static_cast<std::size_t>(count / 8));
    if (count % 8 != 0) {
        writeWithinByte(out, outBit + count / 8 * 8, byte, static_cast<int>(count % 8));
    }
}

// Whether two runs of `count` > 0 bits share a byte.
bool shareBytes(ConstBytes in, std::ptrdiff_t inBit, ConstBytes out, std::ptrdiff_t outBit, std::ptrdiff_t count) {
    auto const address = [](ConstBytes base, std::ptrdiff_t bit) {
        return reinterpret_cast<std::uintptr_t>(base + bit / 8);
    };
    return address(in, inBit) <= address(out, outBit + count - 1) &&
           address(out, outBit) <= address(in, inBit + count - 1);
}

}  // namespace

std::type_info const& Int1CopyConverter::getInputType() const {
    return typeid(Int1);
}

std::type_info const& Int1CopyConverter::getOutputType() const {
    return typeid(Int1);
}

void Int1CopyConverter::convert(void const* in, void* out) const {
    copyBit(static_cast<ConstBytes>(in), 0, static_cast<Bytes>(out), 0);
}

void Int1CopyConverter::convertStrided(
    void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const {
    auto const* const source = static_cast<ConstBytes>(in);
    auto* const destination = static_cast<Bytes>(out);
    if (count > 0 && inStride == 0 && outStride == 1) {
        bool const bit = (source[inIndex / 8] >> (inIndex % 8) & 1) != 0;
        fillBits(destination, outIndex, bit, count);
        return;
    }
    for (std::ptrdiff_t k = 0; k < count; ++k) {
        copyBit(source, inIndex + k * inStride, destination, outIndex + k * outStride);
    }
}

void Int1CopyConverter::convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const {
    auto const* const source = static_cast<ConstBytes>(in);
    auto* const destination = static_cast<Bytes>(out);
    if (count <= 0) {
        return;
    }
    if (shareBytes(source, inIndex, destination, outIndex, count)) {
        // What earlier bits wrote, later ones read.
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    } else {
        copyApart(source, inIndex, destination, outIndex, count);
    }
}

}  // namespace Quorvel::Dravik::Adt::Converters
