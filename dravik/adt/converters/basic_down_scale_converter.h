#pragma once

// BasicDownScaleConverter: narrowing of samples without scaling. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/conversion.h"
#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Rounds a float to the nearest 32-bit integer, ties to even, then saturates at the limits of D; integers are only
/// saturated.
///
/// A float without such an integer (NaN, infinities, magnitudes from 2^31 on) counts as -2^31, also above: it becomes 0
/// where D is unsigned and the lowest D elsewhere.
template <class S, class D>
class BasicDownScaleConverter final : public IValueConverter {
    static_assert(Detail::narrows(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such narrowing.");

  public:
    std::type_info const& getInputType() const override { return typeid(S); }
    std::type_info const& getOutputType() const override { return typeid(D); }
    void convert(void const* in, void* out) const override { conversion_.one(in, out); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        conversion_.strided(in, inIndex, inStride, out, outIndex, outStride, count);
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        conversion_.contiguous(in, inIndex, out, outIndex, count);
    }

  private:
    Detail::Conversion conversion_{Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()};
};

}  // namespace Quorvel::Dravik::Adt::Converters
