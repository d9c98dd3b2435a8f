// SPDX-License-Identifier: Apache-2.0
#pragma once

// runGuarded: a call that survives faults of the processor. Any number of threads at once, nested as deep as wanted.

#include "dravik/adt/platform/fault.h"

#include <optional>

namespace Quorvel::Dravik::Adt::Platform {

/// Calls `body(argument)`; a fault of the processor under it ends the call and is returned. Exceptions pass through.
///
/// A fault is an invalid read, write or jump, a division by zero or another trapped arithmetic error, an illegal
/// instruction, or the end of the stack. It goes to the innermost guarded call of its thread. Between the fault and
/// here no destructor runs and no lock is released: a fault inside the C library's allocator leaves its lock held.
/// Signals that were sent go where they would have gone, and so do the faults of threads without a guarded call; a
/// host handler that repairs faults does not see those of a guarded one. Signal dispositions, alternate stack and
/// signal mask are as before as soon as no guarded call is active, and so are, after a fault, rounding mode and
/// exceptions being handled.
std::optional<Fault> runGuarded(void (*body)(void*), void* argument);

}  // namespace Quorvel::Dravik::Adt::Platform
