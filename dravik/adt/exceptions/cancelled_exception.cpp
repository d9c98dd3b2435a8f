// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cancelled_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {

CancelledException::CancelledException(std::string const& text) : SimpleException(text) {}

ICloneableException::ConstPtr CancelledException::clone() const {
    return boost::make_shared<CancelledException>(*this);
}

void CancelledException::throwClone() const {
    throw CancelledException(*this);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
