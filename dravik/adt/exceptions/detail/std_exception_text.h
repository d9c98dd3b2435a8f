// SPDX-License-Identifier: Apache-2.0
#pragma once

// StdExceptionText: the part of a cloneable exception that survives a catch by value. Threads: as
// `int`.

#include "dravik/adt/export.h"

#include <exception>

namespace Quorvel::Dravik::Adt::Exceptions::Detail {

/// std::exception with a fixed text, of which it keeps only the pointer.
///
/// A copy sliced to this class reports the text. A copy sliced to std::exception itself cannot: the runtime's own base
/// has no room for a text and reports "std::exception".
/// @lifetime the text outlives every copy
class DRAVIK_ADT_EXPORT StdExceptionText : public std::exception {
  public:
    explicit StdExceptionText(char const* text) noexcept : text_(text) {}
    StdExceptionText(StdExceptionText const&) noexcept = default;
    StdExceptionText& operator=(StdExceptionText const&) noexcept = default;
    ~StdExceptionText() override;

    char const* what() const noexcept override;

  private:
    char const* text_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions::Detail
