// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt {

IValueConverter::~IValueConverter() = default;

}  // namespace Quorvel::Dravik::Adt
