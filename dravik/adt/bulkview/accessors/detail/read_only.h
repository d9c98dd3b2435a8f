// SPDX-License-Identifier: Apache-2.0
#pragma once

// What accessors without storage check. Threads: any.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/core/fixed_vector.h"

namespace Quorvel::Dravik::Adt::BulkView::Accessors::Detail {

/// @throws std::invalid_argument, in the name of `who`, unless `size` is positive on every axis
void requireSize(char const* who, FixedVector<4, int> const& size);

/// @throws Exceptions::NotSupportedException, in the name of `who`, unless `access` only reads or is none
void refuseWriting(char const* who, AdtEnums::Access access);

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors::Detail
