// SPDX-License-Identifier: Apache-2.0
#pragma once

// PlainException: the standard base exception with a text of its own. A value; threads: as `std::exception`.

#include "dravik/adt/export.h"

#include <exception>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::Exceptions {

/// A failure that is no more than `std::exception`, whose own constructor takes no text on this platform.
///
/// Derived from nothing else, so that handlers for std::logic_error and std::runtime_error let it pass, and no member
/// of the cloneable tree. Copying never throws.
class DRAVIK_ADT_EXPORT PlainException : public std::exception {
  public:
    // NOLINTNEXTLINE(bugprone-throw-keyword-missing): kept, not thrown
    explicit PlainException(std::string const& message) : message_(message) {}

    /// Exactly the message of construction.
    char const* what() const noexcept override;

  private:
    // Held for its text only: unlike a std::string, a standard exception shares it between copies and cannot fail then.
    std::runtime_error message_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
