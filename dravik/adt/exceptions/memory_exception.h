// SPDX-License-Identifier: Apache-2.0
#pragma once

// MemoryException: an allocation that failed, with its size and place where they are known. Threads: as std::string.

#include "dravik/adt/exceptions/cloned_exception.h"

#include <cstdint>
#include <new>

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: "Failed to allocate 3 MiB memory: std::bad_alloc exception in SharedBuffer"; amount and place are left out
/// where they are not given. The amount is written in units of 1024, rounded up, with the first unit that leaves a
/// number below 1000.
class DRAVIK_ADT_EXPORT MemoryException : public Cloneable<MemoryException, ClonedStdException> {
  public:
    /// Without amount and context.
    explicit MemoryException(std::bad_alloc const& source);

    /// `context` names what failed to allocate (may be empty), `byteAmount` how much; 0 means that no amount is given.
    MemoryException(std::bad_alloc const& source, std::string const& context, unsigned int byteAmount);

    bool hasAllocationAmount() const noexcept;

    /// Bytes that could not be allocated; 0 when no amount is given.
    unsigned int getAllocationAmount() const noexcept;

    MemoryException(MemoryException const&) = default;
    ~MemoryException() override;

  private:
    void updateMsg();

    std::uint32_t byteAmount_;
    std::string context_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
