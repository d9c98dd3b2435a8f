// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/hdf5/detail/data_set.h"

#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/files/shared/dense_box.h"
#include "dravik/files/shared/hdf5_lock.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <stdexcept>
#include <system_error>

namespace Quorvel::Dravik::Files::Detail {

namespace {

constexpr hssize_t kMostAttribute = 1 << 16;  // elements; a longer one tells a picture nothing
constexpr int kMostCoordinates = 1 << 24;
constexpr std::size_t kMostNeighbours = 1 << 12;  // looked at for scales of axes

// Calls the library, which takes some spoilt files at their word: a fault in it becomes an exception.
template <class Call>
hid_t guarded(std::filesystem::path const& path, Call call) {
    hid_t result = -1;
    auto act = [&] { return result = call(), 0; };
    Adt::ICloneableException::ConstPtr failure;
    Adt::Exceptions::ClonedException::runAndCatchException(
        [](void* function) { return (*static_cast<decltype(act)*>(function))(); }, &act, &failure);
    if (failure != nullptr) {
        throw std::runtime_error(path.string() + ": is damaged");
    }
    return Hdf5Call::check(result, path);
}

Hdf5Id openFile(std::filesystem::path const& path, bool writable) {
    Hdf5Call const call;
    // For the message of the operating system.
    if (std::error_code error; !std::filesystem::exists(path, error)) {
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory), path.string());
    }
    return {
        guarded(path, [&] { return H5Fopen(path.c_str(), writable ? H5F_ACC_RDWR : H5F_ACC_RDONLY, H5P_DEFAULT); }),
        H5Fclose};
}

// Large chunks would pass through the library's cache for nothing: the pool keeps them.
Hdf5Id openSet(Hdf5Id const& file, std::filesystem::path const& path, std::string const& name) {
    Hdf5Call const call;
    Hdf5Id const access(Hdf5Call::check(H5Pcreate(H5P_DATASET_ACCESS), path), H5Pclose);
    Hdf5Call::check(H5Pset_chunk_cache(access, 0, 0, 1), path);
    return {guarded(path, [&] { return H5Dopen2(file, name.c_str(), access); }), H5Dclose};
}

std::string shortest(double number) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

std::type_info const* sampleTypeOf(hid_t type) {
    auto const size = H5Tget_size(type);
    if (H5Tget_class(type) == H5T_FLOAT) {
        return size == 4 ? &typeid(float) : size == 8 ? &typeid(double) : nullptr;
    }
    if (H5Tget_class(type) != H5T_INTEGER) {
        return nullptr;
    }
    bool const isSigned = H5Tget_sign(type) == H5T_SGN_2;
    switch (size) {
    case 1:
        return isSigned ? &typeid(char) : &typeid(unsigned char);
    case 2:
        return isSigned ? &typeid(short) : &typeid(unsigned short);
    case 4:
        return isSigned ? &typeid(int) : &typeid(unsigned int);
    case 8:
        return isSigned ? &typeid(std::int64_t) : nullptr;
    default:
        return nullptr;
    }
}

std::vector<double> numbersOf(hid_t object, char const* attribute, std::filesystem::path const& path) {
    if (H5Aexists(object, attribute) <= 0) {
        return {};
    }
    Hdf5Id const id(Hdf5Call::check(H5Aopen(object, attribute, H5P_DEFAULT), path), H5Aclose);
    Hdf5Id const space(Hdf5Call::check(H5Aget_space(id), path), H5Sclose);
    Hdf5Id const type(Hdf5Call::check(H5Aget_type(id), path), H5Tclose);
    hssize_t const count = H5Sget_simple_extent_npoints(space);
    if (sampleTypeOf(type) == nullptr || count < 1 || count > kMostAttribute) {
        return {};
    }
    std::vector<double> values(static_cast<std::size_t>(count));
    Hdf5Call::check(H5Aread(id, H5T_NATIVE_DOUBLE, values.data()), path);
    return values;
}

// Numbers one after the other, or one string.
std::optional<std::string> textOf(hid_t attribute, std::filesystem::path const& path) {
    Hdf5Id const space(Hdf5Call::check(H5Aget_space(attribute), path), H5Sclose);
    Hdf5Id const type(Hdf5Call::check(H5Aget_type(attribute), path), H5Tclose);
    hssize_t const count = H5Sget_simple_extent_npoints(space);
    if (count < 1 || count > kMostAttribute) {
        return std::nullopt;
    }
    if (sampleTypeOf(type) != nullptr) {
        std::vector<double> numbers(static_cast<std::size_t>(count));
        Hdf5Call::check(H5Aread(attribute, H5T_NATIVE_DOUBLE, numbers.data()), path);
        std::string value;
        for (double const number : numbers) {
            value.append(value.empty() ? 0 : 1, ' ').append(shortest(number));
        }
        return value;
    }
    if (H5Tget_class(type) != H5T_STRING || count != 1) {
        return std::nullopt;
    }
    if (H5Tis_variable_str(type) > 0) {
        char* told = nullptr;
        guarded(path, [&] { return H5Aread(attribute, type, static_cast<void*>(&told)); });
        std::string value = told == nullptr ? "" : told;
        H5free_memory(told);
        return value;
    }
    std::string value(std::min<std::size_t>(H5Tget_size(type), kMostAttribute) + 1, '\0');
    if (value.size() != H5Tget_size(type) + 1) {
        return std::nullopt;
    }
    Hdf5Call::check(H5Aread(attribute, type, value.data()), path);
    return value.substr(0, value.find('\0'));
}

std::string textOf(hid_t object, char const* attribute, std::filesystem::path const& path) {
    if (H5Aexists(object, attribute) <= 0) {
        return {};
    }
    Hdf5Id const id(Hdf5Call::check(H5Aopen(object, attribute, H5P_DEFAULT), path), H5Aclose);
    return textOf(id, path).value_or("");
}

// Where the scale `object` says that it is attached: the data sets and their axes.
struct Attached {
    hobj_ref_t set;
    int axis;
};

std::vector<Attached> attachedTo(hid_t object, std::filesystem::path const& path) {
    if (H5Iget_type(object) != H5I_DATASET || H5Aexists(object, "REFERENCE_LIST") <= 0) {
        return {};
    }
    Hdf5Id const id(Hdf5Call::check(H5Aopen(object, "REFERENCE_LIST", H5P_DEFAULT), path), H5Aclose);
    Hdf5Id const space(Hdf5Call::check(H5Aget_space(id), path), H5Sclose);
    Hdf5Id const stored(Hdf5Call::check(H5Aget_type(id), path), H5Tclose);
    hssize_t const count = H5Sget_simple_extent_npoints(space);
    if (H5Tget_class(stored) != H5T_COMPOUND || count < 1 || count > kMostAttribute) {
        return {};
    }
    Hdf5Id const type(Hdf5Call::check(H5Tcreate(H5T_COMPOUND, sizeof(Attached)), path), H5Tclose);
    Hdf5Call::check(H5Tinsert(type, "dataset", HOFFSET(Attached, set), H5T_STD_REF_OBJ), path);
    Hdf5Call::check(H5Tinsert(type, "dimension", HOFFSET(Attached, axis), H5T_NATIVE_INT), path);
    std::vector<Attached> all(static_cast<std::size_t>(count));
    guarded(path, [&] { return H5Aread(id, type, all.data()); });
    return all;
}

std::vector<std::string> namesInGroup(hid_t file, std::string const& group) {
    std::vector<std::string> names;
    auto const visit = [](hid_t, char const* name, H5L_info_t const*, void* data) -> herr_t {
        try {
            auto& all = *static_cast<std::vector<std::string>*>(data);
            all.emplace_back(name);
            return all.size() < kMostNeighbours ? 0 : 1;
        } catch (std::bad_alloc const&) {
            return -1;
        }
    };
    H5Literate_by_name(file, group.c_str(), H5_INDEX_NAME, H5_ITER_INC, nullptr, visit, &names, H5P_DEFAULT);
    return names;
}

}  // namespace

Hdf5Call::Hdf5Call() : lock_(hdf5Lock()) {
    H5Eget_auto2(H5E_DEFAULT, &print_, &printData_);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    errno = 0;
}

Hdf5Call::~Hdf5Call() {
    H5Eset_auto2(H5E_DEFAULT, print_, printData_);
}

hid_t Hdf5Call::check(hid_t result, std::filesystem::path const& path) {
    if (result >= 0) {
        return result;
    }
    throwIfDiskRefused(path);
    char const* told = nullptr;
    auto const first = [](unsigned number, H5E_error2_t const* error, void* data) -> herr_t {
        if (number == 0) {
            *static_cast<char const**>(data) = error->desc;
        }
        return 0;
    };
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, first, &told);
    throw std::runtime_error(path.string() + ": " + (told == nullptr ? "HDF5 tells an error" : told));
}

Hdf5Id::~Hdf5Id() {
    if (id_ >= 0) {
        Hdf5Call const call;
        close_(id_);
    }
}

hid_t memoryTypeOf(std::type_info const& type) {
    Hdf5Call const call;
    std::pair<std::type_info const*, hid_t> const rows[] = {
        {&typeid(char), H5T_NATIVE_SCHAR},
        {&typeid(unsigned char), H5T_NATIVE_UCHAR},
        {&typeid(short), H5T_NATIVE_SHORT},
        {&typeid(unsigned short), H5T_NATIVE_USHORT},
        {&typeid(int), H5T_NATIVE_INT},
        {&typeid(unsigned int), H5T_NATIVE_UINT},
        {&typeid(std::int64_t), H5T_NATIVE_INT64},
        {&typeid(float), H5T_NATIVE_FLOAT},
        {&typeid(double), H5T_NATIVE_DOUBLE},
    };
    return std::find_if(std::begin(rows), std::end(rows) - 1, [&](auto const& row) { return *row.first == type; })
        ->second;
}

namespace {

std::string textOf(hid_t type) {
    auto const bits = std::to_string(8 * H5Tget_size(type));
    switch (H5Tget_class(type)) {
    case H5T_INTEGER:
        return (H5Tget_sign(type) == H5T_SGN_NONE ? "uint" : "int") + bits;
    case H5T_FLOAT:
        return "float" + bits;
    case H5T_STRING:
        return "text";
    case H5T_COMPOUND:
        return "compound";
    default:
        return "that is no number";
    }
}

}  // namespace

std::vector<std::string> DataSet::namesIn(std::filesystem::path const& path) {
    Hdf5Call const call;
    auto const file = openFile(path, /*writable=*/false);
    std::vector<std::string> names;
    auto const visit = [](hid_t, char const* name, H5O_info_t const* info, void* data) -> herr_t {
        try {
            if (info->type == H5O_TYPE_DATASET) {
                static_cast<std::vector<std::string>*>(data)->emplace_back(name);
            }
            return 0;
        } catch (std::bad_alloc const&) {
            return -1;
        }
    };
    guarded(path, [&] { return H5Ovisit2(file, H5_INDEX_NAME, H5_ITER_INC, visit, &names, H5O_INFO_BASIC); });
    std::sort(names.begin(), names.end());
    return names;
}

bool DataSet::isNetcdf(std::filesystem::path const& path) {
    Hdf5Call const call;
    auto const file = openFile(path, /*writable=*/false);
    return H5Aexists(file, "_NCProperties") > 0;
}

DataSet::DataSet(std::filesystem::path path, std::string const& name, bool writable)
    : path_(std::move(path)), name_(name), file_(openFile(path_, writable)), set_(openSet(file_, path_, name)) {
    describe();
}

void DataSet::describe() {
    Hdf5Call const call;
    auto const refuse = [&](std::string const& why) {
        throw std::runtime_error(path_.string() + ": the data set \"" + name_ + "\" " + why);
    };
    Hdf5Id const type(Hdf5Call::check(H5Dget_type(set_), path_), H5Tclose);
    type_ = sampleTypeOf(type);
    if (type_ == nullptr) {
        refuse(
            "has samples of type " + textOf(type) +
            "; int8 to int64, uint8 to uint32, float32 and float64 can be read");
    }
    Hdf5Id const space(Hdf5Call::check(H5Dget_space(set_), path_), H5Sclose);
    int const axes = H5Sget_simple_extent_ndims(space);
    if (axes < 1 || axes > 4) {
        refuse("has " + std::to_string(axes) + " axes, not one to four");
    }
    hsize_t lengths[4] = {}, chunks[4] = {};
    H5Sget_simple_extent_dims(space, lengths, nullptr);
    Hdf5Id const properties(Hdf5Call::check(H5Dget_create_plist(set_), path_), H5Pclose);
    bool const isChunked = H5Pget_layout(properties) == H5D_CHUNKED && H5Pget_chunk(properties, axes, chunks) == axes;
    size_ = Adt::FixedVector<4, int>::Filled(1);
    auto chunk = size_;
    for (int axis = 0; axis < axes; ++axis) {
        if (lengths[axis] < 1 || lengths[axis] > INT_MAX) {
            refuse("has " + std::to_string(lengths[axis]) + " indices along axis " + std::to_string(axis));
        }
        size_[axis] = static_cast<int>(lengths[axis]);
        chunk[axis] = static_cast<int>(std::clamp<hsize_t>(chunks[axis], 1, lengths[axis]));
        shape_.push_back(size_[axis]);
    }
    if (isChunked) {
        chunk_ = chunk;
    }
}

std::vector<double> DataSet::numbers(char const* attribute) const {
    Hdf5Call const call;
    return numbersOf(set_, attribute, path_);
}

bool DataSet::isScale() const {
    Hdf5Call const call;
    return textOf(set_, "CLASS", path_) == "DIMENSION_SCALE";
}

std::vector<DimensionScale> DataSet::scales() const {
    Hdf5Call const call;
    std::vector<DimensionScale> all(shape_.size());
    addAttachedScales(all);
    if (all.size() == 1 && isScale()) {
        all[0] = scaleFrom(set_, shape_[0]);
    }
    return all;
}

// Scales stand in the group of the data set or in one around it. They are found by what they tell themselves, in a list
// of fixed size: that of the data set is of any length, which the library takes from a spoilt file at its word.
void DataSet::addAttachedScales(std::vector<DimensionScale>& scales) const {
    hobj_ref_t self = 0;
    Hdf5Call::check(H5Rcreate(&self, set_, ".", H5R_OBJECT, -1), path_);
    std::string group = "/" + name_;
    while (!group.empty()) {
        group.erase(group.rfind('/'));
        for (std::string const& name : namesInGroup(file_, group + "/")) {
            auto const full = std::string(group).append("/").append(name);
            if (H5Oexists_by_name(file_, full.c_str(), H5P_DEFAULT) <= 0) {
                continue;
            }
            Hdf5Id const object(guarded(path_, [&] { return H5Oopen(file_, full.c_str(), H5P_DEFAULT); }), H5Oclose);
            for (Attached const& each : attachedTo(object, path_)) {
                auto const axis = static_cast<std::size_t>(each.axis);
                if (each.set == self && axis < scales.size() && scales[axis].name.empty()) {
                    scales[axis] = scaleFrom(object, shape_[axis]);
                }
            }
        }
    }
}

DimensionScale DataSet::scaleFrom(hid_t scale, int length) const {
    DimensionScale found;
    auto const nameLength = std::max<ssize_t>(H5Iget_name(scale, nullptr, 0), 0);
    found.name.resize(static_cast<std::size_t>(nameLength));
    H5Iget_name(scale, found.name.data(), found.name.size() + 1);
    found.name.erase(0, found.name.rfind('/') + 1);
    found.unit = textOf(scale, "units", path_);
    // netCDF makes scales without numbers for axes that have only a length.
    bool const isName =
        textOf(scale, "NAME", path_).starts_with("This is a netCDF dimension but not a netCDF variable");
    Hdf5Id const type(Hdf5Call::check(H5Dget_type(scale), path_), H5Tclose);
    Hdf5Id const space(Hdf5Call::check(H5Dget_space(scale), path_), H5Sclose);
    if (isName || sampleTypeOf(type) == nullptr || length > kMostCoordinates ||
        H5Sget_simple_extent_ndims(space) != 1 || H5Sget_simple_extent_npoints(space) != length) {
        return found;
    }
    found.coordinates.resize(static_cast<std::size_t>(length));
    guarded(path_, [&] {
        return H5Dread(scale, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, found.coordinates.data());
    });
    auto const factor = numbersOf(scale, "scale_factor", path_), offset = numbersOf(scale, "add_offset", path_);
    for (double& each : found.coordinates) {
        each = each * (factor.empty() ? 1 : factor[0]) + (offset.empty() ? 0 : offset[0]);
    }
    return found;
}

std::vector<std::pair<std::string, std::string>> DataSet::attributes() const {
    Hdf5Call const call;
    std::vector<std::pair<std::string, std::string>> all;
    auto const count = H5Aget_num_attrs(set_);
    for (int n = 0; n < count; ++n) {
        auto const place = static_cast<hsize_t>(n);
        Hdf5Id const id(
            Hdf5Call::check(
                H5Aopen_by_idx(set_, ".", H5_INDEX_NAME, H5_ITER_INC, place, H5P_DEFAULT, H5P_DEFAULT), path_),
            H5Aclose);
        std::string name(static_cast<std::size_t>(std::max<ssize_t>(H5Aget_name(id, 0, nullptr), 0)), '\0');
        H5Aget_name(id, name.size() + 1, name.data());
        if (auto value = textOf(id, path_)) {
            all.emplace_back(std::move(name), std::move(*value));
        }
    }
    return all;
}

Hdf5Id DataSet::select(Adt::OpenEndedRange<4, int> const& box) const {
    Hdf5Id space(Hdf5Call::check(H5Dget_space(set_), path_), H5Sclose);
    hsize_t start[4], count[4];
    for (int axis = 0; axis < 4; ++axis) {
        start[axis] = static_cast<hsize_t>(box.min[axis]);
        count[axis] = static_cast<hsize_t>(box.size(axis));
    }
    Hdf5Call::check(H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr), path_);
    return space;
}

void DataSet::read(Adt::OpenEndedRange<4, int> const& box, void* samples) const {
    Hdf5Call const call;
    hid_t const type = memoryTypeOf(*type_);
    auto const bytes = static_cast<std::int64_t>(H5Tget_size(type));
    // Of the same axes as in the file: the library goes from sample to sample otherwise.
    int const axes = static_cast<int>(shape_.size());
    readByParts(
        box, joinedBlocks(chunk_.value_or(size_), size_, bytes), bytes, samples, [&](auto const& part, void* to) {
            auto const space = select(part);
            hsize_t lengths[4];
            for (int axis = 0; axis < 4; ++axis) {
                lengths[axis] = static_cast<hsize_t>(part.size(axis));
            }
            Hdf5Id const memory(Hdf5Call::check(H5Screate_simple(axes, lengths, nullptr), path_), H5Sclose);
            guarded(path_, [&] { return H5Dread(set_, type, memory, space, H5P_DEFAULT, to); });
        });
}

void DataSet::write(Adt::OpenEndedRange<4, int> const& box, void const* samples) {
    Hdf5Call const call;
    hid_t const type = memoryTypeOf(*type_);
    int const axes = static_cast<int>(shape_.size());
    hsize_t lengths[4], begin[4], count[4];
    for (int axis = 0; axis < 4; ++axis) {
        lengths[axis] = static_cast<hsize_t>(box.size(axis));
    }
    Hdf5Id const memory(Hdf5Call::check(H5Screate_simple(axes, lengths, nullptr), path_), H5Sclose);
    forEachPart(box, chunk_.value_or(size_), [&](auto const& part) {
        for (int axis = 0; axis < 4; ++axis) {
            begin[axis] = static_cast<hsize_t>(part.min[axis] - box.min[axis]);
            count[axis] = static_cast<hsize_t>(part.size(axis));
        }
        Hdf5Call::check(H5Sselect_hyperslab(memory, H5S_SELECT_SET, begin, nullptr, count, nullptr), path_);
        auto const space = select(part);
        Hdf5Call::check(H5Dwrite(set_, type, memory, space, H5P_DEFAULT, samples), path_);
    });
}

void DataSet::flush() {
    Hdf5Call const call;
    Hdf5Call::check(H5Fflush(file_, H5F_SCOPE_GLOBAL), path_);
}

}  // namespace Quorvel::Dravik::Files::Detail
