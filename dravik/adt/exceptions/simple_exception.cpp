// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/simple_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

SimpleException::SimpleException(std::string const& message) : CloneableExceptionBase(message) {}

SimpleException::~SimpleException() = default;

}  // namespace Quorvel::Dravik::Adt::Exceptions
