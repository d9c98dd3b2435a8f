// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/system_error.h"

#include "dravik/adt/platform/system_error_text.h"

namespace Quorvel::Dravik::Adt::Exceptions {

SystemError::SystemError(unsigned long code)
    : Cloneable("[SystemError] " + getErrorMsg(static_cast<std::uint32_t>(code))),
      code_(static_cast<std::uint32_t>(code)) {}

unsigned long SystemError::getErrorCode() const noexcept {
    return code_;
}

SystemError::~SystemError() = default;

std::string SystemError::getErrorMsg(std::uint32_t code) {
    std::string const text = Platform::systemErrorText(code).value_or("Failed to format Windows error message.");
    return text.substr(0, text.find_first_of("\r\n"));
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
