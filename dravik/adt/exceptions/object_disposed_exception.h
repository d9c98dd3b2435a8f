// SPDX-License-Identifier: Apache-2.0
#pragma once

// ObjectDisposedException: use of an object that has given up what it held. Threads: as std::string.

#include "dravik/adt/exceptions/simple_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: "Use of disposed object: " and the text.
class DRAVIK_ADT_EXPORT ObjectDisposedException : public SimpleException {
  public:
    explicit ObjectDisposedException(std::string const& text);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
