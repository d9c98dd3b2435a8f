// SPDX-License-Identifier: Apache-2.0
#pragma once

// SystemException: a severe fault of the processor or the system, translated. Threads: as std::string.

#include "dravik/adt/exceptions/cloneable.h"
#include "dravik/adt/exceptions/cloneable_exception_base.h"
#include "dravik/adt/exceptions/exception_record.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: what happened, then, on a second line, where: the module and the offset in it, and the address.
///
///     Serious exception: Integer division by zero
///     Exception occurred at offset 0x1a2b in module libexample.so (process address 0x10001A2B)
class DRAVIK_ADT_EXPORT SystemException : public Cloneable<SystemException, CloneableExceptionBase> {
  public:
    /// Copies the record. `message` is the first line; when it is empty, the code makes one.
    SystemException(EXCEPTION_RECORD const& record, std::string const& message);

    unsigned long getExceptionCode() const noexcept;

    /// The address of the faulting instruction.
    void const* getExceptionAddress() const noexcept;

    EXCEPTION_RECORD const& getWin32ExceptionRecord() const noexcept;

    /// "Access violation" and the like for the five codes that have a name, else an empty text. Only the lower 32 bits
    /// of the code count.
    static std::string getExceptionCodeMsg(unsigned long code);

    /// Decides about a fault with this code: 1 to handle it, with its clone in `*out`, for invalid accesses and for
    /// every other code whose top four bits are 1100 (errors); 0 to pass it on, with null in `*out`.
    /// @pre `info`, its record and `out` are not null
    static unsigned long sehFilterException(unsigned long code, EXCEPTION_POINTERS* info, ConstPtr* out);

    SystemException(SystemException const&) = default;
    SystemException& operator=(SystemException const&) = default;
    ~SystemException() override;

  private:
    std::uint32_t code_;
    void const* address_;
    EXCEPTION_RECORD record_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
