// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/fault_decoder.h"

#include "dravik/adt/platform/alternate_stack.h"

#include <ucontext.h>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

// Numbers of the processor's manual.
constexpr greg_t kPageFault = 14;
constexpr greg_t kPagePresent = 1;
constexpr greg_t kPageWrite = 2;
constexpr greg_t kPageFetch = 16;

/// The stack pointer moves before its frame is touched, and probes run ahead of it: a fault of the stack's end is found
/// this far below the stack pointer and, inside a large frame, anywhere above it.
constexpr std::uintptr_t kProbeBytes = 64 << 10;

/// What lies between the stack pointer and `stackTop` is stack and cannot be missing, unless the stack pointer is that
/// of another stack. It is taken for the same one within the first distance; beyond, only what a usual frame has
/// counts.
constexpr std::uintptr_t kSameStackBytes = 16 << 20;
constexpr std::uintptr_t kFrameBytes = 1 << 20;

/// Whether a page fault at `address` is the end of a stack.
bool isStackOverflow(
    std::uintptr_t address, std::uintptr_t stackPointer, std::uintptr_t stackTop, greg_t error) noexcept {
    bool const missing = (error & (kPagePresent | kPageFetch)) == 0;
    bool const inFrame = stackTop - stackPointer < kSameStackBytes || address < stackPointer + kFrameBytes;
    return missing && address + kProbeBytes >= stackPointer && inFrame && address < stackTop;
}

/// Whether code on the alternate stack has gone below it, into what the guard pages of ours are made for.
bool isOverrunByHandler(siginfo_t const& info, void const* context) noexcept {
    ucontext_t const& at = *static_cast<ucontext_t const*>(context);
    auto const bottom = reinterpret_cast<std::uintptr_t>(at.uc_stack.ss_sp);
    auto const address = reinterpret_cast<std::uintptr_t>(info.si_addr);
    auto const stackPointer = static_cast<std::uintptr_t>(at.uc_mcontext.gregs[REG_RSP]);
    bool const onIt = stackPointer + kAlternateStackGuard >= bottom && stackPointer < bottom + at.uc_stack.ss_size;
    return onIt && address < bottom && address + kAlternateStackGuard >= bottom;
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

bool isGuardedFault(int signal, siginfo_t const& info, void const* context) noexcept {
    bool const memoryError = signal == SIGBUS && (info.si_code == BUS_MCEERR_AR || info.si_code == BUS_MCEERR_AO);
    return info.si_code > 0 && !memoryError && !(signal == SIGSEGV && isOverrunByHandler(info, context));
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
