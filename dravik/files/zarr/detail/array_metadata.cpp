// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/zarr/detail/array_metadata.h"

#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/files/zarr/detail/chunk_files.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Files::Detail {

namespace {

using Json = nlohmann::json;

constexpr std::int64_t kMostChunkBytes = INT_MAX - 64;  // blosc adds up to 16

[[noreturn]] void refuse(std::string const& what) {
    throw std::runtime_error(what);
}

// In one line, whatever it is.
std::string shown(Json const& value) {
    auto text = value.dump(-1, ' ', /*ensure_ascii=*/true);
    constexpr std::size_t kMost = 60;
    return text.size() <= kMost ? text : text.substr(0, kMost) + "...";
}

Json parsed(std::string_view text) {
    auto value = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
    if (!value.is_object()) {
        refuse("is no JSON object");
    }
    return value;
}

Json const& member(Json const& object, char const* key) {
    static Json const& none = *new Json();
    auto const found = object.find(key);
    return found == object.end() ? none : *found;
}

// Nothing for what is no whole number of 64 bits.
std::optional<std::int64_t> wholeNumber(Json const& value) {
    if (value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX) {
        return std::nullopt;
    }
    if (value.is_number_float()) {
        constexpr double kMost = 1LL << 53;
        double const number = value.get<double>();
        return std::abs(number) <= kMost && std::trunc(number) == number
                   ? std::optional(static_cast<std::int64_t>(number))
                   : std::nullopt;
    }
    return value.is_number() ? std::optional(value.get<std::int64_t>()) : std::nullopt;
}

std::vector<int> lengthsOf(Json const& array, char const* key) {
    Json const& values = member(array, key);
    if (!values.is_array() || values.empty() || values.size() > 4) {
        refuse(std::string(key) + " is no list of one to four numbers but " + shown(values));
    }
    std::vector<int> lengths;
    for (Json const& each : values) {
        auto const length = wholeNumber(each).value_or(0);
        if (length < 1 || length > INT_MAX) {
            refuse(std::string(key) + " has an axis of " + shown(each) + " samples");
        }
        lengths.push_back(static_cast<int>(length));
    }
    return lengths;
}

int numberOf(Json const& object, char const* key, int lowest, int highest, int otherwise) {
    Json const& value = member(object, key);
    if (value.is_null()) {
        return otherwise;
    }
    auto const number = wholeNumber(value);
    if (!number || *number < lowest || *number > highest) {
        refuse(std::string("the compressor's ") + key + " is " + shown(value));
    }
    return static_cast<int>(*number);
}

Compression compressionOf(Json const& compressor) {
    Compression how;
    if (compressor.is_null()) {
        return how;
    }
    Json const& id = compressor.is_object() ? member(compressor, "id") : compressor;
    if (id == "blosc") {
        how.kind = Compression::Kind::Blosc;
        how.level = numberOf(compressor, "clevel", 0, 9, 5);
        how.bloscShuffle = numberOf(compressor, "shuffle", -1, 2, 1);
        how.bloscBlockBytes = numberOf(compressor, "blocksize", 0, INT_MAX, 0);
        Json const& name = member(compressor, "cname");
        how.bloscName = name.is_string() ? name.get<std::string>() : "lz4";
    } else if (id == "zstd") {
        how.kind = Compression::Kind::Zstd;
        how.level = numberOf(compressor, "level", -131072, 22, 1);
    } else if (id == "zlib") {
        how.kind = Compression::Kind::Zlib;
        how.level = numberOf(compressor, "level", -1, 9, 1);
    } else {
        refuse("the compressor is none of blosc, zstd and zlib but " + shown(id));
    }
    return how;
}

void setType(ArrayMetadata& array, Json const& dtype) {
    auto const text = dtype.is_string() ? dtype.get<std::string>() : std::string();
    constexpr std::pair<char const*, char const*> kTypes[] = {
        {"b1", "uint8"}, {"i1", "int8"},   {"u1", "uint8"}, {"i2", "int16"},   {"u2", "uint16"},
        {"i4", "int32"}, {"u4", "uint32"}, {"i8", "int64"}, {"f4", "float32"}, {"f8", "float64"},
    };
    auto const found = std::find_if(std::begin(kTypes), std::end(kTypes), [&](auto const& each) {
        return text.size() == 3 && text.substr(1) == each.first;
    });
    if (found == std::end(kTypes) || std::string_view("<>|").find(text[0]) == std::string_view::npos) {
        refuse("samples of type " + shown(dtype) + " cannot be shown");
    }
    array.sampleType = Adt::sampleTypeNamed(found->second);
    array.sampleBytes = Adt::TypeRegister::sizeofTypeInBits(*array.sampleType) / 8;
    bool const isBig = text[0] == '>';
    array.isSwapped = array.sampleBytes > 1 && isBig == (std::endian::native == std::endian::little);
}

template <class T>
bool putFill(std::type_info const& type, Json const& value, std::string& bytes) {
    if (type != typeid(T) && !(std::is_same_v<T, signed char> && type == typeid(char))) {
        return false;
    }
    T sample{};
    if constexpr (std::is_floating_point_v<T>) {
        constexpr T kInfinity = std::numeric_limits<T>::infinity();
        if (value == "NaN") {
            sample = std::numeric_limits<T>::quiet_NaN();
        } else if (value == "Infinity" || value == "-Infinity") {
            sample = value == "Infinity" ? kInfinity : -kInfinity;
        } else if (value.is_number() && std::abs(value.get<double>()) <= std::numeric_limits<T>::max()) {
            sample = static_cast<T>(value.get<double>());
        } else {
            refuse("fill_value is " + shown(value));
        }
    } else {
        auto const number = value.is_boolean() ? std::optional<std::int64_t>(value.get<bool>()) : wholeNumber(value);
        if (!number || !std::in_range<T>(*number)) {
            refuse("fill_value is " + shown(value));
        }
        sample = static_cast<T>(*number);
    }
    bytes.assign(reinterpret_cast<char const*>(&sample), sizeof sample);
    return true;
}

std::optional<std::string> fillOf(std::type_info const& type, Json const& value) {
    std::string bytes;
    if (value.is_null()) {
        return std::nullopt;
    }
    auto const put = [&]<class... T>(T...) { return (putFill<T>(type, value, bytes) || ...); };
    static_cast<void>(
        put(static_cast<signed char>(0), static_cast<unsigned char>(0), short(), static_cast<unsigned short>(0), 0, 0u,
            std::int64_t(), 0.f, 0.));
    return bytes;
}

void setArray(ArrayMetadata& array, Json const& json) {
    if (Json const& format = member(json, "zarr_format"); format != 2) {
        refuse("is of Zarr version " + shown(format) + ", not 2");
    }
    array.shape = lengthsOf(json, "shape");
    auto const chunks = lengthsOf(json, "chunks");
    if (chunks.size() != array.shape.size()) {
        refuse(
            "shape and chunks have " + std::to_string(array.shape.size()) + " and " + std::to_string(chunks.size()) +
            " axes");
    }
    array.size = array.chunk = Adt::FixedVector<4, int>::Filled(1);
    setType(array, member(json, "dtype"));
    std::int64_t bytes = array.sampleBytes;
    for (std::size_t axis = 0; axis < chunks.size(); ++axis) {
        array.size[static_cast<int>(axis)] = array.shape[axis];
        array.chunk[static_cast<int>(axis)] = chunks[axis];
        if (bytes *= chunks[axis]; bytes > kMostChunkBytes) {
            refuse("chunks of 2 GiB and more cannot be read");
        }
    }
    Json const& order = member(json, "order");
    if (order != "C" && order != "F") {
        refuse("order is neither C nor F but " + shown(order));
    }
    array.isFortran = order == "F";
    Json const& separator = member(json, "dimension_separator");
    if (!separator.is_null() && separator != "." && separator != "/") {
        refuse("dimension_separator is " + shown(separator));
    }
    array.separator = separator == "/" ? '/' : '.';
    if (Json const& filters = member(json, "filters"); !filters.is_null() && filters != Json::array()) {
        refuse("filters cannot be read: " + shown(filters));
    }
    array.compression = compressionOf(member(json, "compressor"));
    array.fill = fillOf(*array.sampleType, member(json, "fill_value"));
}

void setAttributes(ArrayMetadata& array, Json const& json) {
    array.axes.resize(array.shape.size());
    for (auto const& [key, value] : json.items()) {
        if (key == "_ARRAY_DIMENSIONS" && value.is_array() && value.size() == array.shape.size()) {
            std::transform(value.begin(), value.end(), array.axes.begin(), [](Json const& name) {
                return name.is_string() ? name.get<std::string>() : std::string();
            });
        } else if (key == "units" && value.is_string()) {
            array.unit = value.get<std::string>();
        } else {
            array.attributes.emplace_back(key, value.is_string() ? value.get<std::string>() : value.dump());
        }
    }
}

ArrayMetadata metadataOf(std::string const& place, Json const& zarray, Json const* zattrs) {
    try {
        ArrayMetadata array;
        setArray(array, zarray);
        setAttributes(array, zattrs != nullptr && zattrs->is_object() ? *zattrs : Json::object());
        return array;
    } catch (Json::exception const&) {
        refuse(place + ": is no metadata of an array");
    } catch (std::runtime_error const& error) {
        refuse(place + ": " + error.what());
    }
}

Json parsed(std::string const& place, std::string_view text) {
    try {
        return parsed(text);
    } catch (std::runtime_error const& error) {
        refuse(place + ": " + error.what());
    }
}

// The consolidated metadata of a group; null where there are none.
Json consolidated(std::filesystem::path const& root) {
    std::string text;
    auto const path = root / ".zmetadata";
    if (!readWhole(path, text)) {
        return {};
    }
    auto const json = parsed(path.string(), text);
    Json const& metadata = member(json, "metadata");
    return metadata.is_object() ? metadata : Json();
}

}  // namespace

std::int64_t ArrayMetadata::chunkSamples() const noexcept {
    std::int64_t samples = 1;
    for (int axis = 0; axis < 4; ++axis) {
        samples *= chunk[axis];
    }
    return samples;
}

ArrayMetadata arrayMetadataOf(std::string const& place, std::string_view zarray, std::string_view zattrs) {
    auto const attributes = zattrs.empty() ? Json() : parsed(place, zattrs);
    return metadataOf(place, parsed(place, zarray), &attributes);
}

std::filesystem::path arrayFolder(std::filesystem::path const& root, std::string const& array) {
    std::filesystem::path const below(array);
    if (below.is_absolute() || std::find(below.begin(), below.end(), "..") != below.end() ||
        array.find('\0') != std::string::npos) {
        throw std::invalid_argument("[ZarrFileDef] Invalid argument: an array \"" + array + "\".");
    }
    return array.empty() ? root : root / below;
}

std::optional<ArrayMetadata> findArray(std::filesystem::path const& root, std::string const& array) {
    auto const folder = arrayFolder(root, array);
    std::string zarray, zattrs;
    if (readWhole(folder / ".zarray", zarray)) {
        readWhole(folder / ".zattrs", zattrs);
        return arrayMetadataOf(folder.string(), zarray, zattrs);
    }
    auto const group = consolidated(root);
    auto const prefix = array.empty() ? array : array + "/";
    auto const found = group.find(prefix + ".zarray");
    if (group.is_null() || found == group.end()) {
        return std::nullopt;
    }
    auto const attributes = group.find(prefix + ".zattrs");
    return metadataOf(folder.string(), *found, attributes == group.end() ? nullptr : &*attributes);
}

std::vector<std::string> arraysBelow(std::filesystem::path const& root) {
    namespace Disk = std::filesystem;
    std::set<std::string> names;
    if (Disk::exists(root / ".zarray")) {
        return {""};
    }
    for (auto each = Disk::recursive_directory_iterator(root); each != Disk::recursive_directory_iterator(); ++each) {
        if (each->is_directory() && Disk::exists(each->path() / ".zarray")) {
            names.insert(each->path().lexically_relative(root).generic_string());
            each.disable_recursion_pending();  // there are chunks alone, and perhaps very many
        }
    }
    auto const group = consolidated(root);
    for (auto const& [key, value] : group.items()) {
        constexpr std::string_view kEnd = "/.zarray";
        if (key.ends_with(kEnd)) {
            names.insert(key.substr(0, key.size() - kEnd.size()));
        }
    }
    return {names.begin(), names.end()};
}

}  // namespace Quorvel::Dravik::Files::Detail
