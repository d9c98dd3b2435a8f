// SPDX-License-Identifier: Apache-2.0
#include "dravik/text/text_exception.h"

#include <utility>

namespace Quorvel::Dravik::Text {

TextException::TextException(std::string pointer, std::string problem)
    : Cloneable(pointer + (pointer.empty() ? "" : ": ") + problem),
      pointer_(std::move(pointer)),
      problem_(std::move(problem)) {}

TextException::~TextException() = default;

}  // namespace Quorvel::Dravik::Text
