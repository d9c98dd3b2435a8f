// SPDX-License-Identifier: Apache-2.0
#pragma once

// ClonedException: what becomes of an exception that is not cloneable by itself, the kinds of it, and the capture of
// whatever is being handled. Capture runs on any number of threads at once; registration must not overlap it.

#include "dravik/adt/exceptions/cloneable.h"
#include "dravik/adt/exceptions/cloneable_exception_base.h"

#include <boost/function.hpp>

#include <exception>
#include <vector>

namespace Quorvel::Dravik::Adt::Exceptions {

/// Stand-in for a foreign exception: its own class is gone, its type and its text are kept.
class DRAVIK_ADT_EXPORT ClonedException : public CloneableExceptionBase {
  public:
    /// Returns a clone of the exception being handled when it knows the type, else null. It may rethrow the exception
    /// inside a try block of its own; one that throws or is empty counts as not knowing. It must not end its thread:
    /// no runtime unwinds that through the catch block around it.
    using Handler = boost::function0<ConstPtr>;

    ClonedException(ClonedException const&) = default;
    ~ClonedException() override;

    /// Type of the exception that was cloned.
    std::type_info const& exceptionType() const noexcept;

    /// A clone of the exception being handled, never null.
    ///
    /// Cloneable ones keep their type and fields; a thrown `char const*` becomes a ClonedStrException, std::bad_alloc a
    /// MemoryException, other standard ones a ClonedStdException. Anything else is shown to the registered handlers in
    /// their order, and is an UnknownException when none knows it. Where memory is too short for the clone, it is a
    /// MemoryException that was made at load. Cancellation of the thread passes through.
    /// @pre called inside a catch block
    static ConstPtr catchException();

    /// Calls `fn(arg)` and returns what it returns; a failure, of any kind, becomes a clone in `*out` and the result is
    /// 0.
    ///
    /// Failures are the exceptions of the language, as catchException() sees them, and the faults of the processor: an
    /// invalid read, write or jump, a trapped arithmetic error, an illegal instruction, the end of the stack. Those
    /// become a SystemException or AccessViolationException. `*out` is written on failure only, so 0 with a null `*out`
    /// is the function's own 0 for a caller who passed a null one. Cancellation of the thread passes through.
    ///
    /// After a fault the destructors between it and this call have not run: what they own is lost, and the locks they
    /// hold stay locked. A fault inside the C library's allocator leaves its lock held, and the next allocation hangs.
    /// While a thread is inside, its faults reach no other handler, not even one of the host that repairs them; sent
    /// signals and other threads' faults go where they always went. Nothing stays installed in the process when the
    /// last call has ended.
    /// @pre `out` is not null
    /// @complexity a few microseconds for a thread's outermost call, a fraction of one for a call inside it
    /// @threads any number at once
    static int runAndCatchException(int (*fn)(void*), void* arg, ConstPtr* out);

    /// Appends a copy of `handler` to those that catchException() asks. There is no way back.
    /// @threads during start-up, while no thread can be in catchException()
    static void registerExceptionHandler(Handler const& handler);

  protected:
    /// Message: the text, after the readable name of `type` and ": " where asked for.
    ClonedException(std::type_info const& type, std::string text, bool typeNameInFront);

  private:
    static ConstPtr cloneOfCurrent();
    static ConstPtr askHandlers();

    static std::vector<Handler>* ex_handlers_;  ///< null before the first; never destroyed

    std::type_info const& type_;
};

/// A standard exception. Message: the readable name of its dynamic type, ": " and its what().
class DRAVIK_ADT_EXPORT ClonedStdException : public Cloneable<ClonedStdException, ClonedException> {
  public:
    /// A null what() is an empty text.
    explicit ClonedStdException(std::exception const& source);
    ClonedStdException(ClonedStdException const&) = default;
    ~ClonedStdException() override;
};

/// A thrown character string. Message: the string alone. Its exceptionType() is that of `char*`.
class DRAVIK_ADT_EXPORT ClonedStrException : public Cloneable<ClonedStrException, ClonedException> {
  public:
    /// Copies the characters; a null pointer has none.
    explicit ClonedStrException(char const* text);
    ClonedStrException(ClonedStrException const&) = default;
    ~ClonedStrException() override;
};

/// An exception of unknown type. Message: "Caught exception of unknown type.". Its exceptionType() is that of `void`.
class DRAVIK_ADT_EXPORT UnknownException : public Cloneable<UnknownException, ClonedException> {
  public:
    UnknownException();
    UnknownException(UnknownException const&) = default;
    ~UnknownException() override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
