// SPDX-License-Identifier: Apache-2.0
#pragma once

// SystemError: a call of the operating system that failed. Threads: as std::string.

#include "dravik/adt/exceptions/cloneable.h"
#include "dravik/adt/exceptions/cloneable_exception_base.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: "[SystemError] " and the first line of the system's own text for the code.
///
///     throw SystemError(static_cast<unsigned long>(errno));  // [SystemError] No such file or directory
class DRAVIK_ADT_EXPORT SystemError : public Cloneable<SystemError, CloneableExceptionBase> {
  public:
    /// `code` as the system's calls leave it in `errno`; only its lower 32 bits count.
    explicit SystemError(unsigned long code);

    unsigned long getErrorCode() const noexcept;

    SystemError(SystemError const&) = default;
    SystemError& operator=(SystemError const&) = default;
    ~SystemError() override;

  private:
    static std::string getErrorMsg(std::uint32_t code);

    std::uint32_t code_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
