// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/files.h"

#ifdef DRAVIK_PYTHON_HAS_FILES_NETCDF
#include "dravik/files/netcdf/netcdf_file.h"
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_RAW
#include "dravik/files/raw/raw_file.h"
#endif
#ifdef DRAVIK_PYTHON_HAS_FILES_ZARR
#include "dravik/files/zarr/zarr_file.h"
#endif

#include <pybind11/stl.h>

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

std::vector<std::string> variablesOfFile(std::string const& path) {
#ifdef DRAVIK_PYTHON_HAS_FILES_NETCDF
    return Files::netcdfVariables(path);
#else
    throw py::value_error("this package was built without netCDF");
#endif
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
        "create_zarr", &createZarr, py::arg("path"), py::arg("shape"), py::arg("sample_type"), py::arg("is_big_endian"),
        py::arg("axes"), py::arg("chunks"), py::arg("level"), py::arg("unit"), py::arg("missing"), Released());
    module.def("variables_of_file", &variablesOfFile, py::arg("path"), Released());
}

}  // namespace Quorvel::Dravik::Python
