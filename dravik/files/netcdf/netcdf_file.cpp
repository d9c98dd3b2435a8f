// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/netcdf/netcdf_file.h"

#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/files/netcdf/detail/dataset.h"
#include "dravik/files/netcdf/detail/netcdf_store.h"
#include "dravik/files/shared/chunk_shape.h"
#include "dravik/text/forms.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <array>
#include <fstream>
#include <iomanip>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files {

using Detail::Dataset;
using Detail::Variable;

namespace {

constexpr std::size_t kMostCoordinates = 1 << 24;

bool canBeOpened(Variable const& variable) {
    return Detail::sampleTypeOf(variable.type) != nullptr && !variable.shape.empty() && variable.shape.size() <= 4 &&
           std::find(variable.shape.begin(), variable.shape.end(), std::size_t{0}) == variable.shape.end();
}

std::vector<std::string> namesOf(std::vector<Variable> const& variables) {
    std::vector<std::string> names;
    for (Variable const& each : variables) {
        if (canBeOpened(each)) {
            names.push_back(each.name);
        }
    }
    return names;
}

Variable const& variableOf(Dataset const& dataset, std::vector<Variable> const& variables, std::string const& name) {
    auto const found =
        std::find_if(variables.begin(), variables.end(), [&](Variable const& each) { return each.name == name; });
    if (found != variables.end()) {
        return *found;
    }
    std::string others;
    for (std::string const& other : namesOf(variables)) {
        others.append(others.empty() ? "" : ", ").append(other);
    }
    throw std::runtime_error(
        dataset.path().string() + ": no variable \"" + name + "\"; there are " + (others.empty() ? "none" : others));
}

// The one with most samples that is no coordinate of an axis.
std::string mainVariable(Dataset const& dataset, std::vector<Variable> const& variables) {
    Variable const* main = nullptr;
    double most = -1;
    for (Variable const& each : variables) {
        double samples = 1;
        for (std::size_t const length : each.shape) {
            samples *= static_cast<double>(length);
        }
        bool const isCoordinate = each.axes.size() == 1 && each.axes[0] == each.name;
        if (canBeOpened(each) && !isCoordinate && samples > most) {
            main = &each;
            most = samples;
        }
    }
    if (main == nullptr) {
        throw std::runtime_error(dataset.path().string() + ": has no variable of one to four axes");
    }
    return main->name;
}

Packing packingOf(Dataset const& dataset, Variable const& variable) {
    Packing packing;
    packing.scale = dataset.number(variable, "scale_factor").value_or(1);
    packing.offset = dataset.number(variable, "add_offset").value_or(0);
    for (char const* const attribute : {"_FillValue", "missing_value"}) {
        auto const values = dataset.numbers(variable, attribute);
        packing.missing.insert(packing.missing.end(), values.begin(), values.end());
    }
    return packing;
}

std::vector<double> coordinatesOf(Dataset const& dataset, Variable const& variable) {
    auto coordinates = dataset.coordinates(variable);
    if (auto const packing = packingOf(dataset, variable); packing.isScaled()) {
        for (double& each : coordinates) {
            each = each * packing.scale + packing.offset;
        }
    }
    return coordinates;
}

Adt::BulkView::DataInfo infoOf(
    Dataset const& dataset, std::vector<Variable> const& variables, Variable const& variable, bool isPacked) {
    Adt::BulkView::DataInfo info;
    info.axisCount = static_cast<int>(variable.shape.size());
    for (std::size_t axis = 0; axis < variable.axes.size(); ++axis) {
        info.axes[axis].name = variable.axes[axis];
        for (Variable const& each : variables) {
            if (each.name == variable.axes[axis] && each.axes.size() == 1 && canBeOpened(each) &&
                each.shape[0] <= kMostCoordinates) {
                info.axes[axis].unit = dataset.text(each, "units");
                info.axes[axis].coordinates = coordinatesOf(dataset, each);
            }
        }
    }
    info.valueName = variable.name;
    info.valueUnit = dataset.text(variable, "units");
    info.attributes = dataset.attributes(variable);
    auto const isTold = [](auto const& attribute) {
        constexpr std::array<char const*, 5> kTold = {
            "units", "scale_factor", "add_offset", "_FillValue", "missing_value"};
        return std::find(kTold.begin(), kTold.end(), attribute.first) != kTold.end();
    };
    if (isPacked) {
        auto const packing = packingOf(dataset, variable);
        info.missingValue = packing.missing.empty() ? std::nullopt : std::optional(packing.missing.front());
    } else {
        info.attributes.erase(
            std::remove_if(info.attributes.begin(), info.attributes.end(), isTold), info.attributes.end());
    }
    return info;
}

// "CDF" and a version, or HDF5's eight bytes.
bool looksLikeNetcdf(std::filesystem::path const& path) {
    std::array<char, 8> bytes{};
    std::ifstream(path, std::ios::binary).read(bytes.data(), bytes.size());
    std::string_view const start(bytes.data(), bytes.size());
    constexpr std::string_view kHdf5("\x89HDF\r\n\x1a\n", 8);
    return start == kHdf5 || (start.substr(0, 3) == "CDF" && (start[3] == 1 || start[3] == 2 || start[3] == 5));
}

boost::shared_ptr<Adt::BulkDef::SourceDef const> recognise(
    std::filesystem::path const& path, std::string const& variable) {
    if (!looksLikeNetcdf(path)) {
        return nullptr;
    }
    Dataset const dataset(path, NC_NOWRITE);
    auto const variables = dataset.variables();
    // HDF5 keeps data sets in groups, which are none of netCDF's variables: another format's to open.
    if (variables.empty() || variable.find('/') != std::string::npos) {
        return nullptr;
    }
    auto const name = variable.empty() ? mainVariable(dataset, variables) : variable;
    variableOf(dataset, variables, name);
    return boost::make_shared<NetcdfFileDef const>(path, name);
}

nc_type typeNamed(std::string const& name) {
    constexpr std::pair<char const*, nc_type> kTypes[] = {
        {"int8", NC_BYTE},   {"uint8", NC_UBYTE}, {"int16", NC_SHORT},   {"uint16", NC_USHORT}, {"int32", NC_INT},
        {"uint32", NC_UINT}, {"int64", NC_INT64}, {"float32", NC_FLOAT}, {"float64", NC_DOUBLE}};
    for (auto const& [each, type] : kTypes) {
        if (name == each) {
            return type;
        }
    }
    throw std::invalid_argument("[NetcdfLayout] Invalid argument: no samples of type \"" + name + "\".");
}

int sampleBytesOf(nc_type type) {
    return Adt::TypeRegister::sizeofTypeInBits(*Detail::sampleTypeOf(type)) / 8;
}

std::string nameOfAxis(NetcdfLayout const& layout, std::size_t axis) {
    bool const hasName = !layout.axes.empty() && !layout.axes[axis].name.empty();
    return !layout.axisNames.empty() ? layout.axisNames[axis]
           : hasName                 ? layout.axes[axis].name
                                     : "axis" + std::to_string(axis);
}

// A variable named as its axis.
void defineCoordinates(int file, std::string const& name, int axis, std::string const& unit, auto const& check) {
    int variable = 0;
    check(nc_def_var(file, name.c_str(), NC_DOUBLE, 1, &axis, &variable));
    if (!unit.empty()) {
        check(nc_put_att_text(file, variable, "units", unit.size(), unit.c_str()));
    }
}

void writeCoordinates(int file, NetcdfLayout const& layout, std::filesystem::path const& path) {
    for (std::size_t axis = 0; axis < layout.axes.size(); ++axis) {
        auto const& coordinates = layout.axes[axis].coordinates;
        if (!coordinates.empty()) {
            int variable = 0;
            Dataset::check(nc_inq_varid(file, nameOfAxis(layout, axis).c_str(), &variable), path);
            Dataset::check(nc_put_var_double(file, variable, coordinates.data()), path);
        }
    }
}

void define(int file, NetcdfLayout const& layout, std::filesystem::path const& path) {
    auto const check = [&](int result) { Dataset::check(result, path); };
    std::vector<int> axes(layout.shape.size());
    for (std::size_t axis = 0; axis < axes.size(); ++axis) {
        auto const name = nameOfAxis(layout, axis);
        check(nc_def_dim(file, name.c_str(), static_cast<std::size_t>(layout.shape[axis]), &axes[axis]));
        if (!layout.axes.empty() && !layout.axes[axis].coordinates.empty()) {
            defineCoordinates(file, name, axes[axis], layout.axes[axis].unit, check);
        }
    }
    int variable = 0;
    nc_type const type = typeNamed(layout.sampleType);
    check(nc_def_var(file, layout.variable.c_str(), type, static_cast<int>(axes.size()), axes.data(), &variable));
    // In one piece the library would fill the whole with missing samples first.
    auto const sides = layout.chunks.empty() ? chunkShape(layout.shape, sampleBytesOf(type)) : layout.chunks;
    if (sides != layout.shape || !layout.chunks.empty()) {
        std::vector<std::size_t> const chunks(sides.begin(), sides.end());
        check(nc_def_var_chunking(file, variable, NC_CHUNKED, chunks.data()));
    }
    if (layout.deflateLevel > 0) {
        check(nc_def_var_deflate(file, variable, /*shuffle=*/1, /*deflate=*/1, layout.deflateLevel));
    }
    if (!layout.unit.empty()) {
        check(nc_put_att_text(file, variable, "units", layout.unit.size(), layout.unit.c_str()));
    }
    if (layout.missingValue) {
        check(nc_put_att_double(file, variable, "_FillValue", type, 1, &*layout.missingValue));
    }
    check(nc_enddef(file));
    writeCoordinates(file, layout, path);
}

Text::Node written(NetcdfFileDef const& file, Text::DefinitionWriter& /*writer*/) {
    Text::Node node;
    node.set("path", file.path().native()).set("variable", file.variable());
    node.set("packed", file.options().isPacked).set("writable", file.options().isWritable);
    return node;
}

boost::shared_ptr<NetcdfFileDef const> read(Text::Node const& node, Text::DefinitionReader& /*reader*/) {
    auto const flag = [&](char const* key) {
        auto const* const value = node.find(key);
        return value != nullptr && value->as<bool>();
    };
    NetcdfFileDef::Options options;
    options.isPacked = flag("packed");
    options.isWritable = flag("writable");
    return boost::make_shared<NetcdfFileDef const>(
        node.at("path").as<std::string>(), node.at("variable").as<std::string>(), options);
}

// At load, so that whoever links or loads this library can open its files.
[[maybe_unused]] bool const kIsRegistered = [] {
    registerNetcdf(Adt::BulkView::Openers::standard());
    Text::Forms::standard().add<NetcdfFileDef>("NetcdfFile", written, read);
    return true;
}();

}  // namespace

NetcdfFileDef::NetcdfFileDef(std::filesystem::path path, std::string variable)
    : NetcdfFileDef(std::move(path), std::move(variable), Options()) {}

NetcdfFileDef::NetcdfFileDef(std::filesystem::path path, std::string variable, Options options)
    : path_(std::move(path)), variable_(std::move(variable)), options_(options) {}

int NetcdfFileDef::getHashCode() const {
    return Adt::Hasher(43)(path_.native())(variable_);
}

void NetcdfFileDef::print(std::ostream& out) const {
    out << "NetcdfFileDef(" << path_ << ", " << std::quoted(variable_) << (options_.isPacked ? ", packed" : "") << ")";
}

bool NetcdfFileDef::compare(Adt::BulkDef::SourceDef const& other) const {
    auto const* const file = dynamic_cast<NetcdfFileDef const*>(&other);
    return file != nullptr && path_.native() == file->path_.native() && variable_ == file->variable_ &&
           options_ == file->options_;
}

std::unique_ptr<Adt::BulkDef::SourceDef> NetcdfFileDef::makeClone() const {
    return std::make_unique<NetcdfFileDef>(path_, variable_, options_);
}

NetcdfVariable openNetcdfVariable(NetcdfFileDef const& file) {
    auto const dataset = std::make_shared<Dataset>(file.path(), file.options().isWritable ? NC_WRITE : NC_NOWRITE);
    auto const variables = dataset->variables();
    Variable const& variable = variableOf(*dataset, variables, file.variable());
    auto const packing = file.options().isPacked ? Packing() : packingOf(*dataset, variable);
    NetcdfVariable opened;
    opened.store = Detail::makeNetcdfStore(dataset, variable, packing, file.options().isWritable);
    opened.info = infoOf(*dataset, variables, variable, file.options().isPacked);
    return opened;
}

Adt::BulkView::OpenedData openNetcdf(NetcdfFileDef const& file, Adt::BulkView::Openers const& openers) {
    auto opened = openNetcdfVariable(file);
    return {Adt::BulkView::StoreAccessor::Make(std::move(opened.store), openers.pool()), std::move(opened.info)};
}

std::vector<std::string> netcdfVariables(std::filesystem::path const& path) {
    return namesOf(Dataset(path, NC_NOWRITE).variables());
}

void createNetcdf(std::filesystem::path const& path, NetcdfLayout const& layout) {
    auto const axes = layout.shape.size();
    auto const fits = [&](auto const& list) { return list.empty() || list.size() == axes; };
    auto const isPositive = [](int length) { return length > 0; };
    if (axes < 1 || axes > 4 || !fits(layout.axisNames) || !fits(layout.chunks) || !fits(layout.axes) ||
        !std::all_of(layout.shape.begin(), layout.shape.end(), isPositive) ||
        !std::all_of(layout.chunks.begin(), layout.chunks.end(), isPositive)) {
        throw std::invalid_argument("[NetcdfLayout] Invalid argument: shape, chunks and names of axes have one to four "
                                    "elements, all alike, and numbers above 0.");
    }
    for (std::size_t axis = 0; axis < layout.axes.size(); ++axis) {
        auto const count = layout.axes[axis].coordinates.size();
        if (count != 0 && count != static_cast<std::size_t>(layout.shape[axis])) {
            throw std::invalid_argument(
                "[NetcdfLayout] Invalid argument: " + std::to_string(count) + " coordinates for " +
                std::to_string(layout.shape[axis]) + " samples along axis " + std::to_string(axis) + ".");
        }
    }
    typeNamed(layout.sampleType);
    if (std::filesystem::exists(path)) {
        throw std::system_error(std::make_error_code(std::errc::file_exists), path.string());
    }
    Detail::NetcdfCall const call;
    int id = 0;
    Dataset::check(nc_create(path.c_str(), NC_NETCDF4 | NC_NOCLOBBER, &id), path);
    try {
        define(id, layout, path);
        Dataset::check(nc_close(id), path);
    } catch (...) {
        nc_abort(id);
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        throw;
    }
}

void registerNetcdf(Adt::BulkView::Openers& openers) {
    openers.addSource<NetcdfFileDef>(openNetcdf);
    openers.addFormat("netCDF", recognise);
}

}  // namespace Quorvel::Dravik::Files
