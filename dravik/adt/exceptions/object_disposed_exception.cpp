// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/object_disposed_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {

ObjectDisposedException::ObjectDisposedException(std::string const& text)
    : SimpleException("Use of disposed object: " + text) {}

ICloneableException::ConstPtr ObjectDisposedException::clone() const {
    return boost::make_shared<ObjectDisposedException>(*this);
}

void ObjectDisposedException::throwClone() const {
    throw ObjectDisposedException(*this);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
