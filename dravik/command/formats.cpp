// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/formats.h"

#ifdef DRAVIK_COMMAND_HAS_FILES_HDF5
#include "dravik/files/hdf5/hdf5_file.h"
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_NETCDF
#include "dravik/files/netcdf/netcdf_file.h"
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_RAW
#include "dravik/files/raw/raw_file.h"
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_SEGY
#include "dravik/files/segy/segy_file.h"
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_TIFF
#include "dravik/files/tiff/tiff_file.h"
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_ZARR
#include "dravik/files/zarr/zarr_file.h"
#endif

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

namespace Quorvel::Dravik::Command {

namespace {

using Adt::BulkDef::SourceDef;
using Adt::BulkView::DataAxis;
using Path = std::filesystem::path;

template <class Def>
bool isSource(SourceDef const& source) {
    return dynamic_cast<Def const*>(&source) != nullptr;
}

bool isIdentifier(std::string const& name) {
    bool const isMadeOfWords = std::all_of(
        name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) != 0 || letter == '_'; });
    return !name.empty() && isMadeOfWords && std::isdigit(static_cast<unsigned char>(name[0])) == 0;
}

// The names of the axes where all of them have one of their own, else none.
std::vector<std::string> axisNames(OutputLayout const& layout) {
    std::vector<std::string> names;
    for (std::size_t axis = 0; axis < layout.shape.size(); ++axis) {
        names.push_back(layout.info.axes[axis].name);
    }
    bool const areUsable = std::all_of(names.begin(), names.end(), isIdentifier) &&
                           std::set(names.begin(), names.end()).size() == names.size();
    return areUsable ? names : std::vector<std::string>();
}

std::string variableName(OutputLayout const& layout) {
    return isIdentifier(layout.info.valueName) ? layout.info.valueName : "samples";
}

#ifdef DRAVIK_COMMAND_HAS_FILES_NETCDF
SourcePtr createNetcdf(Path const& path, OutputLayout const& layout) {
    Files::NetcdfLayout file;
    file.variable = variableName(layout);
    file.shape = layout.shape;
    file.sampleType = layout.sampleType;
    file.axisNames = axisNames(layout);
    if (!file.axisNames.empty()) {
        file.axes.assign(layout.info.axes.begin(), layout.info.axes.begin() + static_cast<int>(layout.shape.size()));
    }
    file.chunks = layout.chunks;
    file.unit = layout.info.valueUnit;
    Files::createNetcdf(path, file);
    return boost::make_shared<Files::NetcdfFileDef>(
        path, file.variable, Files::NetcdfFileDef::Options{.isPacked = false, .isWritable = true});
}
#endif

#ifdef DRAVIK_COMMAND_HAS_FILES_HDF5
SourcePtr createHdf5(Path const& path, OutputLayout const& layout) {
    Files::Hdf5Layout file;
    file.dataSet = variableName(layout);
    file.shape = layout.shape;
    file.sampleType = layout.sampleType;
    file.chunks = layout.chunks;
    file.unit = layout.info.valueUnit;
    Files::createHdf5(path, file);
    return boost::make_shared<Files::Hdf5FileDef>(
        path, file.dataSet, Files::Hdf5FileDef::Options{.isPacked = false, .isWritable = true});
}
#endif

#ifdef DRAVIK_COMMAND_HAS_FILES_ZARR
SourcePtr createZarr(Path const& path, OutputLayout const& layout) {
    Files::ZarrLayout file;
    file.shape = layout.shape;
    file.sampleType = layout.sampleType;
    file.chunks = layout.chunks;
    file.axisNames = axisNames(layout);
    file.unit = layout.info.valueUnit;
    Files::createZarr(path, file);
    return boost::make_shared<Files::ZarrFileDef>(path, "", Files::ZarrFileDef::Options{.isWritable = true});
}
#endif

#ifdef DRAVIK_COMMAND_HAS_FILES_RAW
SourcePtr createRaw(Path const& path, OutputLayout const& layout) {
    Files::RawLayout file;
    file.shape = layout.shape;
    file.sampleType = layout.sampleType;
    Files::createRaw(path, file);
    return boost::make_shared<Files::RawFileDef>(path, file, /*writable=*/true);
}
#endif

#ifdef DRAVIK_COMMAND_HAS_FILES_SEGY
// The numbers of lines that the axis tells, if they are whole and regular; else 1, 2, 3, …
Files::SegyLayout::Lines linesOf(DataAxis const& axis, int count) {
    auto const& at = axis.coordinates;
    if (at.size() < 2) {
        bool const isNumber = at.size() == 1 && at[0] == std::rint(at[0]);
        return {isNumber ? static_cast<int>(at[0]) : 1, 1, count};
    }
    double const step = at[1] - at[0];
    for (std::size_t line = 0; line < at.size(); ++line) {
        if (at[line] != at[0] + static_cast<double>(line) * step || at[line] != std::rint(at[line]) || step == 0 ||
            std::abs(at[line]) > 1e9) {
            return {1, 1, count};
        }
    }
    return {static_cast<int>(at[0]), static_cast<int>(step), count};
}

int microseconds(DataAxis const& axis) {
    static std::map<std::string, double> const kUnits{{"us", 1}, {"ms", 1e3}, {"s", 1e6}};
    auto const unit = kUnits.find(axis.unit);
    double const step = unit == kUnits.end() || axis.coordinates.size() < 2
                            ? 4000
                            : std::rint((axis.coordinates[1] - axis.coordinates[0]) * unit->second);
    return step >= 1 && step <= 32767 ? static_cast<int>(step) : 4000;
}

SourcePtr createSegy(Path const& path, OutputLayout const& layout) {
    using Format = Files::SegyLayout::Format;
    static std::map<std::string, Format> const kFormats{
        {"float32", Format::IeeeFloat}, {"int32", Format::Int32}, {"int16", Format::Int16}, {"int8", Format::Int8}};
    auto const format = kFormats.find(layout.sampleType);
    if (format == kFormats.end()) {
        throw std::runtime_error(
            "SEG-Y has no samples of type " + layout.sampleType + ": choose --type float32, int32, int16 or int8");
    }
    auto const axes = layout.shape.size();
    if (axes < 2 || axes > 3) {
        throw std::runtime_error("SEG-Y holds data of 2 or 3 axes, not " + std::to_string(axes));
    }
    Files::SegyLayout file;
    if (axes == 3) {
        file.inlines = linesOf(layout.info.axes[0], layout.shape[0]);
    }
    file.crosslines = linesOf(layout.info.axes[axes - 2], layout.shape[axes - 2]);
    file.sampleCount = layout.shape[axes - 1];
    file.intervalMicroseconds = microseconds(layout.info.axes[axes - 1]);
    file.format = format->second;
    Files::createSegy(path, file);
    return boost::make_shared<Files::SegyFileDef>(path, /*writable=*/true);
}
#endif

#ifdef DRAVIK_COMMAND_HAS_FILES_TIFF
// The first coordinate and the step of those that are evenly spaced.
std::optional<std::pair<double, double>> evenly(std::vector<double> const& at) {
    if (at.size() < 2) {
        return std::nullopt;
    }
    double const step = (at.back() - at.front()) / static_cast<double>(at.size() - 1);
    for (std::size_t index = 0; index < at.size(); ++index) {
        if (step == 0 || std::abs(at[index] - at[0] - step * static_cast<double>(index)) > std::abs(step) * 1e-3) {
            return std::nullopt;
        }
    }
    return std::pair(at[0], step);
}

SourcePtr createTiff(Path const& path, OutputLayout const& layout) {
    Files::TiffLayout file;
    file.shape = layout.shape;
    file.sampleType = layout.sampleType;
    file.unit = layout.info.valueUnit;
    if (auto const count = layout.chunks.size(); count >= 2) {
        file.tile = {layout.chunks[count - 2], layout.chunks[count - 1]};
    }
    if (auto const axes = layout.shape.size(); axes >= 2) {
        auto const rows = evenly(layout.info.axes[axes - 2].coordinates);
        auto const columns = evenly(layout.info.axes[axes - 1].coordinates);
        if (rows && columns) {
            auto const [x, across] = *columns;
            auto const [y, down] = *rows;
            file.transform = {x - across / 2, across, 0, y - down / 2, 0, down};
        }
    }
    Files::createTiff(path, file);
    return boost::make_shared<Files::TiffFileDef>(
        path, Files::TiffFileDef::Options{.image = std::nullopt, .isWritable = true});
}
#endif

std::vector<Format> builtFormats() {
    return {
#ifdef DRAVIK_COMMAND_HAS_FILES_NETCDF
        {"netCDF",
         {".nc", ".nc4", ".cdf"},
         Files::registerNetcdf,
         isSource<Files::NetcdfFileDef>,
         Files::netcdfVariables,
         createNetcdf,
         false},
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_HDF5
        {"HDF5",
         {".h5", ".hdf5"},
         Files::registerHdf5,
         isSource<Files::Hdf5FileDef>,
         Files::hdf5DataSets,
         createHdf5,
         false},
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_ZARR
        {"Zarr", {".zarr"}, Files::registerZarr, isSource<Files::ZarrFileDef>, Files::zarrArrays, createZarr, false},
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_SEGY
        {"SEG-Y", {".sgy", ".segy"}, Files::registerSegy, isSource<Files::SegyFileDef>, nullptr, createSegy, false},
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_TIFF
        {"TIFF", {".tif", ".tiff"}, Files::registerTiff, isSource<Files::TiffFileDef>, nullptr, createTiff, false},
#endif
#ifdef DRAVIK_COMMAND_HAS_FILES_RAW
        {"raw", {".raw", ".bin"}, Files::registerRaw, isSource<Files::RawFileDef>, nullptr, createRaw, true},
#endif
    };
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char letter) {
        return static_cast<char>(std::tolower(letter));
    });
    return text;
}

}  // namespace

std::span<Format const> formats() {
    static std::vector<Format> const& built = *new std::vector<Format>(builtFormats());
    return built;
}

Format const* formatOf(SourceDef const& source) {
    auto const all = formats();
    auto const found = std::find_if(all.begin(), all.end(), [&](Format const& format) { return format.isOf(source); });
    return found == all.end() ? nullptr : &*found;
}

Format const& formatFor(Path const& path, std::string const& wanted) {
    std::string known;
    for (Format const& format : formats()) {
        auto const extension = lower(path.extension().string());
        bool const isMeant = wanted.empty() ? std::count(format.extensions.begin(), format.extensions.end(), extension)
                                            : lower(wanted) == lower(format.name);
        if (isMeant) {
            return format;
        }
        known.append(known.empty() ? "" : ", ").append(format.name).append(" (").append(format.extensions[0]) += ')';
    }
    throw std::runtime_error(
        (wanted.empty() ? path.string() + ": no format ends so" : "no format is called " + wanted) + "; there are " +
        known);
}

}  // namespace Quorvel::Dravik::Command
