// SPDX-License-Identifier: Apache-2.0
#pragma once

// Bytes in the letters of RFC 4648, section 4.

#include <optional>
#include <string>
#include <string_view>

namespace Quorvel::Dravik::Text::Detail {

std::string toBase64(std::string_view bytes);

/// Nothing where `text` is not what toBase64 gives of some bytes.
std::optional<std::string> fromBase64(std::string_view text);

}  // namespace Quorvel::Dravik::Text::Detail
