// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/zarr/zarr_file.h"

#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/files/shared/chunk_shape.h"
#include "dravik/files/zarr/detail/array_metadata.h"
#include "dravik/files/zarr/detail/chunk_files.h"
#include "dravik/files/zarr/detail/zarr_store.h"
#include "dravik/text/forms.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files {

using Detail::ArrayMetadata;
using Box = Adt::OpenEndedRange<4, int>;

namespace {

constexpr int kMostCoordinates = 1 << 24;

std::runtime_error noArray(ZarrFileDef const& file) {
    std::string others;
    for (std::string const& other : zarrArrays(file.path())) {
        others.append(others.empty() ? "" : ", ").append(other.empty() ? "one at the path itself" : other);
    }
    return std::runtime_error(
        file.path().string() + ": no array \"" + file.array() + "\"; there are " + (others.empty() ? "none" : others));
}

// Zarr arrays know their axes by the names of their neighbours.
std::string besides(std::string const& array, std::string const& name) {
    auto const end = array.rfind('/');
    return end == std::string::npos ? name : array.substr(0, end + 1) + name;
}

template <class T>
bool appendSamples(Adt::BulkView::IBrickStore const& store, std::vector<double>& values) {
    if (*store.traits().sampleType != typeid(T)) {
        return false;
    }
    auto const box = Box::OfSize(store.size());
    std::vector<T> samples(static_cast<std::size_t>(box.pointCount()));
    store.read(box, samples.data());
    std::transform(samples.begin(), samples.end(), std::back_inserter(values), [](T sample) {
        return static_cast<double>(sample);
    });
    return true;
}

// Those of a neighbour that can be read; an axis does without them where it cannot.
void setCoordinates(Adt::BulkView::DataAxis& axis, ZarrFileDef const& file, int count) {
    auto const name = besides(file.array(), axis.name);
    if (file.array().empty() || axis.name.empty() || name == file.array() || axis.name.find('/') != std::string::npos) {
        return;
    }
    try {
        auto const array = Detail::findArray(file.path(), name);
        if (!array || array->shape != std::vector{count} || count > kMostCoordinates) {
            return;
        }
        auto const store = Detail::makeZarrStore(Detail::arrayFolder(file.path(), name), *array, /*writable=*/false);
        auto const append = [&]<class... T>(T...) { return (appendSamples<T>(*store, axis.coordinates) || ...); };
        append(
            char(), static_cast<unsigned char>(0), short(), static_cast<unsigned short>(0), 0, 0u, std::int64_t(), 0.f,
            0.);
        axis.unit = array->unit;
    } catch (std::runtime_error const&) {
        axis.coordinates.clear();
    } catch (std::invalid_argument const&) {
        axis.coordinates.clear();
    }
}

Adt::BulkView::DataInfo infoOf(ZarrFileDef const& file, ArrayMetadata const& array) {
    Adt::BulkView::DataInfo info;
    info.axisCount = static_cast<int>(array.shape.size());
    for (std::size_t axis = 0; axis < array.axes.size(); ++axis) {
        info.axes[axis].name = array.axes[axis];
        setCoordinates(info.axes[axis], file, array.shape[axis]);
    }
    auto const begin = file.array().rfind('/');
    info.valueName = begin == std::string::npos ? file.array() : file.array().substr(begin + 1);
    info.valueUnit = array.unit;
    info.attributes = array.attributes;
    return info;
}

// The one with most samples that is no coordinate of an axis.
std::string mainArray(std::filesystem::path const& path) {
    std::optional<std::string> main;
    double most = -1;
    for (std::string const& name : zarrArrays(path)) {
        auto const array = Detail::findArray(path, name);
        double samples = 1;
        for (int const length : array->shape) {
            samples *= length;
        }
        bool const isCoordinate = array->axes.size() == 1 && besides(name, array->axes[0]) == name;
        if (!isCoordinate && samples > most) {
            main = name;
            most = samples;
        }
    }
    if (!main) {
        // Tells what is wrong with an array that is the only one.
        static_cast<void>(Detail::findArray(path, ""));
        throw std::runtime_error(path.string() + ": has no array of one to four axes that can be opened");
    }
    return *main;
}

boost::shared_ptr<Adt::BulkDef::SourceDef const> recognise(
    std::filesystem::path const& path, std::string const& variable) {
    auto const has = [&](char const* name) {
        std::error_code none;
        return std::filesystem::exists(path / name, none);
    };
    if (!has(".zarray") && !has(".zgroup") && !has(".zmetadata")) {
        return nullptr;
    }
    auto def = boost::make_shared<ZarrFileDef const>(path, variable.empty() ? mainArray(path) : variable);
    if (!Detail::findArray(path, def->array())) {
        throw noArray(*def);
    }
    return def;
}

[[noreturn]] void refuse(std::string const& what) {
    throw std::invalid_argument("[ZarrLayout] Invalid argument: " + what + ".");
}

std::string dtypeOf(ZarrLayout const& layout) {
    constexpr std::pair<char const*, char const*> kTypes[] = {{"int8", "i1"},   {"uint8", "u1"},   {"int16", "i2"},
                                                              {"uint16", "u2"}, {"int32", "i4"},   {"uint32", "u4"},
                                                              {"int64", "i8"},  {"float32", "f4"}, {"float64", "f8"}};
    for (auto const& [name, code] : kTypes) {
        if (layout.sampleType == name) {
            bool const isBig = layout.byteOrder == ZarrLayout::ByteOrder::Big;
            std::string dtype(1, code[1] == '1' ? '|' : isBig ? '>' : '<');
            return dtype += code;
        }
    }
    refuse("no samples of type \"" + layout.sampleType + "\"");
}

nlohmann::json fillOf(ZarrLayout const& layout) {
    bool const isFloat = layout.sampleType.starts_with("float");
    double const fill = layout.fillValue.value_or(isFloat ? std::numeric_limits<double>::quiet_NaN() : 0);
    if (isFloat && std::isnan(fill)) {
        return "NaN";
    }
    if (isFloat && std::isinf(fill)) {
        return fill > 0 ? "Infinity" : "-Infinity";
    }
    constexpr double kMost = 1LL << 62;
    if (isFloat || std::abs(fill) > kMost || std::trunc(fill) != fill) {
        return fill;  // one that is no integer is refused with all the rest
    }
    return static_cast<std::int64_t>(fill);
}

nlohmann::json compressorOf(ZarrLayout const& layout) {
    if (layout.level < 1 || layout.level > 9) {
        refuse("a level of compression of " + std::to_string(layout.level));
    }
    switch (layout.compressor) {
    case ZarrLayout::Compressor::Blosc:
        return {{"id", "blosc"}, {"cname", "lz4"}, {"clevel", layout.level}, {"shuffle", 1}, {"blocksize", 0}};
    case ZarrLayout::Compressor::Zstd:
        return {{"id", "zstd"}, {"level", layout.level}};
    case ZarrLayout::Compressor::Zlib:
        return {{"id", "zlib"}, {"level", layout.level}};
    case ZarrLayout::Compressor::None:
        break;
    }
    return nullptr;
}

std::string zarrayOf(ZarrLayout const& layout) {
    auto const dtype = dtypeOf(layout);
    nlohmann::json zarray;
    zarray["zarr_format"] = 2;
    zarray["shape"] = layout.shape;
    zarray["chunks"] = layout.chunks.empty() ? chunkShape(layout.shape, dtype[2] - '0') : layout.chunks;
    zarray["dtype"] = dtype;
    zarray["fill_value"] = fillOf(layout);
    zarray["order"] = layout.order == ZarrLayout::Order::F ? "F" : "C";
    zarray["filters"] = nullptr;
    zarray["compressor"] = compressorOf(layout);
    return zarray.dump(4);
}

std::string zattrsOf(ZarrLayout const& layout) {
    auto zattrs = nlohmann::json::object();
    if (!layout.axisNames.empty()) {
        zattrs["_ARRAY_DIMENSIONS"] = layout.axisNames;
    }
    if (!layout.unit.empty()) {
        zattrs["units"] = layout.unit;
    }
    try {
        return zattrs.dump(4);
    } catch (nlohmann::json::exception const&) {
        refuse("a unit or a name of an axis is no UTF-8");
    }
}

void makeGroup(std::filesystem::path const& path) {
    std::filesystem::create_directories(path);
    if (std::filesystem::exists(path / ".zarray")) {
        throw std::system_error(std::make_error_code(std::errc::not_a_directory), path.string() + ": is an array");
    }
    if (!std::filesystem::exists(path / ".zgroup")) {
        Detail::replaceWhole(path / ".zgroup", std::string_view("{\n    \"zarr_format\": 2\n}"));
    }
}

Text::Node written(ZarrFileDef const& file, Text::DefinitionWriter& /*writer*/) {
    Text::Node node;
    node.set("path", file.path().native()).set("array", file.array()).set("writable", file.options().isWritable);
    return node;
}

boost::shared_ptr<ZarrFileDef const> read(Text::Node const& node, Text::DefinitionReader& /*reader*/) {
    auto const* const array = node.find("array");
    auto const* const writable = node.find("writable");
    ZarrFileDef::Options options;
    options.isWritable = writable != nullptr && writable->as<bool>();
    return boost::make_shared<ZarrFileDef const>(
        node.at("path").as<std::string>(), array == nullptr ? std::string() : array->as<std::string>(), options);
}

// At load, so that whoever links or loads this library can open its arrays.
[[maybe_unused]] bool const kIsRegistered = [] {
    registerZarr(Adt::BulkView::Openers::standard());
    Text::Forms::standard().add<ZarrFileDef>("ZarrFile", written, read);
    return true;
}();

}  // namespace

ZarrFileDef::ZarrFileDef(std::filesystem::path path, std::string array)
    : ZarrFileDef(std::move(path), std::move(array), Options()) {}

ZarrFileDef::ZarrFileDef(std::filesystem::path path, std::string array, Options options)
    : path_(std::move(path)), array_(std::move(array)), options_(options) {}

int ZarrFileDef::getHashCode() const {
    return Adt::Hasher(47)(path_.native())(array_);
}

void ZarrFileDef::print(std::ostream& out) const {
    out << "ZarrFileDef(" << path_ << ", " << std::quoted(array_) << ")";
}

bool ZarrFileDef::compare(Adt::BulkDef::SourceDef const& other) const {
    auto const* const file = dynamic_cast<ZarrFileDef const*>(&other);
    return file != nullptr && path_.native() == file->path_.native() && array_ == file->array_ &&
           options_ == file->options_;
}

std::unique_ptr<Adt::BulkDef::SourceDef> ZarrFileDef::makeClone() const {
    return std::make_unique<ZarrFileDef>(path_, array_, options_);
}

ZarrArray openZarrArray(ZarrFileDef const& file) {
    auto const array = Detail::findArray(file.path(), file.array());
    if (!array) {
        throw noArray(file);
    }
    auto folder = Detail::arrayFolder(file.path(), file.array());
    return {Detail::makeZarrStore(std::move(folder), *array, file.options().isWritable), infoOf(file, *array)};
}

Adt::BulkView::OpenedData openZarr(ZarrFileDef const& file, Adt::BulkView::Openers const& openers) {
    auto opened = openZarrArray(file);
    return {Adt::BulkView::StoreAccessor::Make(std::move(opened.store), openers.pool()), std::move(opened.info)};
}

std::vector<std::string> zarrArrays(std::filesystem::path const& path) {
    auto names = Detail::arraysBelow(path);
    auto const cannotBeOpened = [&](std::string const& name) {
        try {
            return !Detail::findArray(path, name);
        } catch (std::runtime_error const&) {
            return true;
        } catch (std::invalid_argument const&) {
            return true;
        }
    };
    names.erase(std::remove_if(names.begin(), names.end(), cannotBeOpened), names.end());
    return names;
}

void createZarr(std::filesystem::path const& path, ZarrLayout const& layout) {
    auto const zarray = zarrayOf(layout), zattrs = zattrsOf(layout);
    try {
        // What can be made can be opened.
        auto const array = Detail::arrayMetadataOf("[ZarrLayout] Invalid argument", zarray, zattrs);
        if (!layout.axisNames.empty() && array.shape.size() != layout.axisNames.size()) {
            refuse("not as many names as axes");
        }
    } catch (std::runtime_error const& error) {
        throw std::invalid_argument(error.what());
    }
    auto const folder = Detail::arrayFolder(path, layout.array);
    if (layout.array.empty()) {
        std::filesystem::create_directories(std::filesystem::absolute(folder).parent_path());
    } else {
        makeGroup(path);
        std::filesystem::path group = path;
        for (auto const& name : std::filesystem::path(layout.array).parent_path()) {
            makeGroup(group /= name);
        }
    }
    if (!std::filesystem::create_directory(folder)) {
        throw std::system_error(std::make_error_code(std::errc::file_exists), folder.string());
    }
    Detail::replaceWhole(folder / ".zattrs", zattrs);
    Detail::replaceWhole(folder / ".zarray", zarray);
}

void registerZarr(Adt::BulkView::Openers& openers) {
    openers.addSource<ZarrFileDef>(openZarr);
    openers.addFormat("Zarr", recognise);
}

}  // namespace Quorvel::Dravik::Files
