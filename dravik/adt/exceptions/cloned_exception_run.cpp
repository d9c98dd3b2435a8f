// SPDX-License-Identifier: Apache-2.0
// The guarded call of ClonedException: where faults of the processor become exceptions of the tree.

#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/adt/exceptions/system_exception.h"
#include "dravik/adt/platform/fault_guard.h"

#include <cxxabi.h>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

using Platform::Fault;
using Platform::FaultAccess;
using Platform::FaultKind;

std::uint32_t codeOf(FaultKind kind) noexcept {
    switch (kind) {
    case FaultKind::accessViolation:
        return 0xC0000005;
    case FaultKind::stackOverflow:
        return 0xC00000FD;
    case FaultKind::illegalInstruction:
        return 0xC000001D;
    case FaultKind::integerDivision:
        return 0xC0000094;
    case FaultKind::floatDivision:
        return 0xC000008E;
    case FaultKind::floatInexact:
        return 0xC000008F;
    case FaultKind::floatOverflow:
        return 0xC0000091;
    case FaultKind::floatUnderflow:
        return 0xC0000093;
    default:
        return 0xC0000090;  // an invalid operation
    }
}

std::uintptr_t directionOf(FaultAccess access) noexcept {
    constexpr std::uintptr_t kExecute = 8;
    return access == FaultAccess::execute ? kExecute : access == FaultAccess::write ? 1 : 0;
}

EXCEPTION_RECORD recordOf(Fault const& fault) noexcept {
    EXCEPTION_RECORD record;
    record.code = codeOf(fault.kind);
    record.address = reinterpret_cast<void const*>(fault.instruction);
    if (fault.kind == FaultKind::accessViolation) {
        record.parameterCount = 2;
        record.parameters[0] = directionOf(fault.access);
        record.parameters[1] = fault.address;
    }
    return record;
}

struct Call {
    int (*fn)(void*);
    void* arg;
    int result;
};

void perform(void* call) {
    Call& self = *static_cast<Call*>(call);
    self.result = self.fn(self.arg);
}

}  // namespace

int ClonedException::runAndCatchException(int (*fn)(void*), void* arg, ConstPtr* out) {
    Call call{fn, arg, 0};
    try {
        std::optional<Fault> const fault = Platform::runGuarded(&perform, &call);
        if (!fault) {
            return call.result;
        }
        EXCEPTION_RECORD const record = recordOf(*fault);
        EXCEPTION_POINTERS info{&record};
        SystemException::sehFilterException(record.code, &info, out);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        out->reset();
        *out = catchException();
    }
    return 0;
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
