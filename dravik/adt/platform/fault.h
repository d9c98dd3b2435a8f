// SPDX-License-Identifier: Apache-2.0
#pragma once

// Fault: what the processor reported when an instruction could not be carried out. A plain value.

#include <cstdint>

namespace Quorvel::Dravik::Adt::Platform {

enum class FaultKind {
    accessViolation,
    stackOverflow,
    illegalInstruction,
    integerDivision,
    floatDivision,
    floatInvalidOperation,
    floatOverflow,
    floatUnderflow,
    floatInexact,
};

/// What the instruction wanted with the memory that it could not have.
enum class FaultAccess { read, write, execute };

struct Fault {
    /// `address` where the processor does not tell it (a non-canonical address, a misaligned vector): all ones.
    static constexpr std::uintptr_t kUnknownAddress = UINTPTR_MAX;

    FaultKind kind;
    std::uintptr_t instruction;                ///< where it happened; the target itself for a jump that failed
    FaultAccess access = FaultAccess::read;    ///< of an access violation; read where the processor does not tell
    std::uintptr_t address = kUnknownAddress;  ///< the data address of an access violation or a stack overflow
};

}  // namespace Quorvel::Dravik::Adt::Platform
