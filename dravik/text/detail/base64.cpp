// SPDX-License-Identifier: Apache-2.0
#include "dravik/text/detail/base64.h"

#include <algorithm>
#include <cstdint>

namespace Quorvel::Dravik::Text::Detail {

namespace {

constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string toBase64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t begin = 0; begin < bytes.size(); begin += 3) {
        std::uint32_t bits = 0;
        for (std::size_t i = begin; i < begin + 3; ++i) {
            bits = bits << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u);
        }
        for (unsigned shift = 24; shift != 0;) {
            shift -= 6;
            text += kLetters[bits >> shift & 63];
        }
    }
    for (std::size_t missing = (3 - bytes.size() % 3) % 3; missing > 0; --missing) {
        text[text.size() - missing] = '=';
    }
    return text;
}

std::optional<std::string> fromBase64(std::string_view text) {
    auto const letters = text.substr(0, text.find('='));
    std::string bytes;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < letters.size(); ++i) {
        auto const value = kLetters.find(letters[i]);
        if (value == std::string_view::npos) {
            return std::nullopt;
        }
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        if (i % 4 != 0) {
            bytes += static_cast<char>(bits >> (6 - i % 4 * 2) & 0xFF);
        }
    }
    // One spelling for the same bytes: neither bits nor padding left over.
    return toBase64(bytes) == text ? std::optional(std::move(bytes)) : std::nullopt;
}

}  // namespace Quorvel::Dravik::Text::Detail
