// SPDX-License-Identifier: Apache-2.0
#pragma once

// EXCEPTION_RECORD and EXCEPTION_POINTERS: a severe fault as the processor and the system reported it. Plain records.

#include <cstdint>

namespace Quorvel::Dravik::Adt::Exceptions {

/// One fault. Its code tells what `parameters` mean; unused ones are 0.
///
/// The codes that faults of this process get:
///
///     0xC0000005  invalid access: parameters are 0 (read), 1 (write) or 8 (execute), and the address;
///                 all ones where the processor does not tell it
///     0xC000001D  illegal instruction
///     0xC000008E  floating-point division by zero; 0xC000008F inexact result, 0xC0000090 invalid operation,
///                 0xC0000091 overflow, 0xC0000093 underflow
///     0xC0000094  integer division by zero, or a quotient that does not fit
///     0xC00000FD  stack overflow
struct EXCEPTION_RECORD {
    static constexpr int kMaxParameters = 15;

    std::uint32_t code = 0;
    std::uint32_t flags = 0;
    EXCEPTION_RECORD* nested = nullptr;  ///< kept as it is, never followed
    void const* address = nullptr;       ///< of the faulting instruction
    std::uint32_t parameterCount = 0;
    std::uintptr_t parameters[kMaxParameters] = {};
};

/// What a filter is shown of a fault. @lifetime the record belongs to the caller of the filter
struct EXCEPTION_POINTERS {
    EXCEPTION_RECORD const* record = nullptr;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
