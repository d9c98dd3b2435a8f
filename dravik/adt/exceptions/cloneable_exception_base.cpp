// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cloneable_exception_base.h"

#include "dravik/adt/platform/type_name.h"

#include <utility>

namespace Quorvel::Dravik::Adt::Exceptions {

CloneableExceptionBase::CloneableExceptionBase(std::string message) noexcept : msg_(std::move(message)) {}

CloneableExceptionBase::~CloneableExceptionBase() = default;

std::string const& CloneableExceptionBase::msg() const noexcept {
    return msg_;
}

void CloneableExceptionBase::setMsg(std::string message) noexcept {
    msg_ = std::move(message);
}

std::string CloneableExceptionBase::getTypeName(std::type_info const& type) {
    return Platform::readableTypeName(type);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
