// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/fault_decoder.h"

#include <ucontext.h>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

// Numbers of the processor's manual.
constexpr greg_t kPageFault = 14;
constexpr greg_t kPagePresent = 1;
constexpr greg_t kPageWrite = 2;
constexpr greg_t kPageFetch = 16;

/// The stack pointer moves before its frame is touched, and probes run ahead of it: a fault of the stack's end is found
/// this far below the stack pointer and, inside a large frame, this far above it.
constexpr std::uintptr_t kProbeBytes = 64 << 10;
constexpr std::uintptr_t kFrameBytes = 1 << 20;

/// Whether a page fault at `address` is the end of a stack. What lies between the stack pointer and the frames above is
/// stack and cannot be missing otherwise.
bool isStackOverflow(
    std::uintptr_t address, std::uintptr_t stackPointer, std::uintptr_t stackTop, greg_t error) noexcept {
    bool const missing = (error & (kPagePresent | kPageFetch)) == 0;
    bool const near = address + kProbeBytes >= stackPointer && address < stackPointer + kFrameBytes;
    return missing && near && address < stackTop;
}

FaultAccess accessOf(greg_t pageFaultError) noexcept {
    if ((pageFaultError & kPageFetch) != 0) {
        return FaultAccess::execute;
    }
    return (pageFaultError & kPageWrite) != 0 ? FaultAccess::write : FaultAccess::read;
}

FaultKind kindOfArithmetic(int code) noexcept {
    switch (code) {
    case FPE_INTDIV:
        return FaultKind::integerDivision;
    case FPE_FLTDIV:
        return FaultKind::floatDivision;
    case FPE_FLTOVF:
        return FaultKind::floatOverflow;
    case FPE_FLTUND:
        return FaultKind::floatUnderflow;
    case FPE_FLTRES:
        return FaultKind::floatInexact;
    default:
        return FaultKind::floatInvalidOperation;
    }
}

}  // namespace

bool isProcessorFault(int signal, siginfo_t const& info) noexcept {
    bool const memoryError = signal == SIGBUS && (info.si_code == BUS_MCEERR_AR || info.si_code == BUS_MCEERR_AO);
    return info.si_code > 0 && !memoryError;
}

Fault decodeFault(int signal, siginfo_t const& info, void const* context, std::uintptr_t stackTop) noexcept {
    greg_t const* const registers = static_cast<ucontext_t const*>(context)->uc_mcontext.gregs;
    auto const instruction = static_cast<std::uintptr_t>(registers[REG_RIP]);
    if (signal == SIGILL) {
        return {FaultKind::illegalInstruction, instruction};
    }
    if (signal == SIGFPE) {
        return {kindOfArithmetic(info.si_code), instruction};
    }
    if (registers[REG_TRAPNO] != kPageFault) {
        return {FaultKind::accessViolation, instruction};
    }
    greg_t const error = registers[REG_ERR];
    auto const address = reinterpret_cast<std::uintptr_t>(info.si_addr);
    auto const stackPointer = static_cast<std::uintptr_t>(registers[REG_RSP]);
    bool const overflow = isStackOverflow(address, stackPointer, stackTop, error);
    return {overflow ? FaultKind::stackOverflow : FaultKind::accessViolation, instruction, accessOf(error), address};
}

}  // namespace Quorvel::Dravik::Adt::Platform
