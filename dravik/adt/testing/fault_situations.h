// SPDX-License-Identifier: Apache-2.0
#pragma once

// Code that faults, in every situation that a guarded call has to survive. Compiled once for each set of compiler
// options that the fault table runs with; the sanitizers stay out of it, since these faults are meant.

#include "dravik/adt/platform/fault.h"

#include <span>

namespace Quorvel::Dravik::Adt::Testing {

struct FaultSituation {
    static constexpr std::uintptr_t kAnyAddress = 0x5A5A5A5A;

    char const* name;
    void (*run)();  ///< never returns normally
    Platform::FaultKind kind = Platform::FaultKind::accessViolation;
    Platform::FaultAccess access = Platform::FaultAccess::read;
    std::uintptr_t address = kAnyAddress;  ///< as Fault::address
};

std::span<FaultSituation const> faultSituations();

/// Reads through a null pointer.
void readNull();

}  // namespace Quorvel::Dravik::Adt::Testing
