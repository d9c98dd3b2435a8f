// SPDX-License-Identifier: Apache-2.0
#include "dravik/text/node.h"

#include "dravik/text/detail/base64.h"
#include "dravik/text/detail/node_access.h"
#include "dravik/text/text_exception.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Text {

namespace {

using Detail::inQuotes;

// The double that the shortest digits of `value` tell, where that is enough to get the float back.
double asShortDouble(float value) {
    if (!std::isfinite(value)) {
        return double{value};
    }
    char digits[32];
    auto const end = std::to_chars(digits, std::end(digits), value).ptr;
    double wide = 0;
    std::from_chars(digits, end, wide);
    return static_cast<float>(wide) == value ? wide : double{value};
}

// What is no number of JSON.
std::optional<double> namedNumber(std::string_view name) {
    using Limits = std::numeric_limits<double>;
    if (name == "NaN") {
        return Limits::quiet_NaN();
    }
    if (name == "Infinity" || name == "-Infinity") {
        return name.front() == '-' ? -Limits::infinity() : Limits::infinity();
    }
    constexpr std::size_t kHexSize = 18;
    std::uint64_t bits = 0;
    bool const isHex = name.size() == kHexSize && name.starts_with("0x") &&
                       std::from_chars(name.data() + 2, name.data() + kHexSize, bits, 16).ptr == name.data() + kHexSize;
    auto const value = std::bit_cast<double>(bits);
    return isHex && std::isnan(value) ? std::optional(value) : std::nullopt;
}

// 1e3 and 3.0 are whole numbers, too.
template <class Value>
std::optional<std::int64_t> wholeNumber(Value const& value) {
    if (std::int64_t const* const whole = std::get_if<std::int64_t>(&value)) {
        return *whole;
    }
    double const* const number = std::get_if<double>(&value);
    bool const isWhole = number != nullptr && std::abs(*number) < 0x1p63 && std::trunc(*number) == *number;
    return isWhole ? std::optional(static_cast<std::int64_t>(*number)) : std::nullopt;
}

constexpr auto kByKey = [](Node::Member const& member, std::string_view key) { return member.key < key; };

// Where `key` stands or would stand.
auto placeOf(auto& members, std::string_view key) {
    return std::lower_bound(members.begin(), members.end(), key, kByKey);
}

template <class T, class Value>
T& madeFromNull(Value& value, char const* other) {
    if (std::holds_alternative<std::monostate>(value)) {
        value = T();
    }
    T* const made = std::get_if<T>(&value);
    return made != nullptr ? *made : throw std::logic_error(other);
}

}  // namespace

std::string Detail::shortened(std::string_view text) {
    constexpr std::size_t kMost = 60;
    std::string cut(text.substr(0, kMost));
    if (cut.size() < text.size()) {
        // No half of a character.
        while (!cut.empty() && (static_cast<unsigned char>(text[cut.size()]) & 0xC0) == 0x80) {
            cut.pop_back();
        }
        cut += "…";
    }
    return cut;
}

std::string Detail::inQuotes(std::string_view text) {
    return '"' + shortened(text) + '"';
}

Node::Node() noexcept = default;
Node::Node(double value) noexcept : value_(value) {}
Node::Node(float value) noexcept : value_(asShortDouble(value)) {}
Node::Node(std::string bytes) noexcept : value_(std::move(bytes)) {}
Node::Node(std::string_view bytes) : value_(std::string(bytes)) {}
Node::Node(char const* bytes) : value_(std::string(bytes)) {}
Node::Node(Node const&) = default;
Node::Node(Node&&) noexcept = default;
Node& Node::operator=(Node const&) = default;
Node& Node::operator=(Node&&) noexcept = default;
Node::~Node() = default;

Node Node::MakeArray() {
    Node node;
    node.value_ = Detail::Elements();
    return node;
}

Node Node::MakeObject() {
    Node node;
    node.value_ = Detail::Members();
    return node;
}

bool Node::asBool() const {
    bool const* const value = std::get_if<bool>(&value_);
    return value != nullptr ? *value : throw TextException(*this, "is neither true nor false");
}

std::int64_t Node::asInteger(std::int64_t lowest, std::int64_t highest) const {
    auto const value = wholeNumber(value_);
    if (!value || *value < lowest || *value > highest) {
        throw TextException(
            *this, "is no whole number from " + std::to_string(lowest) + " to " + std::to_string(highest));
    }
    return *value;
}

double Node::asDouble() const {
    if (double const* const value = std::get_if<double>(&value_)) {
        return *value;
    }
    if (std::int64_t const* const value = std::get_if<std::int64_t>(&value_)) {
        return static_cast<double>(*value);
    }
    std::string const* const name = std::get_if<std::string>(&value_);
    auto const value = name == nullptr ? std::nullopt : namedNumber(*name);
    return value ? *value : throw TextException(*this, "is no number");
}

float Node::asFloat() const {
    double const value = asDouble();
    auto const narrow = static_cast<float>(value);
    if (std::isinf(narrow) && !std::isinf(value)) {
        throw TextException(*this, "is out of the range of float");
    }
    return narrow;
}

std::string Node::asString() const {
    if (std::string const* const value = std::get_if<std::string>(&value_)) {
        return *value;
    }
    Node const* const encoded = isObject() && size() == 1 ? find("bytes") : nullptr;
    if (encoded == nullptr || !encoded->isString()) {
        throw TextException(*this, "is no string");
    }
    auto bytes = Detail::fromBase64(std::get<std::string>(encoded->value_));
    return bytes ? std::move(*bytes) : throw TextException(*encoded, "is no base64");
}

std::size_t Node::size() const {
    if (!isArray() && !isObject()) {
        throw TextException(*this, "is no array and no object");
    }
    return isArray() ? elements().size() : object().size();
}

std::vector<Node> const& Node::elements() const {
    auto const* const value = std::get_if<Detail::Elements>(&value_);
    return value != nullptr ? *value : throw TextException(*this, "is no array");
}

Node const& Node::at(std::size_t index) const {
    auto const& all = elements();
    return index < all.size() ? all[index]
                              : throw TextException(*this, "has " + std::to_string(all.size()) + " elements, too few");
}

std::vector<Node::Member> const& Node::members() const {
    for (Member const& member : object()) {
        member.isRead = true;
    }
    return object();
}

std::vector<Node::Member> const& Node::object() const {
    auto const* const value = std::get_if<Detail::Members>(&value_);
    return value != nullptr ? *value : throw TextException(*this, "is no object");
}

Node const* Node::find(std::string_view key) const {
    auto const& all = object();
    auto const found = placeOf(all, key);
    if (found == all.end() || found->key != key) {
        return nullptr;
    }
    found->isRead = true;
    return &found->value;
}

Node const& Node::at(std::string_view key) const {
    Node const* const found = find(key);
    return found != nullptr ? *found : throw TextException(*this, "has no " + inQuotes(key));
}

Node& Node::set(std::string_view key, Node value) & {
    auto& members = madeFromNull<Detail::Members>(value_, "[Node::set] The node is no object.");
    auto const place = placeOf(members, key);
    if (place != members.end() && place->key == key) {
        place->value = std::move(value);
    } else {
        members.insert(place, Member{std::string(key), std::move(value)});
    }
    return *this;
}

Node& Node::append(Node value) {
    madeFromNull<Detail::Elements>(value_, "[Node::append] The node is no array.").push_back(std::move(value));
    return *this;
}

}  // namespace Quorvel::Dravik::Text
