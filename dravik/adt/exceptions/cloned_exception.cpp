// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cloned_exception.h"

#include "dravik/adt/exceptions/cloned_std_exception.h"
#include "dravik/adt/exceptions/cloned_str_exception.h"
#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/exceptions/unknown_exception.h"

#include <cxxabi.h>
#include <utility>

namespace Quorvel::Dravik::Adt::Exceptions {

constinit std::vector<ClonedException::Handler> ClonedException::ex_handlers_;

ClonedException::ClonedException(std::type_info const& type, std::string text, bool typeNameInFront)
    : CloneableExceptionBase(typeNameInFront ? getTypeName(type) + ": " + text : std::move(text)), type_(type) {}

ClonedException::~ClonedException() = default;

std::type_info const& ClonedException::exceptionType() const noexcept {
    return type_;
}

ICloneableException::ConstPtr ClonedException::catchException() {
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
        ConstPtr clone = askHandlers();
        return clone ? clone : UnknownException().clone();
    }
}

void ClonedException::registerExceptionHandler(Handler const& handler) {
    ex_handlers_.push_back(handler);
}

ICloneableException::ConstPtr ClonedException::askHandlers() {
    for (Handler const& handler : ex_handlers_) {
        try {
            if (ConstPtr clone = handler()) {
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

}  // namespace Quorvel::Dravik::Adt::Exceptions
