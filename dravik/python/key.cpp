// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/key.h"

#include <algorithm>

namespace Quorvel::Dravik::Python {

namespace {

[[noreturn]] void raised() {
    throw pybind11::error_already_set();
}

class Reader {
  public:
    Reader(int axisCount, Index4 const& size) : axisCount_(axisCount), size_(size) {
        key_.isSample = true;
        for (int axis = 0; axis < 4; ++axis) {
            key_.region[axis] = {0, 1, 1};
        }
    }

    Key read(PyObject* key) {
        PyObject* const* items = &key;
        Py_ssize_t count = 1;
        if (PyTuple_Check(key)) {
            items = &PyTuple_GET_ITEM(key, 0);
            count = PyTuple_GET_SIZE(key);
        }
        int const used = static_cast<int>(
            std::count_if(items, items + count, [](PyObject* item) { return item != Py_None && item != Py_Ellipsis; }));
        if (used > axisCount_) {
            PyErr_Format(
                PyExc_IndexError, "too many indices for array: array is %d-dimensional, but %d were indexed",
                axisCount_, used);
            raised();
        }
        bool hasEllipsis = false;
        for (Py_ssize_t i = 0; i < count; ++i) {
            if (items[i] == Py_Ellipsis) {
                if (std::exchange(hasEllipsis, true)) {
                    PyErr_SetString(PyExc_IndexError, "an index can only have a single ellipsis ('...')");
                    raised();
                }
                takeWhole(axisCount_ - used);
            } else {
                take(items[i]);
            }
        }
        takeWhole(axisCount_ - axis_);
        // What has an ellipsis is an array, of no axes if need be.
        key_.isSample = key_.isSample && !hasEllipsis;
        return key_;
    }

  private:
    void keep(npy_intp count) {
        if (key_.dimensions == NPY_MAXDIMS) {
            PyErr_SetString(PyExc_IndexError, "number of dimensions must be within [0, 32]");
            raised();
        }
        key_.shape[static_cast<std::size_t>(key_.dimensions++)] = count;
        key_.isSample = false;
    }

    void takeWhole(int axes) {
        for (; axes > 0; --axes, ++axis_) {
            key_.region[axis_] = {0, 1, size_[axis_]};
            keep(size_[axis_]);
        }
    }

    void take(PyObject* item) {
        if (item == Py_None) {
            key_.hasNewAxis = true;
            keep(1);
        } else if (PySlice_Check(item)) {
            takeSlice(item);
        } else if (PyIndex_Check(item) && !PyBool_Check(item) && !PyArray_Check(item)) {
            takeIndex(item);
        } else {
            PyErr_SetString(
                PyExc_IndexError, "only integers, slices (`:`), ellipsis (`...`) and None are valid indices; gather "
                                  "takes lists of indices");
            raised();
        }
    }

    void takeSlice(PyObject* item) {
        Py_ssize_t start = 0, stop = 0, step = 0;
        if (PySlice_Unpack(item, &start, &stop, &step) < 0) {
            raised();
        }
        Py_ssize_t const count = PySlice_AdjustIndices(size_[axis_], &start, &stop, step);
        // The step of less than two indices may be beyond an int, and leads nowhere.
        key_.region[axis_] = {
            count == 0 ? 0 : static_cast<int>(start), count < 2 ? 1 : static_cast<int>(step), static_cast<int>(count)};
        keep(count);
        ++axis_;
    }

    void takeIndex(PyObject* item) {
        Py_ssize_t const index = PyNumber_AsSsize_t(item, PyExc_IndexError);
        if (index == -1 && PyErr_Occurred() != nullptr) {
            raised();
        }
        Py_ssize_t const place = index < 0 ? index + size_[axis_] : index;
        if (place < 0 || place >= size_[axis_]) {
            PyErr_Format(
                PyExc_IndexError, "index %zd is out of bounds for axis %d with size %d", index, axis_, size_[axis_]);
            raised();
        }
        key_.isIndex[static_cast<std::size_t>(axis_)] = true;
        key_.region[axis_++] = {static_cast<int>(place), 1, 1};
    }

    int axisCount_;
    Index4 const& size_;
    Key key_;
    int axis_ = 0;
};

}  // namespace

bool Key::isEmpty() const noexcept {
    return sampleCount() == 0;
}

std::int64_t Key::sampleCount() const noexcept {
    std::int64_t samples = 1;
    for (int axis = 0; axis < 4; ++axis) {
        samples *= region[axis].count;
    }
    return samples;
}

Key keyOf(PyObject* key, int axisCount, Index4 const& size) {
    return Reader(axisCount, size).read(key);
}

}  // namespace Quorvel::Dravik::Python
