// SPDX-License-Identifier: Apache-2.0
#pragma once

// TextException: what is wrong with a text, and where. Threads: as std::string.

#include "dravik/adt/exceptions/cloneable.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <concepts>
#include <string>
#include <utility>

namespace Quorvel::Dravik::Text {

class Node;

/// A text that is no definition, or a definition that has no text. Message: "/entity/source/path: is no string".
class DRAVIK_ADT_EXPORT TextException
    : public Adt::Exceptions::Cloneable<TextException, Adt::Exceptions::SimpleException> {
  public:
    /// @pre `pointer` is a JSON pointer; the empty one means the whole text
    TextException(std::string pointer, std::string problem);
    /// What is wrong with a value of a tree. The pointer is empty until the reading of a text finds where it stands.
    template <std::same_as<Node> Value>
    TextException(Value const& value, std::string problem) : TextException(std::string(), std::move(problem)) {
        value_ = &value;
    }
    TextException(TextException const&) = default;
    TextException& operator=(TextException const&) = default;
    ~TextException() override;

    /// Where, as a JSON pointer such as "/entity/source/path".
    std::string const& pointer() const noexcept { return pointer_; }
    /// What is wrong there.
    std::string const& problem() const noexcept { return problem_; }
    /// For the reading of texts: the value in question, to be compared and never followed; null where a pointer was
    /// given.
    Node const* value() const noexcept { return value_; }

  private:
    std::string pointer_;
    std::string problem_;
    Node const* value_ = nullptr;
};

}  // namespace Quorvel::Dravik::Text
