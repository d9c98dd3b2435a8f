// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/files.h"

#include "dravik/adt/bulkview/stores/openers.h"

#ifdef DRAVIK_PYTHON_HAS_FILES_HDF5
#include "dravik/files/hdf5/hdf5_file.h"
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_NETCDF
#include "dravik/files/netcdf/netcdf_file.h"
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_RAW
#include "dravik/files/raw/raw_file.h"
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_TIFF
#include "dravik/files/tiff/tiff_file.h"
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_ZARR
#include "dravik/files/zarr/zarr_file.h"
#endif

#include <pybind11/stl.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace py = pybind11;

namespace Quorvel::Dravik::Python {

namespace {

using Shape = std::vector<int>;

void createRaw(
    std::string const& path, Shape const& shape, std::string const& sampleType, bool isBigEndian,
    std::int64_t headerBytes) {
#ifdef DRAVIK_PYTHON_HAS_FILES_RAW
    using ByteOrder = Files::RawLayout::ByteOrder;
    Files::createRaw(path, {shape, sampleType, isBigEndian ? ByteOrder::Big : ByteOrder::Little, headerBytes, {}});
#else
    throw py::value_error("this package was built without raw files");
#endif
}

void createNetcdf(
    std::string const& path, Shape const& shape, std::string const& sampleType, std::string const& variable,
    std::vector<std::string> const& axes, Shape const& chunks, int deflate, std::string const& unit,
    std::optional<double> const& missing) {
#ifdef DRAVIK_PYTHON_HAS_FILES_NETCDF
    Files::createNetcdf(path, {variable, shape, sampleType, axes, chunks, deflate, unit, missing});
#else
    throw py::value_error("this package was built without netCDF");
#endif
}

void createHdf5(
    std::string const& path, Shape const& shape, std::string const& sampleType, std::string const& variable,
    Shape const& chunks, int deflate, std::string const& unit, std::optional<double> const& missing) {
#ifdef DRAVIK_PYTHON_HAS_FILES_HDF5
    Files::createHdf5(path, {variable, shape, sampleType, chunks, deflate, unit, missing});
#else
    throw py::value_error("this package was built without HDF5");
#endif
}

void createTiff(
    std::string const& path, Shape const& shape, std::string const& sampleType, std::array<int, 2> const& tile,
    bool isDeflated, bool isInterleaved, std::string const& unit, std::optional<double> const& missing) {
#ifdef DRAVIK_PYTHON_HAS_FILES_TIFF
    Files::createTiff(path, {shape, sampleType, tile, isDeflated, isInterleaved, unit, missing});
#else
    throw py::value_error("this package was built without TIFF");
#endif
}

void createZarr(
    std::string const& path, Shape const& shape, std::string const& sampleType, bool isBigEndian,
    std::vector<std::string> const& axes, Shape const& chunks, int level, std::string const& unit,
    std::optional<double> const& missing) {
#ifdef DRAVIK_PYTHON_HAS_FILES_ZARR
    Files::ZarrLayout layout;
    layout.shape = shape;
    layout.sampleType = sampleType;
    layout.byteOrder = isBigEndian ? Files::ZarrLayout::ByteOrder::Big : Files::ZarrLayout::ByteOrder::Little;
    layout.axisNames = axes;
    layout.chunks = chunks;
    layout.compressor = level == 0 ? Files::ZarrLayout::Compressor::None : Files::ZarrLayout::Compressor::Blosc;
    layout.level = level == 0 ? 1 : level;
    layout.unit = unit;
    layout.fillValue = missing;
    Files::createZarr(path, layout);
#else
    throw py::value_error("this package was built without Zarr");
#endif
}

template <class Def>
bool isOf(Adt::BulkDef::SourceDef const& source) {
    return dynamic_cast<Def const*>(&source) != nullptr;
}

// The names that openers take; of a format with one array for a file, none.
std::vector<std::string> variablesOfFile(std::string const& path) {
    auto const source = Adt::BulkView::Openers::standard().sourceAt(path);
#ifdef DRAVIK_PYTHON_HAS_FILES_NETCDF
    if (isOf<Files::NetcdfFileDef>(*source)) {
        return Files::netcdfVariables(path);
    }
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_HDF5
    if (isOf<Files::Hdf5FileDef>(*source)) {
        return Files::hdf5DataSets(path);
    }
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_ZARR
    if (isOf<Files::ZarrFileDef>(*source)) {
        return Files::zarrArrays(path);
    }
#endif
    std::vector<std::string> names;
#ifdef DRAVIK_PYTHON_HAS_FILES_TIFF
    if (isOf<Files::TiffFileDef>(*source)) {
        for (std::size_t number = 0; number < Files::tiffImages(path).size(); ++number) {
            names.push_back(std::to_string(number));
        }
    }
#endif
    return names;
}

}  // namespace

void addFiles(py::module_& module) {
    using Released = py::call_guard<py::gil_scoped_release>;
    module.def(
        "create_raw", &createRaw, py::arg("path"), py::arg("shape"), py::arg("sample_type"), py::arg("is_big_endian"),
        py::arg("header_bytes"), Released());
    module.def(
        "create_netcdf", &createNetcdf, py::arg("path"), py::arg("shape"), py::arg("sample_type"), py::arg("variable"),
        py::arg("axes"), py::arg("chunks"), py::arg("deflate"), py::arg("unit"), py::arg("missing"), Released());
    module.def(
        "create_hdf5", &createHdf5, py::arg("path"), py::arg("shape"), py::arg("sample_type"), py::arg("variable"),
        py::arg("chunks"), py::arg("deflate"), py::arg("unit"), py::arg("missing"), Released());
    module.def(
        "create_tiff", &createTiff, py::arg("path"), py::arg("shape"), py::arg("sample_type"), py::arg("tile"),
        py::arg("is_deflated"), py::arg("is_interleaved"), py::arg("unit"), py::arg("missing"), Released());
    module.def(
        "create_zarr", &createZarr, py::arg("path"), py::arg("shape"), py::arg("sample_type"), py::arg("is_big_endian"),
        py::arg("axes"), py::arg("chunks"), py::arg("level"), py::arg("unit"), py::arg("missing"), Released());
    module.def("variables_of_file", &variablesOfFile, py::arg("path"), Released());
}

}  // namespace Quorvel::Dravik::Python
