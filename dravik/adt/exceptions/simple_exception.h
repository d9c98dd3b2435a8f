// SPDX-License-Identifier: Apache-2.0
#pragma once

// SimpleException: base of the exceptions that are nothing but a message, and those that every part of the library
// throws. Threads: as std::string.

#include "dravik/adt/exceptions/cloneable.h"
#include "dravik/adt/exceptions/cloneable_exception_base.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// An exception without fields of its own; the constructor's text is the complete message.
class DRAVIK_ADT_EXPORT SimpleException : public CloneableExceptionBase {
  public:
    SimpleException(SimpleException const&) = default;
    SimpleException& operator=(SimpleException const&) = default;
    ~SimpleException() override;

  protected:
    explicit SimpleException(std::string const& message);
};

/// An operation that its class declares and does not have. Message: "Not implemented: " and the text.
class DRAVIK_ADT_EXPORT NotImplementedException : public Cloneable<NotImplementedException, SimpleException> {
  public:
    explicit NotImplementedException(std::string const& text);
    NotImplementedException(NotImplementedException const&) = default;
    NotImplementedException& operator=(NotImplementedException const&) = default;
    ~NotImplementedException() override;
};

/// A request that the library understands and does not serve. Message: "Unsupported: " and the text, after the
/// bracketed name of the place where one is given.
class DRAVIK_ADT_EXPORT NotSupportedException : public Cloneable<NotSupportedException, SimpleException> {
  public:
    explicit NotSupportedException(std::string const& text);

    /// Message: "[where] Unsupported: text".
    NotSupportedException(std::string const& where, std::string const& text);
    NotSupportedException(NotSupportedException const&) = default;
    NotSupportedException& operator=(NotSupportedException const&) = default;
    ~NotSupportedException() override;
};

/// Use of an object that has given up what it held. Message: "Use of disposed object: " and the text.
class DRAVIK_ADT_EXPORT ObjectDisposedException : public Cloneable<ObjectDisposedException, SimpleException> {
  public:
    explicit ObjectDisposedException(std::string const& text);
    ObjectDisposedException(ObjectDisposedException const&) = default;
    ObjectDisposedException& operator=(ObjectDisposedException const&) = default;
    ~ObjectDisposedException() override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
