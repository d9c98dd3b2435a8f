// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/memory_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

/// "3 MiB ": up to 999 of a unit, a part counts as a whole.
std::string amountText(std::uint32_t byteAmount) {
    constexpr char const* kUnits[] = {" bytes ", " KiB ", " MiB ", " GiB "};
    std::uint32_t amount = byteAmount;
    int unit = 0;
    while (amount >= 1000) {  // 32 bits end at 4 GiB
        amount = ((amount - 1) >> 10) + 1;
        ++unit;
    }
    return std::to_string(amount) + kUnits[unit];
}

}  // namespace

MemoryException::MemoryException(std::bad_alloc const& source) : MemoryException(source, "", 0) {}

MemoryException::MemoryException(std::bad_alloc const& source, std::string const& context, unsigned int byteAmount)
    : Cloneable(source), byteAmount_(byteAmount), context_(context) {
    updateMsg();
}

bool MemoryException::hasAllocationAmount() const noexcept {
    return byteAmount_ != 0;
}

unsigned int MemoryException::getAllocationAmount() const noexcept {
    return byteAmount_;
}

MemoryException::~MemoryException() = default;

void MemoryException::updateMsg() {
    setMsg(
        "Failed to allocate " + (hasAllocationAmount() ? amountText(byteAmount_) : "") +
        "memory: " + getTypeName(exceptionType()) + " exception" + (context_.empty() ? "" : " in " + context_));
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
