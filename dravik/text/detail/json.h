// SPDX-License-Identifier: Apache-2.0
#pragma once

// Trees as JSON. Threads: any.

#include "dravik/text/node.h"

#include <string>
#include <string_view>

namespace Quorvel::Dravik::Text::Detail {

/// One line, canonical.
/// @throws TextException beyond kMostBytes and kMostLevels, and where a key is no UTF-8
std::string toJson(Node const& root);

/// @throws TextException where `text` is no JSON, has a key twice in one object, and beyond kMostBytes and kMostLevels
Node fromJson(std::string_view text);

/// The JSON pointer from `root` to `value`, a node below it that is only compared; empty where there is no such node.
std::string pointerTo(Node const& root, Node const* value);

/// @throws TextException where a member below `root` was never asked for, unless its key begins with "x-"
void requireAllRead(Node const& root);

}  // namespace Quorvel::Dravik::Text::Detail
