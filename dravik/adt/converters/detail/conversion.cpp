// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/detail/conversion.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Quorvel::Dravik::Adt::Converters::Detail {

namespace {

constexpr int kBytesPerSample[kSampleTypeCount] = {1, 1, 2, 2, 4, 4, 4, 8, 8};

// Strided runs pass through blocks of so many values: both blocks stay in the first cache.
constexpr int kBlockValues = 256;
constexpr int kBlockBytes = kBlockValues * 8;

// Four at a time: compilers make one vector of them before they write.
constexpr int kTogether = 4;

template <class Word>
void gather(unsigned char const* in, std::ptrdiff_t strideBytes, unsigned char* block, int count) {
    int k = 0;
    for (; k + kTogether <= count; k += kTogether) {
        Word words[kTogether];
        for (int j = 0; j < kTogether; ++j) {
            std::memcpy(&words[j], in + (k + j) * strideBytes, sizeof(Word));
        }
        std::memcpy(block + k * std::ptrdiff_t{sizeof(Word)}, words, sizeof(words));
    }
    for (; k < count; ++k) {
        std::memcpy(block + k * std::ptrdiff_t{sizeof(Word)}, in + k * strideBytes, sizeof(Word));
    }
}

template <class Word>
void scatter(unsigned char const* block, unsigned char* out, std::ptrdiff_t strideBytes, int count) {
    int k = 0;
    for (; k + kTogether <= count; k += kTogether) {
        Word words[kTogether];
        std::memcpy(words, block + k * std::ptrdiff_t{sizeof(Word)}, sizeof(words));
        for (int j = 0; j < kTogether; ++j) {
            std::memcpy(out + (k + j) * strideBytes, &words[j], sizeof(Word));
        }
    }
    for (; k < count; ++k) {
        std::memcpy(out + k * strideBytes, block + k * std::ptrdiff_t{sizeof(Word)}, sizeof(Word));
    }
}

using Gather = decltype(&gather<std::uint8_t>);
using Scatter = decltype(&scatter<std::uint8_t>);
constexpr Gather kGathers[] = {
    gather<std::uint8_t>, gather<std::uint16_t>, gather<std::uint32_t>, gather<std::uint64_t>};
constexpr Scatter kScatters[] = {
    scatter<std::uint8_t>, scatter<std::uint16_t>, scatter<std::uint32_t>, scatter<std::uint64_t>};

// 0 for 1 byte, 1 for 2, 2 for 4, 3 for 8.
std::size_t logOf(int bytes) {
    return static_cast<std::size_t>(std::countr_zero(static_cast<unsigned>(bytes)));
}

InstructionSet const& fastestSet() {
    return *instructionSets().front();
}

}  // namespace

// One buffer of a strided run. `Conversion` reads through const pointers only.
class Conversion::Side {
  public:
    Side(void const* base, int index, int stride, int valueBytes)
        : first_(static_cast<unsigned char const*>(base) + std::ptrdiff_t{index} * valueBytes),
          valueBytes_(valueBytes),
          strideBytes_(std::ptrdiff_t{stride} * valueBytes) {}

    unsigned char const* at(std::ptrdiff_t k) const { return first_ + k * strideBytes_; }
    unsigned char* writableAt(std::ptrdiff_t k) const { return const_cast<unsigned char*>(at(k)); }
    std::ptrdiff_t strideBytes() const { return strideBytes_; }
    bool isContiguous() const { return strideBytes_ == valueBytes_; }

    // Whether the bytes between the outermost values of two runs of `count` > 0 have some in common.
    bool overlaps(Side const& other, int count) const {
        return lowest(count) < other.beyond(count) && other.lowest(count) < beyond(count);
    }

  private:
    std::uintptr_t lowest(int count) const { return address(at(strideBytes_ < 0 ? count - 1 : 0)); }
    std::uintptr_t beyond(int count) const {
        return address(at(strideBytes_ < 0 ? 0 : count - 1)) + static_cast<std::uintptr_t>(valueBytes_);
    }
    static std::uintptr_t address(unsigned char const* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

    unsigned char const* first_;
    int valueBytes_;
    std::ptrdiff_t strideBytes_;
};

Conversion::Conversion(SampleType in, SampleType out) noexcept
    : Conversion(
          fastestSet().basic(in, out), referenceSet().basic(in, out), kBytesPerSample[static_cast<int>(in)],
          kBytesPerSample[static_cast<int>(out)]) {}

Conversion::Conversion(RunFunction run, RunFunction reference, int inBytes, int outBytes) noexcept
    : run_(run != nullptr ? run : reference), one_(reference), inBytes_(inBytes), outBytes_(outBytes) {}

Conversion Conversion::Swap(int bytesPerValue) noexcept {
    std::size_t const word = logOf(bytesPerValue) - 1;
    return {fastestSet().swap[word], referenceSet().swap[word], bytesPerValue, bytesPerValue};
}

Conversion::Conversion(SampleType in, SampleType out, ScaleOffset const& transform) noexcept
    : one_(referenceSet().scaled(in, out)),
      linear_{static_cast<float>(transform.getScale()), static_cast<float>(transform.getOffset())},
      inBytes_(kBytesPerSample[static_cast<int>(in)]),
      outBytes_(kBytesPerSample[static_cast<int>(out)]) {
    run_ = scaledRun(fastestSet(), in, out, linear_);
}

void Conversion::one(void const* in, void* out) const {
    one_(in, out, 1, linear_);
}

void Conversion::contiguous(void const* in, int inIndex, void* out, int outIndex, int count) const {
    if (count <= 0) {
        return;
    }
    Side const source(in, inIndex, 1, inBytes_);
    Side const destination(out, outIndex, 1, outBytes_);
    // Writing behind the reader is harmless: what a write covers has been read already.
    bool const writesBehind = destination.at(0) <= source.at(0) && outBytes_ <= inBytes_;
    if (writesBehind || !source.overlaps(destination, count)) {
        run_(source.at(0), destination.writableAt(0), count, linear_);
    } else {
        inTurn(source, destination, count);
    }
}

void Conversion::strided(
    void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const {
    if (count <= 0) {
        return;
    }
    Side const source(in, inIndex, inStride, inBytes_);
    Side const destination(out, outIndex, outStride, outBytes_);
    if (source.overlaps(destination, count)) {
        inTurn(source, destination, count);
    } else {
        staged(source, destination, count);
    }
}

void Conversion::inTurn(Side const& in, Side const& out, int count) const {
    for (int k = 0; k < count; ++k) {
        one(in.at(k), out.writableAt(k));
    }
}

void Conversion::staged(Side const& in, Side const& out, int count) const {
    alignas(64) unsigned char inBlock[kBlockBytes];
    alignas(64) unsigned char outBlock[kBlockBytes];
    for (std::ptrdiff_t done = 0; done < count; done += kBlockValues) {
        int const length = static_cast<int>(std::min<std::ptrdiff_t>(count - done, kBlockValues));
        unsigned char const* source = in.at(done);
        if (!in.isContiguous()) {
            kGathers[logOf(inBytes_)](source, in.strideBytes(), inBlock, length);
            source = inBlock;
        }
        unsigned char* const destination = out.isContiguous() ? out.writableAt(done) : outBlock;
        run_(source, destination, length, linear_);
        if (!out.isContiguous()) {
            kScatters[logOf(outBytes_)](outBlock, out.writableAt(done), out.strideBytes(), length);
        }
    }
}

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
