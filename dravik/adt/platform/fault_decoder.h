// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reads a fault out of what the kernel hands to a signal handler. Safe inside a handler.

#include "dravik/adt/platform/fault.h"

#include <csignal>

namespace Quorvel::Dravik::Adt::Platform {

/// Whether the signal reports what an instruction of the guarded code did: not a signal that was sent, not a
/// memory error of the machine, which no guarded call may hide, and not the end of an alternate stack, which a handler
/// has reached. `context` is the handler's third argument.
bool isGuardedFault(int signal, siginfo_t const& info, void const* context) noexcept;

/// The fault behind a signal for which isGuardedFault() holds. Every frame of the code that may have faulted lies below
/// `stackTop`.
Fault decodeFault(int signal, siginfo_t const& info, void const* context, std::uintptr_t stackTop) noexcept;

}  // namespace Quorvel::Dravik::Adt::Platform
