#pragma once

// DownScaleConverter: scaling of samples to an integer type. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/conversion.h"
#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// scale * x + offset as ScaleOffset::convertFloat computes it, then rounded and saturated as in
/// BasicDownScaleConverter.
template <class S, class D>
class DownScaleConverter final : public IValueConverter {
    static_assert(
        Detail::scalesToInteger(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such scaling.");

  public:
    explicit DownScaleConverter(ScaleOffset const& transform) noexcept
        : conversion_(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>(), transform) {}

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
    Detail::Conversion conversion_;
};

}  // namespace Quorvel::Dravik::Adt::Converters
