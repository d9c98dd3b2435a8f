// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/plain_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

char const* PlainException::what() const noexcept {
    return message_.what();
}

}  // namespace Quorvel::Dravik::Adt::Exceptions
