// SPDX-License-Identifier: Apache-2.0
#pragma once

// CompositeConverter: two converters in a row. Threads: a chain never changes, share it as freely as its converters.

#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Makes one converter out of two that pass intermediate values from the first to the second.
class CompositeConverter {
  public:
    /// Runs a first converter into a scratch buffer of intermediate values, and a second one from there.
    ///
    /// With an inverse of the second converter the intermediate values start as what the output holds, for first
    /// converters that write only a part of them. Runs pass in chunks of at most 1024 values, contiguous sides through
    /// the contiguous operations. The scratch belongs to the call: on the stack up to 1024 values of 64 bits, on the
    /// heap beyond. A count of 0 or less is handed on once. Where positions inside a run leave [0, 2^31), the parts get
    /// bases nearer by and are shorter where strides are long; then TypeRegister has to know the outer type, or the run
    /// throws std::runtime_error before anything is converted.
    class DRAVIK_ADT_EXPORT ChainedConverter final : public IValueConverter {
      public:
        /// `inverse` may be null. Shares all three.
        /// @throws std::invalid_argument for a null converter, and where the value types do not meet
        /// @throws std::runtime_error where TypeRegister does not know the intermediate type
        ChainedConverter(ConstPtr const& first, ConstPtr const& second, ConstPtr const& inverse);

        std::type_info const& getInputType() const override;
        std::type_info const& getOutputType() const override;

        /// @throws std::bad_alloc where the scratch does not fit the stack, as the two below
        void convert(void const* in, void* out) const override;
        void convertStrided(
            void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride,
            int count) const override;
        void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override;

      private:
        class Scratch;

        ConstPtr first_;
        ConstPtr second_;
        ConstPtr inverse_;
        int intermediateBits_;
    };

    /// A new ChainedConverter.
    /// @throws as the constructor of ChainedConverter
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr getCompositeConverter(
        IValueConverter::ConstPtr const& first, IValueConverter::ConstPtr const& second,
        IValueConverter::ConstPtr const& inverse);
};

}  // namespace Quorvel::Dravik::Adt::Converters
