// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/unknown_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {

UnknownException::UnknownException()
    : ClonedException(typeid(void), "Caught exception of unknown type.", /*typeNameInFront=*/false) {}

ICloneableException::ConstPtr UnknownException::clone() const {
    return boost::make_shared<UnknownException>(*this);
}

void UnknownException::throwClone() const {
    throw UnknownException(*this);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
