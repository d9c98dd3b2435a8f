// SPDX-License-Identifier: Apache-2.0
#pragma once

// CloneableExceptionBase: a cloneable exception that holds its message. Threads: as std::string.

#include "dravik/adt/exceptions/cloneable_exception.h"

#include <typeinfo>

namespace Quorvel::Dravik::Adt::Exceptions {

/// What every exception of the library derives from: the message, and readable names to build it with.
class DRAVIK_ADT_EXPORT CloneableExceptionBase : public ICloneableException {
  public:
    CloneableExceptionBase(CloneableExceptionBase const&) = default;
    CloneableExceptionBase& operator=(CloneableExceptionBase const&) = default;
    ~CloneableExceptionBase() override;

    std::string const& msg() const noexcept override;

  protected:
    CloneableExceptionBase() noexcept = default;
    explicit CloneableExceptionBase(std::string message) noexcept;

    void setMsg(std::string message) noexcept;

    /// The name of `type` as a person writes it, namespaces included, without a leading "class ".
    static std::string getTypeName(std::type_info const& type);

  private:
    std::string msg_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
