// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/system_exception.h"

#include "dravik/adt/exceptions/access_violation_exception.h"
#include "dravik/adt/exceptions/detail/address_text.h"
#include "dravik/adt/platform/module.h"

#include <cstdio>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

constexpr std::uint32_t kAccessViolation = 0xC0000005;

/// Lower case without leading zeros. Not through a stream: a global locale may group digits.
std::string lowerHex(std::uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(number));
    return text;
}

std::string firstLine(std::uint32_t code, std::string const& message) {
    if (!message.empty()) {
        return message;
    }
    std::string const name = SystemException::getExceptionCodeMsg(code);
    return name.empty() ? "Serious Windows exception 0x" + lowerHex(code) : "Serious exception: " + name;
}

std::string fileName(std::string const& path) {
    return path.substr(path.find_last_of("/\\") + 1);
}

std::string place(void const* address) {
    auto const module = Platform::moduleAt(address);
    std::string const name = module ? fileName(module->path) : "";
    if (name.empty()) {
        return " at process address 0x" + Detail::addressText(address) + " (unknown module)";
    }
    std::uint64_t const offset = module->byteOffset.value_or(0);
    return (offset != 0 ? " at offset 0x" + lowerHex(offset) : "") + " in module " + name + " (process address 0x" +
           Detail::addressText(address) + ")";
}

}  // namespace

SystemException::SystemException(EXCEPTION_RECORD const& record, std::string const& message)
    : Cloneable(firstLine(record.code, message) + "\nException occurred" + place(record.address)),
      code_(record.code),
      address_(record.address),
      record_(record) {}

unsigned long SystemException::getExceptionCode() const noexcept {
    return code_;
}

void const* SystemException::getExceptionAddress() const noexcept {
    return address_;
}

EXCEPTION_RECORD const& SystemException::getWin32ExceptionRecord() const noexcept {
    return record_;
}

std::string SystemException::getExceptionCodeMsg(unsigned long code) {
    switch (static_cast<std::uint32_t>(code)) {
    case kAccessViolation:
        return "Access violation";
    case 0xC000001D:
        return "Illegal instruction";
    case 0xC000008E:
        return "Floating-point division by zero";
    case 0xC0000094:
        return "Integer division by zero";
    case 0xC00000FD:
        return "Stack overflow";
    default:
        return {};
    }
}

unsigned long SystemException::sehFilterException(unsigned long code, EXCEPTION_POINTERS* info, ConstPtr* out) {
    out->reset();
    auto const code32 = static_cast<std::uint32_t>(code);  // callers with a signed code have extended its sign
    if (code32 == kAccessViolation) {
        *out = AccessViolationException(*info->record).clone();
    } else if ((code32 & 0xF0000000) == 0xC0000000) {
        *out = SystemException(*info->record, "").clone();
    }
    return *out ? 1 : 0;
}

SystemException::~SystemException() = default;

}  // namespace Quorvel::Dravik::Adt::Exceptions
