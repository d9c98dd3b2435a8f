// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a view shows where a block has no memory. Threads: any number.

#include "dravik/adt/export.h"

#include <limits>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// The one null value of a sample type: a quiet NaN where there is one, else 0.
template <class T>
DRAVIK_ADT_EXPORT T const& nullSample() noexcept {
    static T const value =
        std::numeric_limits<T>::has_quiet_NaN ? std::numeric_limits<T>::quiet_NaN() : static_cast<T>(0);
    return value;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
