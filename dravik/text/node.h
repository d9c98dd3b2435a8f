// SPDX-License-Identifier: Apache-2.0
#pragma once

// Node: a tree of values, as JSON knows them. A value; it owns what is below it. Threads: one, readers included, since
// an object notes which of its members were asked for.

#include "dravik/adt/export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace Quorvel::Dravik::Text {

namespace Detail {
struct NodeAccess;
}

/// Null, a bool, a whole number of 64 bits, a double, a string of any bytes, an array, or an object with sorted keys.
///
/// What is read as a type that it is not is refused with a TextException, and so is a number out of that type's range.
/// Numbers mean the same in each type that holds them: 3.0 is 3. Not-a-number and the infinities are written as the
/// strings "NaN", "Infinity" and "-Infinity", a not-a-number of other bits as those ("0xfff8000000000000"), bytes that
/// are no UTF-8 as the object {"bytes":"base64"}; `as` reads all of these forms. Building an object or an array costs
/// memory like std::vector.
///
///     Node node;
///     node.set("path", "relief.vol").set("window", Node::MakeArray(std::array{4, 4}));
///     int const width = node.at("window").at(0).as<int>();
class DRAVIK_ADT_EXPORT Node {
  public:
    struct Member;

    Node() noexcept;  ///< null
    /// A bool, or a whole number.
    template <std::integral Value>
    requires(sizeof(Value) < 8 || std::signed_integral<Value>) Node(Value value)
    noexcept;
    Node(double value) noexcept;
    /// Kept so that the text has the few digits that tell the float, not those of the same double.
    Node(float value) noexcept;
    Node(std::string bytes) noexcept;
    Node(std::string_view bytes);
    Node(char const* bytes);
    Node(Node const&);
    Node(Node&&) noexcept;
    Node& operator=(Node const&);
    Node& operator=(Node&&) noexcept;
    ~Node();

    static Node MakeArray();
    static Node MakeObject();
    /// An array of the elements of `values`, such as a FixedVector.
    template <class Values>
    static Node MakeArray(Values const& values) {
        Node array = MakeArray();
        for (auto const& value : values) {
            array.append(Node(value));
        }
        return array;
    }

    bool isNull() const noexcept { return std::holds_alternative<std::monostate>(value_); }
    bool isString() const noexcept { return std::holds_alternative<std::string>(value_); }
    bool isArray() const noexcept { return std::holds_alternative<std::vector<Node>>(value_); }
    bool isObject() const noexcept { return std::holds_alternative<std::vector<Member>>(value_); }

    /// The value as bool, a whole number, float, double or std::string. A whole number is also a double, the nearest.
    /// @throws TextException "is no string", "is no whole number from -128 to 127", …
    template <class T>
    T as() const {
        if constexpr (std::same_as<T, bool>) {
            return asBool();
        } else if constexpr (std::integral<T>) {
            static_assert(
                sizeof(T) < 8 || std::signed_integral<T>, "Whole numbers of a text have 64 bits with a sign.");
            return static_cast<T>(
                asInteger(std::int64_t{std::numeric_limits<T>::min()}, std::int64_t{std::numeric_limits<T>::max()}));
        } else if constexpr (std::same_as<T, float>) {
            return asFloat();
        } else if constexpr (std::same_as<T, double>) {
            return asDouble();
        } else {
            static_assert(std::same_as<T, std::string>, "Nodes hold no such type.");
            return asString();
        }
    }

    /// The whole number, where it lies in [lowest, highest].
    std::int64_t asInteger(std::int64_t lowest, std::int64_t highest) const;

    /// Elements of an array, members of an object.
    /// @throws TextException "is no array and no object"
    std::size_t size() const;

    /// An array's elements, in order.
    /// @throws TextException "is no array"
    std::vector<Node> const& elements() const;
    /// @throws TextException "is no array", "has fewer than 3 elements"
    Node const& at(std::size_t index) const;

    /// An object's members, sorted by the bytes of their keys. All of them count as read from then on.
    /// @throws TextException "is no object"
    std::vector<Member> const& members() const;
    /// The member of that key, which counts as read from then on; null where there is none.
    /// @throws TextException "is no object"
    Node const* find(std::string_view key) const;
    /// The same, but refused where there is none: "has no "path"".
    Node const& at(std::string_view key) const;

    /// Puts `value` into this object, in place of an earlier one of that key; null becomes an object first.
    /// @throws std::logic_error where this is neither
    Node& set(std::string_view key, Node value) &;
    Node&& set(std::string_view key, Node value) && { return std::move(set(key, std::move(value))); }
    /// Puts `value` behind the elements of this array; null becomes an array first. The node stays where it is in
    /// memory.
    /// @throws std::logic_error where this is neither
    Node& append(Node value);

  private:
    friend struct Detail::NodeAccess;

    std::vector<Member> const& object() const;
    bool asBool() const;
    double asDouble() const;
    float asFloat() const;
    std::string asString() const;

    std::variant<std::monostate, bool, std::int64_t, double, std::string, std::vector<Node>, std::vector<Member>>
        value_;
};

/// A value of an object with its key.
struct Node::Member {
    std::string key;
    Node value;
    mutable bool isRead = false;  ///< somebody asked for it
};

template <std::integral Value>
requires(sizeof(Value) < 8 || std::signed_integral<Value>) Node::Node(Value value)
noexcept : value_(std::conditional_t<std::same_as<Value, bool>, bool, std::int64_t>{value}) {}

}  // namespace Quorvel::Dravik::Text
