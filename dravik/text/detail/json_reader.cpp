// SPDX-License-Identifier: Apache-2.0
#include "dravik/text/definition_text.h"
#include "dravik/text/detail/json.h"
#include "dravik/text/detail/node_access.h"
#include "dravik/text/text_exception.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <utility>

namespace Quorvel::Dravik::Text::Detail {

namespace {

// "/" and `key` as a JSON pointer has it.
std::string pointerToken(std::string_view key) {
    std::string token = "/";
    for (char const character : shortened(key)) {
        token += character == '~' ? "~0" : character == '/' ? "~1" : std::string(1, character);
    }
    return token;
}

std::string indexToken(std::size_t index) {
    return std::string(1, '/').append(std::to_string(index));
}

// Whether nobody has asked for a member that nobody has to know.
bool isForeign(Node::Member const* member) {
    return member != nullptr && !member->isRead && member->key.starts_with("x-");
}

// Makes a tree of what the parser meets.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
  public:
    Node take() { return std::move(root_); }

    bool null() override { return add(Node()); }
    bool boolean(bool value) override { return add(Node(value)); }
    bool number_integer(number_integer_t value) override { return add(Node(value)); }
    bool number_unsigned(number_unsigned_t value) override {
        bool const isLarge = value > std::uint64_t{INT64_MAX};
        return add(isLarge ? Node(static_cast<double>(value)) : Node(static_cast<std::int64_t>(value)));
    }
    bool number_float(number_float_t value, string_t const&) override { return add(Node(value)); }
    bool string(string_t& value) override { return add(Node(std::move(value))); }
    bool binary(binary_t&) override { return false; }  // not in JSON

    bool start_object(std::size_t) override { return open(Node::MakeObject()); }
    bool start_array(std::size_t) override { return open(Node::MakeArray()); }
    bool key(string_t& key) override {
        key_ = std::move(key);
        return true;
    }
    bool end_object() override {
        auto& members = std::get<Members>(NodeAccess::value(*open_.back()));
        std::sort(
            members.begin(), members.end(), [](auto const& left, auto const& right) { return left.key < right.key; });
        auto const twice = std::adjacent_find(
            members.begin(), members.end(), [](auto const& left, auto const& right) { return left.key == right.key; });
        if (twice != members.end()) {
            throw TextException(pointer(), "has " + inQuotes(twice->key) + " twice");
        }
        open_.pop_back();
        return true;
    }
    bool end_array() override {
        open_.pop_back();
        return true;
    }
    bool parse_error(std::size_t position, std::string const&, nlohmann::json::exception const& error) override {
        constexpr int kNumberOverflow = 406;
        std::string const what = error.id == kNumberOverflow ? "has a number out of the range of double" : "is no JSON";
        throw TextException(pointer(), what + " at byte " + std::to_string(position));
    }

  private:
    bool add(Node node) {
        place(std::move(node));
        return true;
    }

    bool open(Node node) {
        if (open_.size() == std::size_t{kMostLevels}) {
            throw TextException(pointer(), "nests deeper than " + std::to_string(kMostLevels) + " levels");
        }
        open_.push_back(&place(std::move(node)));
        return true;
    }

    Node& place(Node node) {
        if (open_.empty()) {
            return root_ = std::move(node);
        }
        auto& parent = NodeAccess::value(*open_.back());
        if (auto* const elements = std::get_if<Elements>(&parent)) {
            return elements->emplace_back(std::move(node));
        }
        return std::get<Members>(parent).emplace_back(Node::Member{std::move(key_), std::move(node)}).value;
    }

    // Of the innermost object or array that is open. Each is the last one of the one around it.
    std::string pointer() const {
        std::string pointer;
        for (std::size_t level = 0; level + 1 < open_.size(); ++level) {
            auto const& parent = NodeAccess::value(std::as_const(*open_[level]));
            auto const* const elements = std::get_if<Elements>(&parent);
            pointer += elements != nullptr ? indexToken(elements->size() - 1)
                                           : pointerToken(std::get<Members>(parent).back().key);
        }
        return pointer;
    }

    Node root_;
    std::vector<Node*> open_;  // objects and arrays, each inside the one before
    std::string key_;          // of the next member
};

// The pointer from `node`, which `member` holds unless it is an element, to the first node for which `isWanted` answers
// yes.
template <class IsWanted>
std::optional<std::string> pathTo(Node const& node, Node::Member const* member, IsWanted const& isWanted) {
    if (isWanted(node, member)) {
        return "";
    }
    if (isForeign(member)) {
        return std::nullopt;
    }
    auto const& value = NodeAccess::value(node);
    if (auto const* const elements = std::get_if<Elements>(&value)) {
        for (std::size_t i = 0; i < elements->size(); ++i) {
            if (auto const path = pathTo((*elements)[i], nullptr, isWanted)) {
                return indexToken(i) + *path;
            }
        }
    }
    if (auto const* const members = std::get_if<Members>(&value)) {
        for (Node::Member const& each : *members) {
            if (auto const path = pathTo(each.value, &each, isWanted)) {
                return pointerToken(each.key) + *path;
            }
        }
    }
    return std::nullopt;
}

}  // namespace

Node fromJson(std::string_view text) {
    if (text.size() > kMostBytes) {
        throw TextException("", "has more than " + std::to_string(kMostBytes) + " bytes");
    }
    TreeBuilder builder;
    nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
    return builder.take();
}

std::string pointerTo(Node const& root, Node const* value) {
    return pathTo(root, nullptr, [&](Node const& node, Node::Member const*) { return &node == value; }).value_or("");
}

void requireAllRead(Node const& root) {
    auto const isUnknown = [](Node const&, Node::Member const* member) {
        return member != nullptr && !member->isRead && !isForeign(member);
    };
    if (auto const path = pathTo(root, nullptr, isUnknown)) {
        throw TextException(*path, "is unknown");
    }
}

}  // namespace Quorvel::Dravik::Text::Detail
