// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cloned_str_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {

ClonedStrException::ClonedStrException(char const* text)
    : ClonedException(typeid(char*), text == nullptr ? "" : text, /*typeNameInFront=*/false) {}

ICloneableException::ConstPtr ClonedStrException::clone() const {
    return boost::make_shared<ClonedStrException>(*this);
}

void ClonedStrException::throwClone() const {
    throw ClonedStrException(*this);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
