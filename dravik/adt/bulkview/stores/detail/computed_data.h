// SPDX-License-Identifier: Apache-2.0
#pragma once

// What Openers makes of definitions that need no file. Threads: any.

#include "dravik/adt/bulkdef/source/constant_def.h"
#include "dravik/adt/bulkdef/transform/concat_def.h"
#include "dravik/adt/bulkdef/transform/missing_value_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
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

/// By the average box means, each coordinate that of its box; by decimation every so many-th sample.
/// @throws Exceptions::NotSupportedException for another method; as BoxMeanFilter::Apply
OpenedData coarserData(BulkDef::Transform::MultiresDef const& def, OpenedData input, Openers const& openers);

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
