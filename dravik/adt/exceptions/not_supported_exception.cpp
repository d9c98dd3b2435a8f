// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/not_supported_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {

NotSupportedException::NotSupportedException(std::string const& text) : SimpleException("Unsupported: " + text) {}

NotSupportedException::NotSupportedException(std::string const& where, std::string const& text)
    : SimpleException("[" + where + "] Unsupported: " + text) {}

ICloneableException::ConstPtr NotSupportedException::clone() const {
    return boost::make_shared<NotSupportedException>(*this);
}

void NotSupportedException::throwClone() const {
    throw NotSupportedException(*this);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
