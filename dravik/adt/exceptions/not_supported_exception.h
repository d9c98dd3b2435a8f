// SPDX-License-Identifier: Apache-2.0
#pragma once

// NotSupportedException: a request that the library understands and does not serve. Threads: as std::string.

#include "dravik/adt/exceptions/simple_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: "Unsupported: " and the text, after the bracketed name of the place where one is given.
class DRAVIK_ADT_EXPORT NotSupportedException : public SimpleException {
  public:
    explicit NotSupportedException(std::string const& text);

    /// Message: "[where] Unsupported: text".
    NotSupportedException(std::string const& where, std::string const& text);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
