// SPDX-License-Identifier: Apache-2.0
#pragma once

// CancelledException: work that ended early because its caller asked for that. Threads: as std::string.

#include "dravik/adt/exceptions/simple_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: the text.
class DRAVIK_ADT_EXPORT CancelledException : public SimpleException {
  public:
    explicit CancelledException(std::string const& text);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
