// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/copy_converter.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Quorvel::Dravik::Adt::Converters {

namespace {

template <std::size_t kBytes>
struct WordOf;
template <>
struct WordOf<1> {
    using Type = std::uint8_t;
};
template <>
struct WordOf<2> {
    using Type = std::uint16_t;
};
template <>
struct WordOf<4> {
    using Type = std::uint32_t;
};
template <>
struct WordOf<8> {
    using Type = std::uint64_t;
};

// Values travel as integers, so that not a bit of a NaN changes, and through memcpy, so that no base has to be aligned.
template <class Word>
Word load(unsigned char const* from) {
    Word word;
    std::memcpy(&word, from, sizeof(Word));
    return word;
}

template <class Word>
void fill(unsigned char* out, Word word, int count) {
    if constexpr (sizeof(Word) == 1) {
        std::memset(out, word, static_cast<std::size_t>(count));
    } else {
        for (std::ptrdiff_t k = 0; k < count; ++k) {
            std::memcpy(out + k * std::ptrdiff_t{sizeof(Word)}, &word, sizeof(Word));
        }
    }
}

template <class Word>
void copyInTurn(
    unsigned char const* in, std::ptrdiff_t inStride, unsigned char* out, std::ptrdiff_t outStride, int count) {
    for (std::ptrdiff_t k = 0; k < count; ++k) {
        Word const word = load<Word>(in + k * inStride);
        std::memcpy(out + k * outStride, &word, sizeof(Word));
    }
}

}  // namespace

template <class T>
std::type_info const& CopyConverter<T>::getInputType() const {
    return typeid(T);
}

template <class T>
std::type_info const& CopyConverter<T>::getOutputType() const {
    return typeid(T);
}

template <class T>
void CopyConverter<T>::convert(void const* in, void* out) const {
    std::memmove(out, in, sizeof(T));
}

template <class T>
void CopyConverter<T>::convertStrided(
    void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const {
    using Word = typename WordOf<sizeof(T)>::Type;
    constexpr std::ptrdiff_t kBytes = sizeof(T);
    auto const* const source = static_cast<unsigned char const*>(in) + inIndex * kBytes;
    auto* const destination = static_cast<unsigned char*>(out) + outIndex * kBytes;
    if (count <= 0) {
        return;
    }
    if (inStride == 0 && outStride == 1) {
        fill(destination, load<Word>(source), count);
    } else if (outStride == 1) {
        // The same loop with a constant stride on the side that is written: compilers make better code of it.
        copyInTurn<Word>(source, inStride * kBytes, destination, kBytes, count);
    } else {
        copyInTurn<Word>(source, inStride * kBytes, destination, outStride * kBytes, count);
    }
}

template <class T>
void CopyConverter<T>::convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const {
    constexpr std::ptrdiff_t kBytes = sizeof(T);
    if (count > 0) {
        std::memmove(
            static_cast<unsigned char*>(out) + outIndex * kBytes,
            static_cast<unsigned char const*>(in) + inIndex * kBytes, static_cast<std::size_t>(count * kBytes));
    }
}

template class CopyConverter<char>;
template class CopyConverter<short>;
template class CopyConverter<float>;
template class CopyConverter<double>;

}  // namespace Quorvel::Dravik::Adt::Converters
