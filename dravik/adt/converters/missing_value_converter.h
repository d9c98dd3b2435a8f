// SPDX-License-Identifier: Apache-2.0
#pragma once

// MissingValueConverter: samples that mean "missing" as not-a-number, and back. Threads: never changes, share it
// freely.

#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Copies floats or doubles, with one value in place of all that mean the same.
class MissingValueConverter {
  public:
    /// From `type`, float or double, to itself: not-a-number in place of every value from `lowest` to `highest`, both
    /// rounded to the type.
    /// @throws std::invalid_argument for another type, and for a range that is empty or ends with not-a-number
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr toNotANumber(
        std::type_info const& type, double lowest, double highest);

    /// The way back: `value`, rounded to the type, in place of every not-a-number.
    /// @throws std::invalid_argument for another type than float and double
    DRAVIK_ADT_EXPORT static IValueConverter::ConstPtr fromNotANumber(std::type_info const& type, double value);
};

}  // namespace Quorvel::Dravik::Adt::Converters
