// SPDX-License-Identifier: Apache-2.0
#pragma once

// Conversion: what the converters between number types share. A plain value that owns nothing. Threads: as `int`.

#include "dravik/adt/converters/detail/run_kernels.h"
#include "dravik/adt/converters/scale_offset.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// The conversion of one pair of sample types, bound to the fastest code that this processor can run.
///
/// Indices, strides and counts as in IValueConverter.
class Conversion {
  public:
    /// The unscaled conversion.
    /// @pre converts(in, out)
    DRAVIK_ADT_EXPORT Conversion(SampleType in, SampleType out) noexcept;

    /// The scaled conversion.
    /// @pre scales(in, out)
    DRAVIK_ADT_EXPORT Conversion(SampleType in, SampleType out, ScaleOffset const& transform) noexcept;

    /// Turns round the bytes of values of 2, 4 or 8 bytes.
    static Conversion Swap(int bytesPerValue) noexcept;

    DRAVIK_ADT_EXPORT void one(void const* in, void* out) const;
    DRAVIK_ADT_EXPORT void contiguous(void const* in, int inIndex, void* out, int outIndex, int count) const;
    DRAVIK_ADT_EXPORT void strided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const;

  private:
    class Side;

    Conversion(RunFunction run, RunFunction reference, int inBytes, int outBytes) noexcept;

    void inTurn(Side const& in, Side const& out, int count) const;
    void staged(Side const& in, Side const& out, int count) const;

    RunFunction run_;  // whole runs, fast
    RunFunction one_;  // the reference, for single values and for buffers that overlap
    Linear linear_{};  // of scaled conversions alone
    int inBytes_;      // per value
    int outBytes_;     // per value
};

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
