// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/nested_exception.h"

#include "dravik/adt/exceptions/cloned_exception.h"

#include <utility>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

ICloneableException::ConstPtr cloneOf(std::exception const& source) {
    auto const* const cloneable = dynamic_cast<ICloneableException const*>(&source);
    return cloneable != nullptr ? cloneable->clone() : ClonedStdException(source).clone();
}

}  // namespace

NestedException::NestedException(std::string const& outerMsg) : NestedException(outerMsg, ConstPtr()) {}

NestedException::NestedException(std::string const& outerMsg, ConstPtr inner) {
    update(outerMsg, std::move(inner));
}

NestedException::NestedException(std::string const& outerMsg, std::exception const& inner)
    : NestedException(outerMsg, cloneOf(inner)) {}

NestedException& NestedException::operator=(NestedException const& other) {
    // Not member by member: a copy that fails half-way would leave a message of neither.
    update(other.outerMsg_, other.inner_);
    return *this;
}

NestedException::~NestedException() = default;

std::string const& NestedException::outerMsg() const noexcept {
    return outerMsg_;
}

void NestedException::setOuterMsg(std::string const& outerMsg) {
    update(outerMsg, inner_);
}

ICloneableException::ConstPtr NestedException::innerException() const noexcept {
    return inner_;
}

void NestedException::setInnerException(ConstPtr inner) {
    update(outerMsg_, std::move(inner));
}

void NestedException::setInnerException(std::exception const& inner) {
    setInnerException(cloneOf(inner));
}

void NestedException::update(std::string outerMsg, ConstPtr inner) {
    setMsg(inner ? outerMsg + ": " + inner->msg() : outerMsg);
    outerMsg_ = std::move(outerMsg);
    inner_ = std::move(inner);
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
