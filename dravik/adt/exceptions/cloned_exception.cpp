// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cloned_exception.h"

#include "dravik/adt/exceptions/memory_exception.h"

#include <cxxabi.h>
#include <utility>

namespace Quorvel::Dravik::Adt::Exceptions {

namespace {

std::string textOf(char const* text) {
    return text == nullptr ? "" : text;
}

/// The clone of last resort, made at load: for an exception whose own clone cannot be made. Never destroyed.
ICloneableException::ConstPtr const& noMemory() {
    static ICloneableException::ConstPtr const& clone =
        *new ICloneableException::ConstPtr(MemoryException(std::bad_alloc()).clone());
    return clone;
}

/// The same for everything that nobody knows.
ICloneableException::ConstPtr const& unknown() {
    static ICloneableException::ConstPtr const& clone = *new ICloneableException::ConstPtr(UnknownException().clone());
    return clone;
}

[[maybe_unused]] bool const kMadeAtLoad = noMemory() && unknown();

}  // namespace

constinit std::vector<ClonedException::Handler>* ClonedException::ex_handlers_ = nullptr;

ClonedException::ClonedException(std::type_info const& type, std::string text, bool typeNameInFront)
    : CloneableExceptionBase(typeNameInFront ? getTypeName(type) + ": " + text : std::move(text)), type_(type) {}

ClonedException::~ClonedException() = default;

std::type_info const& ClonedException::exceptionType() const noexcept {
    return type_;
}

ICloneableException::ConstPtr ClonedException::catchException() {
    try {
        ConstPtr clone = cloneOfCurrent();
        return clone ? clone : unknown();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (std::bad_alloc const&) {
        return noMemory();
    } catch (...) {
        return unknown();  // a host's exception that throws when it is cloned
    }
}

void ClonedException::registerExceptionHandler(Handler const& handler) {
    if (ex_handlers_ == nullptr) {
        ex_handlers_ = new std::vector<Handler>;  // NOLINT(bugprone-throw-keyword-missing): a table, not an exception
    }
    ex_handlers_->push_back(handler);
}

ICloneableException::ConstPtr ClonedException::cloneOfCurrent() {
    try {
        throw;
    } catch (ICloneableException const& source) {
        return source.clone();
    } catch (char const* text) {
        return ClonedStrException(text).clone();
    } catch (std::bad_alloc const& source) {
        return MemoryException(source).clone();
    } catch (std::exception const& source) {
        return ClonedStdException(source).clone();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return askHandlers();
    }
}

ICloneableException::ConstPtr ClonedException::askHandlers() {
    std::size_t const count = ex_handlers_ != nullptr ? ex_handlers_->size() : 0;
    for (std::size_t i = 0; i < count; ++i) {
        try {
            if (ConstPtr clone = (*ex_handlers_)[i]()) {
                return clone;
            }
        } catch (abi::__forced_unwind&) {
            throw;  // libstdc++ ends the program here; no clause of ours swallows a cancellation in any case
        } catch (...) {
            // It does not know the exception; the next one may.
        }
    }
    return {};
}

ClonedStdException::ClonedStdException(std::exception const& source)
    : Cloneable(typeid(source), textOf(source.what()), /*typeNameInFront=*/true) {}
ClonedStdException::~ClonedStdException() = default;

ClonedStrException::ClonedStrException(char const* text)
    : Cloneable(typeid(char*), textOf(text), /*typeNameInFront=*/false) {}
ClonedStrException::~ClonedStrException() = default;

UnknownException::UnknownException()
    : Cloneable(typeid(void), "Caught exception of unknown type.", /*typeNameInFront=*/false) {}
UnknownException::~UnknownException() = default;

}  // namespace Quorvel::Dravik::Adt::Exceptions
