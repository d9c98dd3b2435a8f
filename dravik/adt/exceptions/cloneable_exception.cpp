// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cloneable_exception.h"

namespace Quorvel::Dravik::Adt {

Exceptions::Detail::StdExceptionText::~StdExceptionText() = default;

char const* Exceptions::Detail::StdExceptionText::what() const noexcept {
    return text_;
}

ICloneableException::ICloneableException() noexcept
    : StdExceptionText("<Exception message is stored in derived class. std::exception must be caught by reference to "
                       "preserve exception info.>") {}

ICloneableException::~ICloneableException() = default;

char const* ICloneableException::what() const noexcept {
    return msg().c_str();
}

}  // namespace Quorvel::Dravik::Adt
