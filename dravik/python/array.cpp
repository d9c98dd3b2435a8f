// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/array.h"

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/transform/cache_def.h"
#include "dravik/adt/bulkdef/transform/convert_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/axes_view_def.h"
#include "dravik/adt/bulkdef/view/composite_view_def.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/bulkview/regions/gather.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/python/ndarray_accessor.h"

#include <chrono>
#include <climits>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>

namespace py = pybind11;

namespace Quorvel::Dravik::Python {

using namespace Adt::BulkView;
using Adt::ArrayConstRef;
using Adt::ArrayRef;
using Box = Adt::OpenEndedRange<4, int>;

namespace {

// Up to here samples are copied from a block on loan while the GIL is held.
constexpr std::int64_t kFew = 512;

py::object stolen(PyObject* object) {
    if (object == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(object);
}

PyArrayObject* asArray(py::object const& object) {
    return reinterpret_cast<PyArrayObject*>(object.ptr());
}

char* samplesOf(py::object const& array) {
    return PyArray_BYTES(asArray(array));
}

// Keeps a Python object where the GIL may not be held when it goes.
std::shared_ptr<void const> keeperOf(py::object object) {
    return {object.release().ptr(), [](void* kept) {
                // At the end of the interpreter nobody may be told any more.
                if (Py_IsInitialized() != 0) {
                    py::gil_scoped_acquire const gil;
                    Py_XDECREF(static_cast<PyObject*>(kept));
                }
            }};
}

// Samples from one index to the next, dense with the last axis fastest.
std::array<std::int64_t, 4> denseStrides(Key const& key) {
    std::array<std::int64_t, 4> strides{};
    std::int64_t stride = 1;
    for (int axis = 3; axis >= 0; --axis) {
        strides[static_cast<std::size_t>(axis)] = stride;
        stride *= key.count(axis);
    }
    return strides;
}

// Calls act(region, array) for parts of the memory whose strides fit an int, one after the other.
void forEachPart(
    Extent4 region, char* samples, std::int64_t const* strides, SampleType const& type,
    std::function<void(Extent4 const&, ArrayRef<4> const&)> const& act) {
    Index4 narrow, size;
    for (int axis = 0; axis < 4; ++axis) {
        bool const fits = std::abs(strides[axis]) <= INT_MAX;
        if (!fits && region[axis].count > 1) {
            int const count = std::exchange(region[axis].count, 1);
            int const origin = region[axis].origin;
            for (int k = 0; k < count; ++k) {
                region[axis].origin = origin + k * region[axis].step;
                forEachPart(region, samples + k * strides[axis] * (type.bitSize / 8), strides, type, act);
            }
            return;
        }
        narrow[axis] = fits ? static_cast<int>(strides[axis]) : 0;
        size[axis] = region[axis].count;
    }
    act(region, ArrayRef<4>(Box::OfSize(size), narrow, samples, 0, *type.type, type.bitSize));
}

// Lets signals and the caller's own function end a transfer now and then.
class Watch {
  public:
    explicit Watch(py::object const& progress) : progress_(progress) {}

    void operator()(std::int64_t done, std::int64_t total) {
        auto const now = std::chrono::steady_clock::now();
        if (now - last_ < std::chrono::milliseconds(20) && done != total) {
            return;
        }
        last_ = now;
        py::gil_scoped_acquire const gil;
        if (PyErr_CheckSignals() != 0) {
            throw py::error_already_set();
        }
        if (!progress_.is_none()) {
            progress_(done, total);
        }
    }

  private:
    py::object const& progress_;  // the caller's, which outlives the transfer
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

TransferOptions optionsOf(Watch& watch, int threads) {
    if (threads < 1) {
        throw py::value_error("threads is below 1");
    }
    TransferOptions options;
    if (threads > 1) {
        options.executor = [](std::function<void()> task) { std::thread(std::move(task)).detach(); };
        options.workers = threads;
    }
    options.progress = [&watch](std::int64_t done, std::int64_t total) { watch(done, total); };
    return options;
}

py::tuple slicesOf(Box const& box, int axisCount) {
    py::tuple slices(axisCount);
    for (int axis = 0; axis < axisCount; ++axis) {
        slices[static_cast<std::size_t>(axis)] = py::slice(box.min[axis], box.max[axis], 1);
    }
    return slices;
}

py::object emptyArray(int dimensions, npy_intp const* shape, SampleType const& type) {
    return stolen(PyArray_SimpleNew(dimensions, const_cast<npy_intp*>(shape), type.number));
}

SampleType const& typeOf(py::object const& dtype) {
    PyArray_Descr* descr = nullptr;
    if (PyArray_DescrConverter(dtype.ptr(), &descr) == NPY_FAIL) {
        throw py::error_already_set();
    }
    auto const owned = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(descr));
    return sampleTypeOf(*descr);
}

}  // namespace

Array::Array(std::shared_ptr<Chain> chain, Entity entity, View view, int openedAxisCount)
    : chain_(std::move(chain)), entity_(std::move(entity)), view_(std::move(view)), openedAxisCount_(openedAxisCount) {
    type();  // has to be one of numpy's
}

Array Array::ofNdarray(py::array const& array) {
    auto const ndim = static_cast<int>(array.ndim());
    if (ndim < 1 || ndim > 4) {
        throw py::value_error("an array has one to four axes, not " + std::to_string(ndim));
    }
    SampleType const& type = sampleTypeOf(*PyArray_DESCR(asArray(array)));
    Ndarray memory;
    memory.samples = static_cast<char*>(PyArray_DATA(asArray(array)));
    memory.size = Index4::Filled(1);
    memory.sampleType = type.type;
    memory.bitSize = type.bitSize;
    DataInfo info;
    info.axisCount = ndim;
    for (int axis = 0; axis < ndim; ++axis) {
        if (array.shape(axis) > INT_MAX || array.shape(axis) < 1) {
            throw py::value_error("an axis has 1 to 2147483647 indices, not " + std::to_string(array.shape(axis)));
        }
        if (array.strides(axis) % (type.bitSize / 8) != 0) {
            throw py::value_error("the samples do not lie whole samples apart: copy the array first");
        }
        memory.size[axis] = static_cast<int>(array.shape(axis));
        memory.strides[static_cast<std::size_t>(axis)] = array.strides(axis) / (type.bitSize / 8);
    }
    memory.writable = array.writeable();
    memory.keeper = keeperOf(array);
    return {std::make_shared<Chain>(std::make_unique<NdarrayAccessor>(memory), info), nullptr, nullptr, ndim};
}

py::tuple Array::shape() const {
    py::tuple shape(ndim());
    for (int axis = 0; axis < ndim(); ++axis) {
        shape[static_cast<std::size_t>(axis)] = chain_->size()[axis];
    }
    return shape;
}

py::object Array::dtype() const {
    return stolen(reinterpret_cast<PyObject*>(PyArray_DescrFromType(type().number)));
}

py::tuple Array::chunks() const {
    py::tuple chunks(ndim());
    for (int axis = 0; axis < ndim(); ++axis) {
        int const block = chain_->traits().naturalBlock[axis];
        int const size = chain_->size()[axis];
        chunks[static_cast<std::size_t>(axis)] = block == 0 ? size : std::min(block, size);
    }
    return chunks;
}

py::object Array::getItem(PyObject* index) const {
    Key const key = keyOf(index, ndim(), chain_->size());
    SampleType const& type = this->type();
    if (key.isSample) {
        alignas(8) char sample[8];
        auto const size = static_cast<std::size_t>(type.bitSize) / 8;
        if (!chain_->tryCopy(key.region, size, sample)) {
            py::gil_scoped_release const released;
            chain_->copyByBlock(key.region, size, sample, [&] {
                auto const strides = denseStrides(key);
                forEachPart(key.region, sample, strides.data(), type, [&](Extent4 const& region, auto const& array) {
                    chain_->with([&](IBufferAccessor& accessor) { readRegion(accessor, region, array); });
                });
            });
        }
        return stolen(PyArray_Scalar(sample, PyArray_DescrFromType(type.number), nullptr));
    }
    return readFresh(key, type, 1, py::none());
}

py::object Array::readFresh(Key const& key, SampleType const& type, int threads, py::object progress) const {
    auto result = emptyArray(key.dimensions, key.shape.data(), type);
    auto const size = static_cast<std::size_t>(type.bitSize) / 8;
    bool const isOwnType = &type == &this->type();
    if (key.isEmpty() ||
        (isOwnType && key.sampleCount() <= kFew && chain_->tryCopy(key.region, size, samplesOf(result)))) {
        return result;
    }
    auto const strides = denseStrides(key);
    auto const whole = [&] { readInto(key, samplesOf(result), strides.data(), type, threads, progress); };
    if (isOwnType && key.sampleCount() <= kFew) {
        py::gil_scoped_release const released;
        chain_->copyByBlock(key.region, size, samplesOf(result), [&] {
            py::gil_scoped_acquire const gil;
            whole();
        });
        return result;
    }
    whole();
    return result;
}

void Array::readInto(
    Key const& key, char* samples, std::int64_t const* strides, SampleType const& type, int threads,
    py::object const& progress) const {
    Watch watch(progress);
    TransferOptions const options = optionsOf(watch, threads);
    py::gil_scoped_release const released;
    forEachPart(key.region, samples, strides, type, [&](Extent4 const& region, ArrayRef<4> const& array) {
        chain_->with([&](IBufferAccessor& accessor) { readRegion(accessor, region, array, options); });
    });
}

py::object Array::read(
    py::object const& index, py::object const& out, py::object const& dtype, int threads,
    py::object const& progress) const {
    Key const key = keyOf(index.ptr(), ndim(), chain_->size());
    if (out.is_none()) {
        auto result = readFresh(key, dtype.is_none() ? type() : typeOf(dtype), threads, progress);
        return result;
    }
    if (PyArray_Check(out.ptr()) == 0) {
        throw py::type_error("out is not an ndarray");
    }
    auto* const array = asArray(out);
    bool const isSame = PyArray_NDIM(array) == key.dimensions &&
                        std::equal(key.shape.begin(), key.shape.begin() + key.dimensions, PyArray_DIMS(array));
    if (!isSame) {
        throw py::value_error("out has another shape than what is read");
    }
    if (!dtype.is_none() && &typeOf(dtype) != &sampleTypeOf(*PyArray_DESCR(array))) {
        throw py::type_error("out has another type than dtype");
    }
    if (PyArray_FailUnlessWriteable(array, "out") < 0) {
        throw py::error_already_set();
    }
    SampleType const& type = sampleTypeOf(*PyArray_DESCR(array));
    if (PyArray_IS_C_CONTIGUOUS(array)) {
        if (!key.isEmpty()) {
            readInto(key, PyArray_BYTES(array), denseStrides(key).data(), type, threads, progress);
        }
        return out;
    }
    auto const fresh = readFresh(key, type, threads, progress);
    if (PyArray_CopyInto(array, asArray(fresh)) < 0) {
        throw py::error_already_set();
    }
    return out;
}

void Array::setItem(PyObject* key, PyObject* value) const {
    write(py::reinterpret_borrow<py::object>(key), py::reinterpret_borrow<py::object>(value), 1, py::none());
}

void Array::write(py::object const& index, py::object const& value, int threads, py::object const& progress) const {
    if (!writable()) {
        throw py::value_error("assignment destination is read-only");
    }
    Key const key = keyOf(index.ptr(), ndim(), chain_->size());
    SampleType const& type = this->type();
    // numpy converts and broadcasts, by its own rules.
    auto const samples = emptyArray(key.dimensions, key.shape.data(), type);
    if (PyArray_CopyObject(asArray(samples), value.ptr()) < 0) {
        throw py::error_already_set();
    }
    if (key.isEmpty()) {
        return;
    }
    Watch watch(progress);
    TransferOptions const options = optionsOf(watch, threads);
    auto const strides = denseStrides(key);
    py::gil_scoped_release const released;
    forEachPart(key.region, samplesOf(samples), strides.data(), type, [&](Extent4 const& region, auto const& array) {
        chain_->change([&](IBufferAccessor& accessor) { writeRegion(accessor, region, array, options); });
    });
}

void Array::flush() const {
    py::gil_scoped_release const released;
    chain_->with([](IBufferAccessor& accessor) { Adt::BulkView::flush(accessor); });
}

py::array Array::gather(py::array const& indices) const {
    auto const places = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>::ensure(indices);
    if (!places || PyArray_ISINTEGER(asArray(indices)) == 0) {
        throw py::type_error("indices are not integers");
    }
    if (places.ndim() != 2 || places.shape(1) != ndim()) {
        throw py::value_error("indices have the shape (number of samples, " + std::to_string(ndim()) + ")");
    }
    std::vector<Index4> list(static_cast<std::size_t>(places.shape(0)));
    for (std::size_t n = 0; n < list.size(); ++n) {
        for (int axis = 0; axis < ndim(); ++axis) {
            std::int64_t const given = places.at(n, axis);
            std::int64_t const place = given < 0 ? given + chain_->size()[axis] : given;
            if (place < 0 || place >= chain_->size()[axis]) {
                throw py::index_error(
                    "index " + std::to_string(given) + " of sample " + std::to_string(n) +
                    " is out of bounds for axis " + std::to_string(axis) + " with size " +
                    std::to_string(chain_->size()[axis]));
            }
            list[n][axis] = static_cast<int>(place);
        }
    }
    npy_intp const count = static_cast<npy_intp>(list.size());
    auto result = emptyArray(1, &count, type());
    if (count > INT_MAX) {
        throw py::value_error("more than 2147483647 samples");
    }
    ArrayRef<1> const array(
        Adt::OpenEndedRange<1, int>::OfSize(Adt::FixedVector<1, int>(static_cast<int>(count))),
        Adt::FixedVector<1, int>(1), samplesOf(result), 0, *type().type, type().bitSize);
    py::gil_scoped_release const released;
    if (count > 0) {
        chain_->with([&](IBufferAccessor& accessor) { gatherSamples(accessor, list, array); });
    }
    return result;
}

Array Array::viewed(Adt::BulkDef::View::ArrayViewDef const& view, int axisCount) const {
    using Adt::BulkDef::View::CompositeViewDef;
    View const composed = view_ == nullptr ? View(view.clone()) : CompositeViewDef::compose(*view_, view);
    auto info = infoOfView(chain_->info(), chain_->size(), view);
    info.axisCount = axisCount;
    py::gil_scoped_release const released;
    return {
        chain_->derived([&](auto target) { return Filters::FilterFactory::MakeView(std::move(target), view); }, info),
        entity_, composed, openedAxisCount_};
}

Array Array::subset(py::object const& index) const {
    Key const key = keyOf(index.ptr(), ndim(), chain_->size());
    if (key.isEmpty() || key.isSample || key.dimensions == 0 || key.hasNewAxis) {
        throw py::value_error("a view has at least one axis and one sample, and no new axes");
    }
    auto const part = viewed(Adt::BulkDef::View::ArraySubsetDef<4>(key.region), ndim());
    std::vector<int> order;
    for (int axis = 0; axis < ndim(); ++axis) {
        if (!key.isIndex[static_cast<std::size_t>(axis)]) {
            order.push_back(axis);
        }
    }
    return order.size() == static_cast<std::size_t>(ndim()) ? part : part.transposed(order);
}

// Axes that the order does not name have one index, and go behind the others.
Array Array::transposed(std::vector<int> const& order) const {
    Adt::FixedVector<4, int> whole;
    std::array<bool, 4> isNamed{};
    int count = 0;
    for (int const axis : order) {
        if (axis < 0 || axis >= ndim() || std::exchange(isNamed[static_cast<std::size_t>(axis)], true)) {
            throw py::value_error("axes don't match array");
        }
        whole[count++] = axis;
    }
    for (int axis = 0, next = count; axis < 4; ++axis) {
        if (!isNamed[static_cast<std::size_t>(axis)]) {
            if (chain_->size()[axis] != 1) {
                throw py::value_error("axes don't match array");
            }
            whole[next++] = axis;
        }
    }
    return viewed(Adt::BulkDef::View::AxesViewDef<4>(whole), count);
}

// Whatever is done to each sample alone can be done below the view as well, which keeps the definition short.
Array Array::transformed(Adt::BulkDef::Transform::UnaryTransDef const& transform) const {
    Entity const entity =
        entity_ == nullptr ? nullptr : Adt::BulkDef::Entity::DerivedEntityDef(transform, *entity_).clone();
    DataInfo info = chain_->info();
    py::gil_scoped_release const released;
    auto chain = chain_->derived(
        [&](auto target) {
            std::vector<OpenedData> inputs;
            inputs.push_back({std::move(target), info});
            OpenedData data = Openers::standard().transformed(transform, std::move(inputs));
            info = std::move(data.info);
            return std::move(data.chain);
        },
        info);
    return {std::move(chain), entity, view_, openedAxisCount_};
}

Array Array::astype(py::object const& dtype, double scale, double offset) const {
    SampleType const& type = typeOf(dtype);
    return transformed(
        Adt::BulkDef::Transform::ConvertDef(std::string(Adt::sampleTypeName(*type.type)), scale, offset));
}

Array Array::cached(int samples) const {
    return transformed(Adt::BulkDef::Transform::CacheDef(samples));
}

// ---------------------------------------------------------------------------------------------------------------------

struct Loan::State {
    explicit State(std::shared_ptr<Chain> lender) : chain(std::move(lender)), borrower(chain->borrower()) {}
    ~State() { chain->giveBack(std::move(borrower)); }

    std::shared_ptr<Chain> chain;
    std::unique_ptr<Borrower> borrower;
};

Loan::Loan(std::shared_ptr<Chain> chain, Index4 const& index) : state_(std::make_shared<State>(std::move(chain))) {
    state_->borrower->fetch(index);
}

void Loan::release() {
    state_.reset();
}

py::tuple Loan::box() const {
    if (state_ == nullptr) {
        throw py::value_error("the loan has been released");
    }
    return slicesOf(state_->borrower->handle().range4(), state_->chain->axisCount());
}

py::array Loan::array() const {
    if (state_ == nullptr) {
        throw py::value_error("the loan has been released");
    }
    SampleType const& type = sampleTypeOf(*state_->chain->traits().sampleType);
    BufferHandle const& handle = state_->borrower->handle();
    auto const info = handle.infoSnapshot();
    int const axes = state_->chain->axisCount();
    npy_intp shape[4], strides[4];
    bool const isMissing = handle.isNull();
    for (int axis = 0; axis < axes; ++axis) {
        shape[axis] = info.range.max[axis] - info.range.min[axis];
        strides[axis] = isMissing ? 0 : npy_intp{info.strides[axis]} * (type.bitSize / 8);
    }
    static constexpr float kMissingFloat = std::numeric_limits<float>::quiet_NaN();
    static constexpr double kMissingDouble = std::numeric_limits<double>::quiet_NaN();
    static constexpr std::int64_t kMissing = 0;
    void const* const missing = type.number == NPY_FLOAT32   ? static_cast<void const*>(&kMissingFloat)
                                : type.number == NPY_FLOAT64 ? static_cast<void const*>(&kMissingDouble)
                                                             : &kMissing;
    void const* const first =
        isMissing ? missing
                  : static_cast<char const*>(handle.buffer()) + std::int64_t{info.offset} * (type.bitSize / 8);
    auto array = stolen(PyArray_New(
        &PyArray_Type, axes, shape, type.number, strides, const_cast<void*>(first), 0, /*flags=*/NPY_ARRAY_ALIGNED,
        nullptr));
    auto* const kept = new std::shared_ptr<State>(state_);
    py::capsule const base(kept, [](void* state) { delete static_cast<std::shared_ptr<State>*>(state); });
    PyArray_SetBaseObject(asArray(array), py::object(base).release().ptr());
    return array;
}

}  // namespace Quorvel::Dravik::Python
