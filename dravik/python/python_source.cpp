// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/python_source.h"

#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/python/sample_types.h"
#include "dravik/text/forms.h"

#include <boost/make_shared.hpp>
#include <pybind11/numpy.h>

#include <cstring>
#include <map>
#include <ostream>
#include <stdexcept>

namespace py = pybind11;

namespace Quorvel::Dravik::Python {

using Adt::BulkView::AccessTraits;
using Box = Adt::OpenEndedRange<4, int>;

namespace {

// By kind. Read and changed with the GIL alone; never destroyed, since the interpreter may be gone by then.
std::map<std::string, py::object>& functions() {
    static auto& all = *new std::map<std::string, py::object>();
    return all;
}

class PythonStore final : public Adt::BulkView::IBrickStore {
  public:
    explicit PythonStore(PythonSourceDef::Fields fields) : fields_(std::move(fields)) {
        auto const* const type = Adt::sampleTypeNamed(fields_.sampleType);
        auto const axes = fields_.shape.size();
        if (type == nullptr || axes < 1 || axes > 4 || (!fields_.chunks.empty() && fields_.chunks.size() != axes)) {
            throw std::invalid_argument("a source in Python has one to four axes, as many chunks, and a sample type");
        }
        traits_.sampleType = type;
        {
            py::gil_scoped_acquire const gil;
            traits_.bitSize = sampleTypeOf(*type).bitSize;
        }
        traits_.concurrency = AccessTraits::Concurrency::PerClone;
        size_ = Adt::FixedVector<4, int>::Filled(1);
        traits_.naturalBlock = size_;
        for (std::size_t axis = 0; axis < axes; ++axis) {
            int const size = fields_.shape[axis], chunk = fields_.chunks.empty() ? size : fields_.chunks[axis];
            if (size < 1 || chunk < 1) {
                throw std::invalid_argument("an axis and its chunks have at least one index");
            }
            size_[static_cast<int>(axis)] = size;
            traits_.naturalBlock[static_cast<int>(axis)] = std::min(chunk, size);
        }
    }

    Adt::FixedVector<4, int> size() const override { return size_; }
    AccessTraits traits() const override { return traits_; }

    void read(Box const& box, void* samples) const override {
        py::gil_scoped_acquire const gil;
        auto const function = functions().find(fields_.kind);
        if (function == functions().end()) {
            throw std::runtime_error("the opener of \"" + fields_.kind + "\" is no longer registered");
        }
        std::size_t const axes = fields_.shape.size();
        py::tuple slices(axes), shape(axes);
        for (std::size_t axis = 0; axis < axes; ++axis) {
            auto const along = static_cast<int>(axis);
            slices[axis] = py::slice(box.min[along], box.max[along], 1);
            shape[axis] = box.max[along] - box.min[along];
        }
        py::dict parameters;
        if (!fields_.parameters.empty()) {
            parameters = py::module_::import("json").attr("loads")(fields_.parameters);
        }
        py::object const made = function->second(slices, **parameters);
        auto const numpy = py::module_::import("numpy");
        py::array const array =
            numpy.attr("ascontiguousarray")(made, py::arg("dtype") = numpy.attr("dtype")(fields_.sampleType));
        if (!shape.equal(py::object(array.attr("shape")))) {
            throw py::value_error(
                "the opener of \"" + fields_.kind + "\" gave an array of shape " +
                std::string(py::str(array.attr("shape"))) + " for a box of shape " + std::string(py::str(shape)));
        }
        std::memcpy(samples, array.data(), static_cast<std::size_t>(array.nbytes()));
    }

  private:
    PythonSourceDef::Fields fields_;
    Adt::FixedVector<4, int> size_;
    AccessTraits traits_;
};

Adt::BulkView::OpenedData openPython(PythonSourceDef const& def, Adt::BulkView::Openers const& openers) {
    {
        py::gil_scoped_acquire const gil;
        if (!functions().contains(def.fields().kind)) {
            throw Adt::Exceptions::NotSupportedException(
                "open", "no opener is registered for \"" + def.fields().kind +
                            "\" in this process; call dravik_adt.register_opener where it starts.");
        }
    }
    Adt::BulkView::DataInfo info;
    info.axisCount = static_cast<int>(def.fields().shape.size());
    auto store = std::make_shared<PythonStore>(def.fields());
    return {Adt::BulkView::StoreAccessor::Make(std::move(store), openers.pool()), std::move(info)};
}

std::vector<int> integersOf(Text::Node const& node) {
    std::vector<int> numbers;
    for (Text::Node const& each : node.elements()) {
        numbers.push_back(each.as<int>());
    }
    return numbers;
}

}  // namespace

int PythonSourceDef::getHashCode() const {
    return Adt::Hasher(31)(fields_.kind)(fields_.parameters);
}

void PythonSourceDef::print(std::ostream& out) const {
    out << "PythonSourceDef(" << fields_.kind << ")";
}

bool PythonSourceDef::compare(Adt::BulkDef::SourceDef const& other) const {
    auto const* const source = dynamic_cast<PythonSourceDef const*>(&other);
    return source != nullptr && fields_ == source->fields_;
}

std::unique_ptr<Adt::BulkDef::SourceDef> PythonSourceDef::makeClone() const {
    return std::make_unique<PythonSourceDef>(fields_);
}

void registerOpener(std::string const& kind, py::object function) {
    if (PyCallable_Check(function.ptr()) == 0) {
        throw py::type_error("an opener is a function");
    }
    functions().insert_or_assign(kind, std::move(function));
}

void addPythonSources() {
    Adt::BulkView::Openers::standard().addSource<PythonSourceDef>(openPython);
    Text::Forms::standard().add<PythonSourceDef>(
        "Python",
        [](PythonSourceDef const& def, Text::DefinitionWriter&) {
            Text::Node node;
            auto const& fields = def.fields();
            node.set("kind", fields.kind).set("shape", Text::Node::MakeArray(fields.shape));
            node.set("dtype", fields.sampleType).set("chunks", Text::Node::MakeArray(fields.chunks));
            node.set("parameters", fields.parameters);
            return node;
        },
        [](Text::Node const& node, Text::DefinitionReader&) {
            PythonSourceDef::Fields fields;
            fields.kind = node.at("kind").as<std::string>();
            fields.shape = integersOf(node.at("shape"));
            fields.sampleType = node.at("dtype").as<std::string>();
            if (auto const* const chunks = node.find("chunks")) {
                fields.chunks = integersOf(*chunks);
            }
            if (auto const* const parameters = node.find("parameters")) {
                fields.parameters = parameters->as<std::string>();
            }
            return boost::make_shared<PythonSourceDef const>(std::move(fields));
        });
}

}  // namespace Quorvel::Dravik::Python
