// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/simple_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

SimpleException::SimpleException(std::string const& message) : CloneableExceptionBase(message) {}
SimpleException::~SimpleException() = default;

NotImplementedException::NotImplementedException(std::string const& text) : Cloneable("Not implemented: " + text) {}
NotImplementedException::~NotImplementedException() = default;

NotSupportedException::NotSupportedException(std::string const& text) : Cloneable("Unsupported: " + text) {}
NotSupportedException::NotSupportedException(std::string const& where, std::string const& text)
    : Cloneable("[" + where + "] Unsupported: " + text) {}
NotSupportedException::~NotSupportedException() = default;

ObjectDisposedException::ObjectDisposedException(std::string const& text)
    : Cloneable("Use of disposed object: " + text) {}
ObjectDisposedException::~ObjectDisposedException() = default;

}  // namespace Quorvel::Dravik::Adt::Exceptions
