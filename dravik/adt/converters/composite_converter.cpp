// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/composite_converter.h"

#include "dravik/adt/converters/detail/long_run.h"
#include "dravik/adt/converters/type_register.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::Converters {

using ChainedConverter = CompositeConverter::ChainedConverter;
using ConverterPtr = IValueConverter::ConstPtr;

namespace {

constexpr int kChunkValues = 1024;

// The contiguous operation where the outer side is contiguous, whatever the inner one does with strides.
void fromOuter(IValueConverter const& converter, void const* in, int index, int stride, void* scratch, int count) {
    if (stride == 1) {
        converter.convertContiguous(in, index, scratch, 0, count);
    } else {
        converter.convertStrided(in, index, stride, scratch, 0, 1, count);
    }
}

void toOuter(IValueConverter const& converter, void const* scratch, void* out, int index, int stride, int count) {
    if (stride == 1) {
        converter.convertContiguous(scratch, 0, out, index, count);
    } else {
        converter.convertStrided(scratch, 0, 1, out, index, stride, count);
    }
}

}  // namespace

// Room for the intermediate values of one call.
class ChainedConverter::Scratch {
  public:
    Scratch(int values, int bitsPerValue) {
        std::size_t const bytes =
            (static_cast<std::size_t>(std::max(values, 0)) * static_cast<std::size_t>(bitsPerValue) + 7) / 8;
        if (bytes > sizeof(onStack_)) {
            onHeap_.reset(new unsigned char[bytes]);
        }
    }

    void* data() { return onHeap_ ? onHeap_.get() : onStack_; }

  private:
    std::unique_ptr<unsigned char[]> onHeap_;
    alignas(64) unsigned char onStack_[kChunkValues * sizeof(std::uint64_t)];
};

ChainedConverter::ChainedConverter(ConstPtr const& first, ConstPtr const& second, ConstPtr const& inverse)
    : first_(first), second_(second), inverse_(inverse) {
    if (!first) {
        throw std::invalid_argument("[ChainedConverter] conv1 is null");
    }
    if (!second) {
        throw std::invalid_argument("[ChainedConverter] conv2 is null");
    }
    if (first->getOutputType() != second->getInputType()) {
        throw std::invalid_argument("[ChainedConverter] conv2's input is not compatible with conv1's output");
    }
    if (inverse &&
        (inverse->getOutputType() != second->getInputType() || inverse->getInputType() != second->getOutputType())) {
        throw std::invalid_argument("[ChainedConverter] inv_conv2 is not compatible with conv2 value types");
    }
    intermediateBits_ = TypeRegister::sizeofTypeInBits(first->getOutputType());
}

std::type_info const& ChainedConverter::getInputType() const {
    return first_->getInputType();
}

std::type_info const& ChainedConverter::getOutputType() const {
    return second_->getOutputType();
}

void ChainedConverter::convert(void const* in, void* out) const {
    Scratch scratch(1, intermediateBits_);
    if (inverse_) {
        inverse_->convert(out, scratch.data());
    }
    first_->convert(in, scratch.data());
    second_->convert(scratch.data(), out);
}

void ChainedConverter::convertStrided(
    void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const {
    Detail::LongRun<void const> const input(in, inIndex, inStride, count, getInputType());
    Detail::LongRun<void> const output(out, outIndex, outStride, count, getOutputType());
    int const longest = std::min({kChunkValues, input.longestPart(), output.longestPart()});
    Scratch scratch(std::min(count, longest), intermediateBits_);
    int done = 0;
    do {
        int const chunk = std::min(count - done, longest);
        auto const from = input.part(done, chunk);
        auto const to = output.part(done, chunk);
        if (inverse_) {
            fromOuter(*inverse_, to.base, to.index, outStride, scratch.data(), chunk);
        }
        fromOuter(*first_, from.base, from.index, inStride, scratch.data(), chunk);
        toOuter(*second_, scratch.data(), to.base, to.index, outStride, chunk);
        done += chunk;
    } while (done < count);
}

void ChainedConverter::convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const {
    convertStrided(in, inIndex, 1, out, outIndex, 1, count);
}

ConverterPtr CompositeConverter::getCompositeConverter(
    ConverterPtr const& first, ConverterPtr const& second, ConverterPtr const& inverse) {
    return boost::make_shared<ChainedConverter>(first, second, inverse);
}

}  // namespace Quorvel::Dravik::Adt::Converters
