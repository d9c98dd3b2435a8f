#include "dravik/adt/converters/value_converter.h"

namespace Quorvel::Dravik::Adt {

IValueConverter::~IValueConverter() = default;

}  // namespace Quorvel::Dravik::Adt
