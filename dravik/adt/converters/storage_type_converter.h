// SPDX-License-Identifier: Apache-2.0
#pragma once

// StorageTypeConverter: between the number types of files and float or double. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/number_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Converts S to the nearest value of D, to the even one on a tie. To an integer, what lies beyond its range gives the
/// nearer end of it, and a NaN 0; to float, infinity. One of the two is double, or float with unsigned int or
/// std::int64_t.
template <class S, class D>
class StorageTypeConverter final : public Detail::NumberConverter<S, D> {
    static_assert(
        Detail::convertsStorage(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such conversion.");
};

}  // namespace Quorvel::Dravik::Adt::Converters
