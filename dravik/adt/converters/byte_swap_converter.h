// SPDX-License-Identifier: Apache-2.0
#pragma once

// ByteSwapConverter: samples of the other byte order. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/conversion.h"
#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Turns round the bytes of values of 16, 32 or 64 bits, from a foreign byte order to this machine's and back. Both
/// types are the one that it is made for.
class DRAVIK_ADT_EXPORT ByteSwapConverter final : public IValueConverter {
  public:
    /// @throws std::invalid_argument for a type of another size
    /// @throws std::runtime_error for a type that TypeRegister does not know
    explicit ByteSwapConverter(std::type_info const& type);

    /// The swap as a first step of `then`, which takes values in this machine's order: one pass over a run.
    /// @throws std::invalid_argument for a null converter; else as the constructor, of the type that `then` takes
    static ConstPtr Before(ConstPtr const& then);
    /// The swap as the last step of `first`.
    /// @throws std::invalid_argument for a null converter; else as the constructor, of the type that `first` gives
    static ConstPtr After(ConstPtr const& first);

    std::type_info const& getInputType() const override;
    std::type_info const& getOutputType() const override;
    void convert(void const* in, void* out) const override;
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override;
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override;

  private:
    std::type_info const* type_;
    Detail::Conversion conversion_;
};

}  // namespace Quorvel::Dravik::Adt::Converters
