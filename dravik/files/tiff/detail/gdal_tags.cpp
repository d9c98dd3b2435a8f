// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/detail/gdal_tags.h"

#include <charconv>
#include <string_view>
#include <utility>

namespace Quorvel::Dravik::Files::Detail {

namespace {

constexpr std::pair<char const*, char const*> kEscapes[] = {{"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}};

std::string escaped(std::string const& text) {
    std::string all;
    for (char const c : text) {
        char const* replacement = nullptr;
        for (auto const& [escape, plain] : kEscapes) {
            replacement = c == plain[0] ? escape : replacement;
        }
        replacement == nullptr ? all.push_back(c) : static_cast<void>(all.append(replacement));
    }
    return all;
}

std::string unescaped(std::string text) {
    for (auto const& [escape, plain] : kEscapes) {
        std::string_view const from = escape;
        for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + 1)) {
            text.replace(at, from.size(), plain);
        }
    }
    return text;
}

}  // namespace

std::optional<double> missingValueOf(TiffHandle& file) {
    auto const text = file.text(kGdalMissingTag);
    auto const begin = text.find_first_not_of(" +");
    double value = 0;
    if (begin == std::string::npos ||
        std::from_chars(text.data() + begin, text.data() + text.size(), value).ec != std::errc()) {
        return std::nullopt;
    }
    return value;
}

std::string valueUnitOf(TiffHandle& file) {
    auto const metadata = file.text(kGdalMetadataTag);
    auto const item = metadata.find("role=\"unittype\"");
    auto const begin = item == std::string::npos ? item : metadata.find('>', item);
    auto const end = begin == std::string::npos ? begin : metadata.find('<', begin);
    return end == std::string::npos ? "" : unescaped(metadata.substr(begin + 1, end - begin - 1));
}

void setGdalTags(TiffHandle& file, std::optional<double> missingValue, std::string const& unit) {
    char metadataName[] = "GDALMetadata", missingName[] = "GDALNoDataValue";
    TIFFFieldInfo const fields[] = {
        {kGdalMetadataTag, TIFF_VARIABLE, TIFF_VARIABLE, TIFF_ASCII, FIELD_CUSTOM, 1, 0, metadataName},
        {kGdalMissingTag, TIFF_VARIABLE, TIFF_VARIABLE, TIFF_ASCII, FIELD_CUSTOM, 1, 0, missingName}};
    file.require(TIFFMergeFieldInfo(file.get(), fields, 2) == 0, "cannot be written");
    if (missingValue) {
        char text[32] = {};
        std::to_chars(text, text + sizeof text - 1, *missingValue);
        TIFFSetField(file.get(), kGdalMissingTag, text);
    }
    if (!unit.empty()) {
        // All bands have the unit of the first.
        auto const text = "<GDALMetadata>\n  <Item name=\"UNITTYPE\" sample=\"0\" role=\"unittype\">" + escaped(unit) +
                          "</Item>\n</GDALMetadata>\n";
        TIFFSetField(file.get(), kGdalMetadataTag, text.c_str());
    }
}

}  // namespace Quorvel::Dravik::Files::Detail
