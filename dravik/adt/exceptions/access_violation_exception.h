// SPDX-License-Identifier: Apache-2.0
#pragma once

// AccessViolationException: an access to memory that the process may not make. Threads: as std::string.

#include "dravik/adt/exceptions/system_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: that of SystemException, with the direction and the accessed address in its first line.
///
///     Serious exception: Access violation reading from address 0x00000000
///     Exception occurred at offset 0x1a2b in module libexample.so (process address 0x10001A2B)
class DRAVIK_ADT_EXPORT AccessViolationException : public Cloneable<AccessViolationException, SystemException> {
  public:
    /// The first parameter of the record tells the direction (0 is a read), the second the accessed address.
    explicit AccessViolationException(EXCEPTION_RECORD const& record);

    /// The data address whose access failed.
    void const* getAddress() const noexcept;

    /// True for every access but a read, the attempt to execute included.
    bool isWriteAccess() const noexcept;

    AccessViolationException(AccessViolationException const&) = default;
    AccessViolationException& operator=(AccessViolationException const&) = default;
    ~AccessViolationException() override;

  private:
    void appendDetailedMessage();

    void const* accessedAddress_;
    bool writeAccess_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
