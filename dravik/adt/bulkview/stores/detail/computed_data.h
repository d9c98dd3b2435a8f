// SPDX-License-Identifier: Apache-2.0
#pragma once

// What Openers makes of definitions that need no file. Threads: any.

#include "dravik/adt/bulkdef/source/constant_def.h"
#include "dravik/adt/bulkdef/transform/concat_def.h"
#include "dravik/adt/bulkdef/transform/missing_value_def.h"
#include "dravik/adt/bulkview/stores/openers.h"

#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// @throws std::invalid_argument for a sample type without a name and a value that it does not hold
OpenedData constantData(BulkDef::Source::ConstantDef const& def);

/// Axes and values of the first input; along the axis of the join the coordinates of all, where all have some.
/// @throws as ConcatFilter::Apply
OpenedData joinedData(BulkDef::Transform::ConcatDef const& def, std::vector<OpenedData> inputs);

/// As floats, where the input has neither floats nor doubles.
/// @throws std::invalid_argument for samples of an unknown type; as the converters of the sample type
OpenedData dataWithoutMissing(BulkDef::Transform::MissingValueDef const& def, OpenedData input);

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
