// SPDX-License-Identifier: Apache-2.0
#pragma once

// What every call on regions asks before it asks the accessor. Threads: any.

#include "dravik/adt/converters/value_converter.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"

#include <sstream>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// Throws an Error with the parts, printed one after the other.
template <class Error, class... Parts>
[[noreturn]] void refuseRegion(Parts const&... parts) {
    std::ostringstream text;
    text << "[BulkView] Invalid region: ";
    (text << ... << parts);
    throw Error(text.str());
}

/// @throws std::invalid_argument for samples of neither 1 bit nor whole bytes
void requireBitSize(int bitSize);

/// @throws std::invalid_argument for an array without memory, and as requireBitSize
void requireMemory(char const* data, int bitSize);

/// @throws std::invalid_argument where counts and sizes differ, for a step of 0 with more than one index, and as
/// requireMemory
void requireFit(ExtentK<4, int> const& region, ArrayRef<4> const& array);

/// @pre the region is not empty
/// @throws std::out_of_range for a region that reaches outside an accessor of `size`
void requireInside(ExtentK<4, int> const& region, FixedVector<4, int> const& size);

/// The converter of a move from samples of `from` to `to`, either `void` where unknown: `given`, if not null, else the
/// one that the types call for, null where they are the same.
/// @throws std::invalid_argument for a given one that does not fit; Exceptions::NotImplementedException
IValueConverter::ConstPtr converterOf(
    std::type_info const& from, std::type_info const& to, IValueConverter::ConstPtr const& given);

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
