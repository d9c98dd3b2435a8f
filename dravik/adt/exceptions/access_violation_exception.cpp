// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/access_violation_exception.h"

#include "dravik/adt/exceptions/detail/address_text.h"

#include <string_view>

namespace Quorvel::Dravik::Adt::Exceptions {

AccessViolationException::AccessViolationException(EXCEPTION_RECORD const& record)
    : Cloneable(record, ""),
      accessedAddress_(reinterpret_cast<void const*>(record.parameters[1])),
      writeAccess_(record.parameters[0] != 0) {
    appendDetailedMessage();
}

void const* AccessViolationException::getAddress() const noexcept {
    return accessedAddress_;
}

bool AccessViolationException::isWriteAccess() const noexcept {
    return writeAccess_;
}

AccessViolationException::~AccessViolationException() = default;

void AccessViolationException::appendDetailedMessage() {
    constexpr std::string_view kFault = "Access violation";
    std::size_t const at = msg().find(kFault);
    if (at == std::string::npos) {
        return;  // a record with another code: its first line has no such words
    }
    std::string message = msg();
    message.replace(
        at, kFault.size(),
        std::string(kFault) + (writeAccess_ ? " writing to" : " reading from") + " address 0x" +
            Detail::addressText(accessedAddress_));
    setMsg(std::move(message));
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
