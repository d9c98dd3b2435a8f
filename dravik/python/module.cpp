// SPDX-License-Identifier: Apache-2.0
// The compiled part of the package dravik_adt.

#define DRAVIK_PYTHON_IMPORTS_NUMPY
#include "dravik/python/numpy.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/exceptions/cancelled_exception.h"
#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/python/array.h"
#include "dravik/python/files.h"
#include "dravik/python/python_source.h"
#include "dravik/text/definition_text.h"
#include "dravik/text/text_exception.h"

#include <pybind11/stl.h>

#include <system_error>

namespace py = pybind11;

namespace Quorvel::Dravik::Python {

namespace {

using Adt::BulkView::DataInfo;
using Adt::BulkView::OpenedData;
using Adt::BulkView::Openers;

// Sets the Python exception that numpy's users expect for a C++ one.
void translate(std::exception_ptr thrown, py::handle error) {
    auto const os = [](std::system_error const& e) {
        auto const code = e.code().default_error_condition();
        auto const arguments = py::make_tuple(code.value(), e.what());
        PyErr_SetObject(PyExc_OSError, arguments.ptr());
    };
    try {
        std::rethrow_exception(thrown);
    } catch (py::error_already_set& e) {
        e.restore();
    } catch (py::builtin_exception const& e) {
        e.set_error();
    } catch (Adt::Exceptions::MemoryException const& e) {
        PyErr_SetString(PyExc_MemoryError, e.what());
    } catch (Text::TextException const& e) {
        PyErr_SetString(PyExc_ValueError, e.what());
    } catch (std::bad_alloc const& e) {
        PyErr_SetString(PyExc_MemoryError, e.what());
    } catch (std::system_error const& e) {
        os(e);
    } catch (std::out_of_range const& e) {
        PyErr_SetString(PyExc_IndexError, e.what());
    } catch (std::invalid_argument const& e) {
        PyErr_SetString(PyExc_ValueError, e.what());
    } catch (std::length_error const& e) {
        PyErr_SetString(PyExc_ValueError, e.what());
    } catch (std::exception const& e) {
        PyErr_SetString(error.ptr(), e.what());
    }
}

py::handle errorType() {
    static PyObject* const type = PyErr_NewExceptionWithDoc(
        "dravik_adt.Error", "What is neither an IndexError, a ValueError, a TypeError, a MemoryError nor an OSError.",
        nullptr, nullptr);
    return type;
}

// Calls act; what it throws becomes the Python exception, and the value one that tells the interpreter so.
template <class Act, class Value>
Value guarded(Act const& act, Value failed) {
    try {
        return act();
    } catch (...) {
        translate(std::current_exception(), errorType());
        return failed;
    }
}

Array const& arrayOf(PyObject* self) {
    return *py::handle(self).cast<Array const*>();
}

// In the type's own slots, which saves the argument handling of a method: indexing is what takes a microsecond.
PyObject* getItem(PyObject* self, PyObject* key) {
    return guarded([&] { return arrayOf(self).getItem(key).release().ptr(); }, static_cast<PyObject*>(nullptr));
}

int setItem(PyObject* self, PyObject* key, PyObject* value) {
    return guarded(
        [&] {
            if (value == nullptr) {
                throw py::type_error("samples cannot be deleted");
            }
            arrayOf(self).setItem(key, value);
            return 0;
        },
        -1);
}

// The axes of an array of fewer ones than its definition alone would give, as the text of an array tells them.
constexpr char const* kAxisCount = ",\"x-axisCount\":";

Array open(std::string const& text, int axisCount) {
    auto const defs = Text::definitionsFromText(text);
    if (defs.entity == nullptr && defs.source == nullptr) {
        throw py::value_error("the definition names no entity and no source");
    }
    auto const entity =
        defs.entity != nullptr ? defs.entity : Adt::BulkDef::Entity::SourceEntityDef(*defs.source).clone();
    py::gil_scoped_release const released;
    OpenedData data =
        defs.view == nullptr ? Openers::standard().open(*entity) : Openers::standard().open(*entity, *defs.view);
    int const opened = data.info.axisCount;
    data.info.axisCount = axisCount == 0 ? opened : axisCount;
    return {std::make_shared<Chain>(std::move(data.chain), std::move(data.info)), entity, defs.view, opened};
}

std::string textOfFile(std::string const& path, std::string const& variable) {
    py::gil_scoped_release const released;
    auto const source = Openers::standard().sourceAt(path, variable);
    return Text::toText(Adt::BulkDef::Entity::SourceEntityDef(*source));
}

// Null where the samples are this process's own.
py::object textOf(Array const& array) {
    if (array.entity() == nullptr) {
        return py::none();
    }
    std::string text = Text::toText(Text::Definitions{array.entity(), {}, {}, array.view()});
    if (array.ndim() != array.openedAxisCount()) {
        text.insert(text.size() - 1, kAxisCount + std::to_string(array.ndim()));
    }
    return py::str(text);
}

py::dict infoOf(Array const& array) {
    DataInfo const& info = array.chain().info();
    py::list axes;
    for (int axis = 0; axis < info.axisCount; ++axis) {
        auto const& each = info.axes[static_cast<std::size_t>(axis)];
        py::dict entry;
        entry["name"] = each.name;
        entry["unit"] = each.unit;
        entry["coordinates"] = each.coordinates.empty()
                                   ? py::object(py::none())
                                   : py::object(py::array_t<double>(
                                         static_cast<py::ssize_t>(each.coordinates.size()), each.coordinates.data()));
        axes.append(entry);
    }
    py::dict told;
    told["axes"] = axes;
    told["name"] = info.valueName;
    told["unit"] = info.valueUnit;
    told["missing"] = info.missingValue ? py::object(py::float_(*info.missingValue)) : py::object(py::none());
    py::dict attributes;
    for (auto const& [name, text] : info.attributes) {
        attributes[py::str(name)] = text;
    }
    told["attributes"] = attributes;
    return told;
}

Adt::FixedVector<4, int> placeOf(Array const& array, py::object const& index) {
    Key const key = keyOf(index.ptr(), array.ndim(), array.chain().size());
    if (!key.isSample) {
        throw py::type_error("a loan is asked for by one integer per axis");
    }
    Adt::FixedVector<4, int> place;
    for (int axis = 0; axis < 4; ++axis) {
        place[axis] = key.region[axis].origin;
    }
    return place;
}

// From the lowest to the highest index that a key selects, per axis: (start, stop).
py::tuple boxOf(Array const& array, py::object const& index) {
    Key const key = keyOf(index.ptr(), array.ndim(), array.chain().size());
    py::tuple box(array.ndim());
    for (int axis = 0; axis < array.ndim(); ++axis) {
        auto const bounds = key.region[axis].bounds();
        box[static_cast<std::size_t>(axis)] =
            key.count(axis) == 0 ? py::make_tuple(0, 0) : py::make_tuple(bounds.min, bounds.max + 1);
    }
    return box;
}

}  // namespace

// One list of all that Python sees, in the order of the stubs.
PYBIND11_MODULE(_core, module) {
    if (_import_array() < 0) {
        throw py::error_already_set();
    }
    module.attr("Error") = errorType();
    py::register_exception_translator([](std::exception_ptr thrown) {
        if (thrown) {
            translate(thrown, errorType());
        }
    });

    py::class_<Array> array(module, "Array");
    array.def(py::init<Array const&>(), py::arg("array"))
        .def_property_readonly("shape", &Array::shape)
        .def_property_readonly("ndim", &Array::ndim)
        .def_property_readonly("dtype", &Array::dtype)
        .def_property_readonly("chunks", &Array::chunks)
        .def_property_readonly("writable", &Array::writable)
        .def("_text", &textOf)
        .def("_info", &infoOf)
        .def(
            "read", &Array::read, py::arg("key"), py::arg("out") = py::none(), py::arg("dtype") = py::none(),
            py::arg("threads") = 1, py::arg("progress") = py::none())
        .def(
            "write", &Array::write, py::arg("key"), py::arg("value"), py::arg("threads") = 1,
            py::arg("progress") = py::none())
        .def("flush", &Array::flush)
        .def("_box", &boxOf)
        .def("_gather", &Array::gather)
        .def("_subset", &Array::subset)
        .def("_transposed", &Array::transposed)
        .def("_astype", &Array::astype)
        .def("_cached", &Array::cached)
        .def("_loan", [](Array const& self, py::object const& index) {
            auto const place = placeOf(self, index);
            py::gil_scoped_release const released;
            return Loan(self.sharedChain(), place);
        });
    array.def("__getitem__", [](Array const& self, py::object const& key) { return self.getItem(key.ptr()); })
        .def("__setitem__", [](Array const& self, py::object const& key, py::object const& value) {
            self.setItem(key.ptr(), value.ptr());
        });
    // For the class that Python derives: indexing without the argument handling of a method.
    module.def("index_directly", [](py::type const& derived) {
        auto* const type = reinterpret_cast<PyTypeObject*>(derived.ptr());
        type->tp_as_mapping->mp_subscript = getItem;
        type->tp_as_mapping->mp_ass_subscript = setItem;
        PyType_Modified(type);
    });

    py::class_<Loan>(module, "Loan")
        .def_property_readonly("array", &Loan::array)
        .def_property_readonly("box", &Loan::box)
        .def("release", &Loan::release)
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Loan& self, py::args const&) { self.release(); });

    addPythonSources();
    addFiles(module);
    module.def("open", &open, py::arg("text"), py::arg("axis_count"));
    module.def("text_of_file", &textOfFile, py::arg("path"), py::arg("variable"));
    module.def("from_numpy", &Array::ofNdarray, py::arg("array"));
    module.def("register_opener", &registerOpener, py::arg("kind"), py::arg("function"));
}

}  // namespace Quorvel::Dravik::Python
