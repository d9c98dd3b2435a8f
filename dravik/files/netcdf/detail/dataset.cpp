// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/netcdf/detail/dataset.h"

#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/files/netcdf/detail/classic_header.h"
#include "dravik/files/shared/hdf5_lock.h"
#include "dravik/files/shared/mapped_file.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <system_error>

namespace Quorvel::Dravik::Files::Detail {

namespace {

constexpr std::size_t kMostAttribute = 1 << 16;  // elements; a longer one tells a picture nothing

struct TypeRow {
    nc_type type;
    std::type_info const* sampleType;
};

TypeRow const kTypes[] = {
    {NC_BYTE, &typeid(char)},
    {NC_UBYTE, &typeid(unsigned char)},
    {NC_SHORT, &typeid(short)},
    {NC_USHORT, &typeid(unsigned short)},
    {NC_INT, &typeid(int)},
    {NC_UINT, &typeid(unsigned int)},
    {NC_INT64, &typeid(std::int64_t)},
    {NC_FLOAT, &typeid(float)},
    {NC_DOUBLE, &typeid(double)},
};

nc_type unsignedOf(nc_type type) {
    return type == NC_BYTE ? NC_UBYTE : type == NC_SHORT ? NC_USHORT : type == NC_INT ? NC_UINT : type;
}

std::string shortest(double number) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

}  // namespace

std::type_info const* sampleTypeOf(nc_type type) noexcept {
    for (TypeRow const& row : kTypes) {
        if (row.type == type) {
            return row.sampleType;
        }
    }
    return nullptr;
}

void Dataset::check(int result, std::filesystem::path const& path) {
    if (result > 0) {
        throw std::system_error(result, std::generic_category(), path.string());
    }
    if (result == NC_NOERR) {
        return;
    }
    if (result == NC_EHDFERR) {
        throwIfDiskRefused(path);
    }
    throw std::runtime_error(path.string() + ": " + nc_strerror(result));
}

NetcdfCall::NetcdfCall() : lock_(hdf5Lock()) {
    H5Eget_auto2(H5E_DEFAULT, &print_, &printData_);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    errno = 0;
}

NetcdfCall::~NetcdfCall() {
    H5Eset_auto2(H5E_DEFAULT, print_, printData_);
}

namespace {

// Calls into the library, which takes some spoilt files at their word: a fault in it becomes an exception.
template <class Call>
int guarded(std::filesystem::path const& path, Call call) {
    Adt::ICloneableException::ConstPtr failure;
    int const result = Adt::Exceptions::ClonedException::runAndCatchException(
        [](void* function) { return (*static_cast<Call*>(function))(); }, &call, &failure);
    if (failure != nullptr) {
        throw std::runtime_error(path.string() + ": is damaged");
    }
    return result;
}

void requireSound(std::filesystem::path const& path) {
    MappedFile const file(path, /*writable=*/false);
    bool isSound = true;
    file.access([&] { isSound = isSoundIfClassic({file.data(), static_cast<std::size_t>(file.byteSize())}); });
    if (!isSound) {
        throw std::runtime_error(path.string() + ": its netCDF header is damaged");
    }
}

}  // namespace

Dataset::Dataset(std::filesystem::path path, int mode) : path_(std::move(path)) {
    requireSound(path_);
    NetcdfCall const call;
    check(guarded(path_, [&] { return nc_open(path_.c_str(), mode, &id_); }), path_);
}

Dataset::~Dataset() {
    NetcdfCall const call;
    nc_close(id_);
}

Variable Dataset::describe(int id) const {
    Variable variable;
    char name[NC_MAX_NAME + 1] = {};
    int axisCount = 0;
    check(nc_inq_var(id_, id, name, &variable.type, &axisCount, nullptr, nullptr), path_);
    variable.id = id;
    variable.name = name;
    std::vector<int> axes(static_cast<std::size_t>(axisCount));
    check(nc_inq_vardimid(id_, id, axes.data()), path_);
    for (int const axis : axes) {
        std::size_t length = 0;
        check(nc_inq_dim(id_, axis, name, &length), path_);
        variable.axes.emplace_back(name);
        variable.shape.push_back(length);
    }
    int storage = NC_CONTIGUOUS;
    std::vector<std::size_t> chunks(axes.size());
    if (!axes.empty() && nc_inq_var_chunking(id_, id, &storage, chunks.data()) == NC_NOERR && storage == NC_CHUNKED) {
        variable.chunks = chunks;
    }
    if (auto const told = text(variable, "_Unsigned"); told == "true") {
        variable.type = unsignedOf(variable.type);
    }
    return variable;
}

std::vector<Variable> Dataset::variables() const {
    NetcdfCall const call;
    int count = 0;
    check(nc_inq_nvars(id_, &count), path_);
    std::vector<Variable> all;
    all.reserve(static_cast<std::size_t>(count));
    for (int id = 0; id < count; ++id) {
        all.push_back(describe(id));
    }
    return all;
}

std::string Dataset::nameOf(nc_type type) const {
    NetcdfCall const call;
    char name[NC_MAX_NAME + 1] = {};
    check(nc_inq_type(id_, type, name, nullptr), path_);
    return name;
}

std::vector<double> Dataset::numbers(Variable const& variable, char const* attribute) const {
    NetcdfCall const call;
    nc_type type = NC_NAT;
    std::size_t length = 0;
    if (nc_inq_att(id_, variable.id, attribute, &type, &length) != NC_NOERR || sampleTypeOf(type) == nullptr ||
        length > kMostAttribute) {
        return {};
    }
    std::vector<double> values(length);
    check(nc_get_att_double(id_, variable.id, attribute, values.data()), path_);
    return values;
}

std::optional<double> Dataset::number(Variable const& variable, char const* attribute) const {
    auto const values = numbers(variable, attribute);
    return values.size() == 1 ? std::optional(values.front()) : std::nullopt;
}

std::string Dataset::text(Variable const& variable, char const* attribute) const {
    NetcdfCall const call;
    nc_type type = NC_NAT;
    std::size_t length = 0;
    if (nc_inq_att(id_, variable.id, attribute, &type, &length) != NC_NOERR || length > kMostAttribute) {
        return {};
    }
    if (type == NC_CHAR) {
        std::string value(length, '\0');
        check(nc_get_att_text(id_, variable.id, attribute, value.data()), path_);
        return value.substr(0, value.find('\0'));
    }
    std::string value;
    if (type == NC_STRING) {
        std::vector<char*> parts(length, nullptr);
        check(nc_get_att_string(id_, variable.id, attribute, parts.data()), path_);
        for (char const* const part : parts) {
            value.append(value.empty() ? 0 : 1, ' ').append(part == nullptr ? "" : part);
        }
        nc_free_string(length, parts.data());
        return value;
    }
    for (double const number : numbers(variable, attribute)) {
        value.append(value.empty() ? 0 : 1, ' ').append(shortest(number));
    }
    return value;
}

std::vector<std::pair<std::string, std::string>> Dataset::attributes(Variable const& variable) const {
    NetcdfCall const call;
    int count = 0;
    check(nc_inq_varnatts(id_, variable.id, &count), path_);
    std::vector<std::pair<std::string, std::string>> all;
    for (int n = 0; n < count; ++n) {
        char name[NC_MAX_NAME + 1] = {};
        check(nc_inq_attname(id_, variable.id, n, name), path_);
        all.emplace_back(name, text(variable, name));
    }
    return all;
}

std::vector<double> Dataset::coordinates(Variable const& variable) const {
    NetcdfCall const call;
    std::vector<double> values(variable.shape.at(0));
    std::size_t const start = 0;
    check(
        guarded(
            path_, [&] { return nc_get_vara_double(id_, variable.id, &start, variable.shape.data(), values.data()); }),
        path_);
    return values;
}

void Dataset::keepNoChunks(Variable const& variable) {
    std::lock_guard const lock(hdf5Lock());
    if (!variable.chunks.empty()) {
        check(nc_set_var_chunk_cache(id_, variable.id, 0, 0, 0), path_);
    }
}

void Dataset::read(Variable const& variable, std::size_t const* start, std::size_t const* count, void* samples) const {
    NetcdfCall const call;
    check(guarded(path_, [&] { return nc_get_vara(id_, variable.id, start, count, samples); }), path_);
}

void Dataset::write(Variable const& variable, std::size_t const* start, std::size_t const* count, void const* samples) {
    NetcdfCall const call;
    check(nc_put_vara(id_, variable.id, start, count, samples), path_);
}

void Dataset::flush() {
    NetcdfCall const call;
    check(nc_sync(id_), path_);
}

}  // namespace Quorvel::Dravik::Files::Detail
