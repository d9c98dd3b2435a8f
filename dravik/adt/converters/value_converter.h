// SPDX-License-Identifier: Apache-2.0
#pragma once

// IValueConverter: turns samples of one type into samples of another. Threads: see the interface.

#include "dravik/adt/export.h"

#include <boost/shared_ptr.hpp>

#include <typeinfo>

namespace Quorvel::Dravik::Adt {

/// A conversion of sample values, one at a time or in runs.
///
/// Unit: every index, stride and count is in values of the side that it speaks of, so that one-bit values (Int1) can be
/// addressed; never bytes. Base pointers need no alignment. Values are converted in turn, the first one first, which
/// shows where the two buffers overlap. A count of 0 or less converts nothing. No argument is checked.
/// @threads a converter never changes: any number of threads may use one at a time
class DRAVIK_ADT_EXPORT IValueConverter {
  public:
    /// A converter: owned together with everybody who copies the pointer, never changed.
    using ConstPtr = boost::shared_ptr<IValueConverter const>;

    virtual ~IValueConverter();

    /// The type of the values read.
    virtual std::type_info const& getInputType() const = 0;

    /// The type of the values written.
    virtual std::type_info const& getOutputType() const = 0;

    /// Converts the value at `in` to the one at `out`.
    virtual void convert(void const* in, void* out) const = 0;

    /// Converts `count` values, the k-th from position inIndex + k * inStride of `in` to position
    /// outIndex + k * outStride of `out`. Strides may be 0 or negative.
    /// @pre no position is negative
    virtual void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const = 0;

    /// The same with both strides 1.
    virtual void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const = 0;

  protected:
    IValueConverter() = default;
    IValueConverter(IValueConverter const&) = default;
    IValueConverter& operator=(IValueConverter const&) = default;
};

}  // namespace Quorvel::Dravik::Adt
