#pragma once

// PureTypeConverter: widening of samples. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/conversion.h"
#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Plain conversion of S to a D that holds the range of S. Exact, but for integers beyond 2^24 in float, which go to
/// the nearest one, to the even one on a tie.
template <class S, class D>
class PureTypeConverter final : public IValueConverter {
    static_assert(Detail::widens(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such widening.");

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
