// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reads a fault out of what the kernel hands to a signal handler. Safe inside a handler.

#include "dravik/adt/platform/fault.h"

#include <csignal>

namespace Quorvel::Dravik::Adt::Platform {

/// Whether the signal reports an instruction of this thread: not one that somebody sent, and not a memory error of the
/// machine, which no guarded call may hide.
bool isProcessorFault(int signal, siginfo_t const& info) noexcept;

/// The fault behind a signal for which isProcessorFault() holds. `context` is the handler's third argument; every frame
/// of the code that may have faulted lies below `stackTop`.
Fault decodeFault(int signal, siginfo_t const& info, void const* context, std::uintptr_t stackTop) noexcept;

}  // namespace Quorvel::Dravik::Adt::Platform
