// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/not_implemented_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {

NotImplementedException::NotImplementedException(std::string const& text)
    : SimpleException("Not implemented: " + text) {}

ICloneableException::ConstPtr NotImplementedException::clone() const {
    return boost::make_shared<NotImplementedException>(*this);
}

void NotImplementedException::throwClone() const {
    throw NotImplementedException(*this);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
