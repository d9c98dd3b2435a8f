// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/sample_types.h"

#include <cstdint>
#include <string>

namespace Quorvel::Dravik::Python {

namespace {

template <class T>
constexpr SampleType row(int number) {
    return {number, static_cast<int>(8 * sizeof(T)), &typeid(T)};
}

// The first of several rows of one numpy type is the one that arrays of numpy get.
SampleType const kTypes[] = {
    row<char>(NPY_INT8),          row<unsigned char>(NPY_UINT8),
    row<short>(NPY_INT16),        row<unsigned short>(NPY_UINT16),
    row<int>(NPY_INT32),          row<unsigned int>(NPY_UINT32),
    row<std::int64_t>(NPY_INT64), row<float>(NPY_FLOAT32),
    row<double>(NPY_FLOAT64),     row<signed char>(NPY_INT8),
    row<long long>(NPY_INT64),
};

}  // namespace

SampleType const& sampleTypeOf(std::type_info const& type) {
    for (SampleType const& each : kTypes) {
        if (*each.type == type) {
            return each;
        }
    }
    throw pybind11::type_error("no numpy type holds samples of type " + std::string(type.name()));
}

SampleType const& sampleTypeOf(PyArray_Descr const& descr) {
    for (SampleType const& each : kTypes) {
        if (PyArray_EquivTypenums(each.number, descr.type_num) && PyArray_ISNBO(descr.byteorder)) {
            return each;
        }
    }
    auto const name = pybind11::str(pybind11::handle(reinterpret_cast<PyObject*>(const_cast<PyArray_Descr*>(&descr))));
    throw pybind11::type_error(
        "samples are integers of 8 to 64 bits (uint64 excepted), float32 or float64 in the machine's byte order, not " +
        std::string(name));
}

}  // namespace Quorvel::Dravik::Python
