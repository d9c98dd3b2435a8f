// SPDX-License-Identifier: Apache-2.0
#pragma once

// CopyConverter: copies values of 1, 2, 4 or 8 bytes, whatever they mean. Threads: never changes, share it freely.

#include "dravik/adt/converters/value_converter.h"

#include <type_traits>

namespace Quorvel::Dravik::Adt::Converters {

/// Copies the bits of values as large as a T, one of char, short, float and double, and reports T as both types.
///
/// A contiguous run is copied as one block, also where the buffers overlap. A strided run copies one value after the
/// other, except for an input stride of 0 with an output stride of 1: then the one value, read first, fills the run.
template <class T>
class CopyConverter final : public IValueConverter {
    static_assert(
        std::is_same_v<T, char> || std::is_same_v<T, short> || std::is_same_v<T, float> || std::is_same_v<T, double>,
        "Copies go by size: T is one of char, short, float and double.");

  public:
    std::type_info const& getInputType() const override;
    std::type_info const& getOutputType() const override;
    void convert(void const* in, void* out) const override;
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override;
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override;
};

extern template class DRAVIK_ADT_EXPORT CopyConverter<char>;
extern template class DRAVIK_ADT_EXPORT CopyConverter<short>;
extern template class DRAVIK_ADT_EXPORT CopyConverter<float>;
extern template class DRAVIK_ADT_EXPORT CopyConverter<double>;

}  // namespace Quorvel::Dravik::Adt::Converters
