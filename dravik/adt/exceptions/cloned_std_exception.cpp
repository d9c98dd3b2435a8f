// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cloned_std_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

std::string textOf(std::exception const& source) {
    char const* const text = source.what();
    return text == nullptr ? "" : text;
}

}  // namespace

ClonedStdException::ClonedStdException(std::exception const& source)
    : ClonedException(typeid(source), textOf(source), /*typeNameInFront=*/true) {}

ICloneableException::ConstPtr ClonedStdException::clone() const {
    return boost::make_shared<ClonedStdException>(*this);
}

void ClonedStdException::throwClone() const {
    throw ClonedStdException(*this);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
