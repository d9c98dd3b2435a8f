// SPDX-License-Identifier: Apache-2.0
#pragma once

// ValueConverterFactory: the only place where converters are chosen. Threads: any number may ask at a time.

#include "dravik/adt/converters/scale_offset.h"
#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Chooses converters by sample type: copies by size in bits, conversions among unsigned char, char, unsigned short,
/// short, int and float, with and without a linear transform on the way. Unsigned int and std::int64_t, which files
/// store, become float and double and the other way; double becomes each of the others and the other way; these
/// without a transform.
///
/// Conversions to a narrower type saturate; those from float round to the nearest integer, ties to even. Where a pair
/// lacks a form: float to int has neither, int to int none with scaling, bytes to unsigned short none without. A null
/// pointer means that no conversion is needed. Unit of sizes: bits.
class ValueConverterFactory {
  public:
    /// The converter that copies values of `bits` bits (1, 8, 16, 32 or 64), the same object on every call.
    /// @throws std::invalid_argument for another size up to 64
    /// @throws Exceptions::NotImplementedException for a size above 64 or below 0
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr getCopyConverter(int bits);

    /// The same converter by reference.
    /// @throws std::invalid_argument for every other size
    /// @lifetime the library's
    DRAVIK_ADT_EXPORT static IValueConverter const& getCopyConverterRef(int bits);

    /// A new converter from `in` to `out` without scaling; null where the two are equal.
    /// @throws Exceptions::NotImplementedException "Not implemented: ValueConverterFactory: Missing basic conversion …"
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr getTypeConverter(
        std::type_info const& in, std::type_info const& out);

    /// A new converter from `in` to `out` that applies `transform`. One that equals the identity, within the tolerance
    /// of ScaleOffset, is left out: then this is the conversion without scaling, and for equal types the copy converter
    /// where `copyIfSame` asks for one, else null.
    /// @throws Exceptions::NotImplementedException "Not implemented: ValueConverterFactory: Missing scaled conversion
    /// …"
    /// @throws std::runtime_error where `copyIfSame` meets a type that TypeRegister does not know
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr getTypeConverter(
        std::type_info const& in, std::type_info const& out, ScaleOffset const& transform, bool copyIfSame);

    /// A converter that accepts values of type `in`, converts them with `transform` to what `converter` reads, and runs
    /// `converter`; `converter` itself where no conversion is needed.
    /// @throws std::invalid_argument for a null converter; else as getTypeConverter
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr prependTypeConverter(
        std::type_info const& in, ScaleOffset const& transform, IValueConverter::ConstPtr const& converter);
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr prependTypeConverter(
        std::type_info const& in, IValueConverter::ConstPtr const& converter);

    /// A converter that runs `converter` and converts what it writes, with `transform`, to type `out`; `converter`
    /// itself where no conversion is needed. With `withInverse` the chain also carries the conversion back, which fails
    /// the call where only the way forward exists.
    /// @throws std::invalid_argument for a null converter; else as getTypeConverter
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr appendTypeConverter(
        IValueConverter::ConstPtr const& converter, bool withInverse, std::type_info const& out,
        ScaleOffset const& transform);
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr appendTypeConverter(
        IValueConverter::ConstPtr const& converter, bool withInverse, std::type_info const& out);

  private:
    [[noreturn]] static IValueConverter::ConstPtr makeCopyConverter(int bits);
};

}  // namespace Quorvel::Dravik::Adt::Converters
