// SPDX-License-Identifier: Apache-2.0
#pragma once

// Int1CopyConverter: copies packed bits. Threads: never changes, share it freely.

#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Copies one-bit values (Int1), whole words at a time where the buffers do not overlap.
///
/// Only the bits written change: the others of their bytes stay, and convert() copies bit 0 alone. An input stride of 0
/// with an output stride of 1 fills the run with the one bit, read first.
class DRAVIK_ADT_EXPORT Int1CopyConverter final : public IValueConverter {
  public:
    std::type_info const& getInputType() const override;
    std::type_info const& getOutputType() const override;
    void convert(void const* in, void* out) const override;
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override;
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override;
};

}  // namespace Quorvel::Dravik::Adt::Converters
