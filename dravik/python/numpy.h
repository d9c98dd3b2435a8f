// SPDX-License-Identifier: Apache-2.0
#pragma once

// numpy's C interface, for the sources of the module: its table lives in module.cpp, which imports it.

#include <pybind11/pybind11.h>

#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL dravik_adt_numpy
#ifndef DRAVIK_PYTHON_IMPORTS_NUMPY
#define NO_IMPORT_ARRAY
#endif
#include <numpy/arrayobject.h>
