// SPDX-License-Identifier: Apache-2.0
#include "dravik/text/definition_text.h"
#include "dravik/text/detail/base64.h"
#include "dravik/text/detail/json.h"
#include "dravik/text/detail/node_access.h"
#include "dravik/text/text_exception.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>

namespace Quorvel::Dravik::Text::Detail {

namespace {

bool isPlain(char character) {
    return character >= ' ' && character <= '~' && character != '"' && character != '\\';
}

// Appends values to a text. Levels are those of objects and arrays around the value.
class TreeWriter {
  public:
    std::string take() { return std::move(text_); }

    void write(Node const& node, int level) {
        std::visit([&](auto const& value) { write(value, level); }, NodeAccess::value(node));
        if (text_.size() > kMostBytes) {
            throw TextException("", "has more than " + std::to_string(kMostBytes) + " bytes");
        }
    }

  private:
    void write(std::monostate, int) { text_ += "null"; }
    void write(bool value, int) { text_ += value ? "true" : "false"; }
    void write(std::int64_t value, int) { writeDigits(value); }
    void write(double value, int) {
        if (std::isnan(value)) {
            writeNotANumber(std::bit_cast<std::uint64_t>(value));
        } else if (std::isinf(value)) {
            text_ += value < 0 ? R"("-Infinity")" : R"("Infinity")";
        } else if (value == 0 && std::signbit(value)) {
            text_ += "-0.0";  // "-0" is a whole number, and those have one zero
        } else {
            writeDigits(value);
        }
    }
    void write(std::string const& value, int level) {
        if (!writeUtf8(value)) {
            requireLevel(level);
            text_ += R"({"bytes":")" + toBase64(value) + R"("})";
        }
    }
    void write(Elements const& elements, int level) {
        requireLevel(level);
        text_ += '[';
        for (Node const& element : elements) {
            text_ += &element == elements.data() ? "" : ",";
            write(element, level + 1);
        }
        text_ += ']';
    }
    void write(Members const& members, int level) {
        requireLevel(level);
        text_ += '{';
        for (Node::Member const& member : members) {
            text_ += &member == members.data() ? "" : ",";
            if (!writeUtf8(member.key)) {
                throw TextException("", "has a key that is no UTF-8");
            }
            text_ += ':';
            write(member.value, level + 1);
        }
        text_ += '}';
    }

    void writeNotANumber(std::uint64_t bits) {
        if (bits == std::bit_cast<std::uint64_t>(std::numeric_limits<double>::quiet_NaN())) {
            text_ += R"("NaN")";
        } else {
            text_ += R"("0x)";
            writeDigits(bits, 16);  // the exponent of one has no leading zeros
            text_ += '"';
        }
    }

    template <class... Format>
    void writeDigits(auto value, Format... format) {
        char digits[32];
        text_.append(digits, std::to_chars(digits, std::end(digits), value, format...).ptr);
    }

    // Writes `value` in quotes; nothing, and false, where it is no UTF-8.
    bool writeUtf8(std::string const& value) {
        if (std::all_of(value.begin(), value.end(), isPlain)) {
            text_.append(1, '"').append(value).append(1, '"');
            return true;
        }
        try {
            text_ += nlohmann::json(value).dump();
            return true;
        } catch (nlohmann::json::type_error const&) {
            return false;
        }
    }

    static void requireLevel(int level) {
        if (level == kMostLevels) {
            throw TextException("", "nests deeper than " + std::to_string(kMostLevels) + " levels");
        }
    }

    std::string text_;
};

}  // namespace

std::string toJson(Node const& root) {
    TreeWriter writer;
    writer.write(root, 0);
    return writer.take();
}

}  // namespace Quorvel::Dravik::Text::Detail
