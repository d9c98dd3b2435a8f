// SPDX-License-Identifier: Apache-2.0
#pragma once

// NumberConverter: what the families of converters between sample types share. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/conversion.h"
#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// A Conversion from S to D behind the interface of converters. The families derive from it to say which one it is.
template <Sample S, Sample D>
class NumberConverter : public IValueConverter {
  public:
    std::type_info const& getInputType() const final { return typeid(S); }
    std::type_info const& getOutputType() const final { return typeid(D); }
    void convert(void const* in, void* out) const final { conversion_.one(in, out); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const final {
        conversion_.strided(in, inIndex, inStride, out, outIndex, outStride, count);
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const final {
        conversion_.contiguous(in, inIndex, out, outIndex, count);
    }

  protected:
    NumberConverter() noexcept : conversion_(sampleTypeOf<S>(), sampleTypeOf<D>()) {}
    explicit NumberConverter(ScaleOffset const& transform) noexcept
        : conversion_(sampleTypeOf<S>(), sampleTypeOf<D>(), transform) {}

  private:
    Conversion conversion_;
};

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
