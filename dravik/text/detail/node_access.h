// SPDX-License-Identifier: Apache-2.0
#pragma once

// NodeAccess: the inside of nodes, for the sources of this folder.

#include "dravik/text/node.h"

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Quorvel::Dravik::Text::Detail {

using Elements = std::vector<Node>;
using Members = std::vector<Node::Member>;

struct NodeAccess {
    static auto const& value(Node const& node) noexcept { return node.value_; }
    static auto& value(Node& node) noexcept { return node.value_; }
};

/// `text`, cut where it is too long for a message; in quotes.
std::string shortened(std::string_view text);
std::string inQuotes(std::string_view text);

}  // namespace Quorvel::Dravik::Text::Detail
