// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/hdf5/hdf5_file.h"

#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/files/hdf5/detail/data_set.h"
#include "dravik/files/shared/chunk_shape.h"
#include "dravik/files/shared/dense_box.h"
#include "dravik/files/shared/packed_store.h"
#include "dravik/text/forms.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <array>
#include <fstream>
#include <initializer_list>
#include <iomanip>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files {

using Detail::DataSet;
using Detail::Hdf5Call;
using Detail::Hdf5Id;

namespace {

constexpr int kBlockBytes = 1 << 18;  // of a data set in one piece

class DataSetNumbers final : public StoredNumbers {
  public:
    explicit DataSetNumbers(std::unique_ptr<DataSet> set) : set_(std::move(set)) {}

    void read(Adt::OpenEndedRange<4, int> const& box, void* numbers) const override { set_->read(box, numbers); }
    void write(Adt::OpenEndedRange<4, int> const& box, void const* numbers) override { set_->write(box, numbers); }
    void flush() override { set_->flush(); }
    bool servesParts() const override { return false; }

  private:
    std::unique_ptr<DataSet> set_;
};

Packing packingOf(DataSet const& set) {
    Packing packing;
    auto const first = [&](char const* name, double otherwise) {
        auto const values = set.numbers(name);
        return values.empty() ? otherwise : values.front();
    };
    packing.scale = first("scale_factor", 1);
    packing.offset = first("add_offset", 0);
    for (char const* const name : {"_FillValue", "missing_value"}) {
        auto const values = set.numbers(name);
        packing.missing.insert(packing.missing.end(), values.begin(), values.end());
    }
    return packing;
}

void eraseAttributes(Adt::BulkView::DataInfo& info, std::initializer_list<std::string_view> names) {
    std::erase_if(info.attributes, [&](auto const& attribute) {
        return std::find(names.begin(), names.end(), attribute.first) != names.end();
    });
}

Adt::BulkView::DataInfo infoOf(DataSet const& set, std::string const& name, bool isPacked) {
    Adt::BulkView::DataInfo info;
    info.axisCount = static_cast<int>(set.shape().size());
    auto scales = set.scales();
    for (std::size_t axis = 0; axis < scales.size(); ++axis) {
        auto& scale = scales[axis];
        info.axes[axis] = {std::move(scale.name), std::move(scale.unit), std::move(scale.coordinates)};
    }
    info.valueName = name.substr(name.rfind('/') + 1);
    info.attributes = set.attributes();
    eraseAttributes(info, {"CLASS", "NAME"});
    auto const unit = std::find_if(info.attributes.begin(), info.attributes.end(), [](auto const& attribute) {
        return attribute.first == "units";
    });
    info.valueUnit = unit == info.attributes.end() ? "" : unit->second;
    if (isPacked) {
        auto const packing = packingOf(set);
        info.missingValue = packing.missing.empty() ? std::nullopt : std::optional(packing.missing.front());
        return info;
    }
    eraseAttributes(info, {"units", "scale_factor", "add_offset", "_FillValue", "missing_value"});
    return info;
}

Adt::BulkView::AccessTraits traitsOf(DataSet const& set, bool writable) {
    Adt::BulkView::AccessTraits traits;
    int const bytes = Adt::TypeRegister::sizeofTypeInBits(set.type()) / 8;
    traits.naturalBlock = set.chunk().value_or(blockOfRuns(set.size(), kBlockBytes / bytes));
    traits.fastestAxis = static_cast<int>(set.shape().size()) - 1;
    traits.concurrency = Adt::BulkView::AccessTraits::Concurrency::PerClone;
    traits.writable = writable;
    return traits;
}

std::runtime_error noDataSet(std::filesystem::path const& path, std::string const& name) {
    std::string others;
    for (std::string const& other : hdf5DataSets(path)) {
        others.append(others.empty() ? "" : ", ").append(other);
    }
    return std::runtime_error(
        path.string() + ": no data set \"" + name + "\"; there are " + (others.empty() ? "none" : others));
}

std::unique_ptr<DataSet> openSet(std::filesystem::path const& path, std::string const& name, bool writable) {
    auto const names = DataSet::namesIn(path);
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        throw noDataSet(path, name);
    }
    return std::make_unique<DataSet>(path, name, writable);
}

std::string mainDataSet(std::filesystem::path const& path) {
    std::string main;
    std::int64_t most = -1;
    for (std::string const& name : hdf5DataSets(path)) {
        DataSet const set(path, name, /*writable=*/false);
        // The scale of an axis is opened alone only where there is nothing else.
        auto const samples = set.isScale() ? 0 : Adt::OpenEndedRange<4, int>::OfSize(set.size()).pointCount();
        if (samples > most) {
            main = name;
            most = samples;
        }
    }
    if (main.empty()) {
        throw std::runtime_error(path.string() + ": has no data set of one to four axes that can be opened");
    }
    return main;
}

boost::shared_ptr<Adt::BulkDef::SourceDef const> recognise(
    std::filesystem::path const& path, std::string const& variable) {
    std::array<char, 8> bytes{};
    std::ifstream(path, std::ios::binary).read(bytes.data(), bytes.size());
    constexpr std::string_view kSignature("\x89HDF\r\n\x1a\n", 8);
    if (std::string_view(bytes.data(), bytes.size()) != kSignature || DataSet::isNetcdf(path)) {
        return nullptr;
    }
    auto const name = variable.empty() ? mainDataSet(path) : variable;
    openSet(path, name, /*writable=*/false);
    return boost::make_shared<Hdf5FileDef const>(path, name);
}

[[noreturn]] void refuse(std::string const& what) {
    throw std::invalid_argument("[Hdf5Layout] Invalid argument: " + what + ".");
}

std::type_info const& typeOf(Hdf5Layout const& layout) {
    auto const* const type = Adt::sampleTypeNamed(layout.sampleType);
    if (type == nullptr || layout.sampleType == "bit") {
        refuse("no samples of type \"" + layout.sampleType + "\"");
    }
    return *type;
}

std::vector<hsize_t> chunksOf(Hdf5Layout const& layout) {
    int const sampleBytes = Adt::TypeRegister::sizeofTypeInBits(typeOf(layout)) / 8;
    auto const chunks = layout.chunks.empty() ? chunkShape(layout.shape, sampleBytes) : layout.chunks;
    return {chunks.begin(), chunks.end()};
}

void checkLayout(Hdf5Layout const& layout) {
    auto const isPositive = [](int length) { return length > 0; };
    if (layout.shape.empty() || layout.shape.size() > 4 ||
        !std::all_of(layout.shape.begin(), layout.shape.end(), isPositive) ||
        !std::all_of(layout.chunks.begin(), layout.chunks.end(), isPositive) ||
        (!layout.chunks.empty() && layout.chunks.size() != layout.shape.size())) {
        refuse("shape and chunks have one to four elements above 0, all alike");
    }
    if (layout.deflateLevel < 0 || layout.deflateLevel > 9) {
        refuse("a level of compression of " + std::to_string(layout.deflateLevel));
    }
    if (layout.dataSet.empty()) {
        refuse("a data set without a name");
    }
    typeOf(layout);
}

void putAttribute(
    hid_t set, char const* name, hid_t type, hid_t memory, void const* value, std::filesystem::path const& path) {
    Hdf5Id const space(Hdf5Call::check(H5Screate(H5S_SCALAR), path), H5Sclose);
    Hdf5Id const id(Hdf5Call::check(H5Acreate2(set, name, type, space, H5P_DEFAULT, H5P_DEFAULT), path), H5Aclose);
    Hdf5Call::check(H5Awrite(id, memory, value), path);
}

void define(hid_t file, Hdf5Layout const& layout, std::filesystem::path const& path) {
    auto const check = [&](hid_t result) { return Hdf5Call::check(result, path); };
    hid_t const type = Detail::memoryTypeOf(typeOf(layout));
    int const axes = static_cast<int>(layout.shape.size());
    std::vector<hsize_t> const shape(layout.shape.begin(), layout.shape.end());
    Hdf5Id const space(check(H5Screate_simple(axes, shape.data(), nullptr)), H5Sclose);
    Hdf5Id const links(check(H5Pcreate(H5P_LINK_CREATE)), H5Pclose);
    check(H5Pset_create_intermediate_group(links, 1));
    Hdf5Id const how(check(H5Pcreate(H5P_DATASET_CREATE)), H5Pclose);
    check(H5Pset_chunk(how, axes, chunksOf(layout).data()));
    if (layout.deflateLevel > 0) {
        check(H5Pset_shuffle(how));
        check(H5Pset_deflate(how, static_cast<unsigned>(layout.deflateLevel)));
    }
    if (layout.missingValue) {
        check(H5Pset_fill_value(how, H5T_NATIVE_DOUBLE, &*layout.missingValue));
    }
    Hdf5Id const set(check(H5Dcreate2(file, layout.dataSet.c_str(), type, space, links, how, H5P_DEFAULT)), H5Dclose);
    if (layout.missingValue) {
        putAttribute(set, "_FillValue", type, H5T_NATIVE_DOUBLE, &*layout.missingValue, path);
    }
    if (!layout.unit.empty()) {
        Hdf5Id const text(check(H5Tcopy(H5T_C_S1)), H5Tclose);
        check(H5Tset_size(text, layout.unit.size()));
        check(H5Tset_strpad(text, H5T_STR_NULLPAD));
        check(H5Tset_cset(text, H5T_CSET_UTF8));
        putAttribute(set, "units", text, text, layout.unit.data(), path);
    }
}

Text::Node written(Hdf5FileDef const& file, Text::DefinitionWriter& /*writer*/) {
    Text::Node node;
    node.set("path", file.path().native()).set("dataSet", file.dataSet());
    node.set("packed", file.options().isPacked).set("writable", file.options().isWritable);
    return node;
}

boost::shared_ptr<Hdf5FileDef const> read(Text::Node const& node, Text::DefinitionReader& /*reader*/) {
    auto const flag = [&](char const* key) {
        auto const* const value = node.find(key);
        return value != nullptr && value->as<bool>();
    };
    Hdf5FileDef::Options options;
    options.isPacked = flag("packed");
    options.isWritable = flag("writable");
    return boost::make_shared<Hdf5FileDef const>(
        node.at("path").as<std::string>(), node.at("dataSet").as<std::string>(), options);
}

// At load, so that whoever links or loads this library can open its files.
[[maybe_unused]] bool const kIsRegistered = [] {
    registerHdf5(Adt::BulkView::Openers::standard());
    Text::Forms::standard().add<Hdf5FileDef>("Hdf5File", written, read);
    return true;
}();

}  // namespace

Hdf5FileDef::Hdf5FileDef(std::filesystem::path path, std::string dataSet)
    : Hdf5FileDef(std::move(path), std::move(dataSet), Options()) {}

Hdf5FileDef::Hdf5FileDef(std::filesystem::path path, std::string dataSet, Options options)
    : path_(std::move(path)), dataSet_(std::move(dataSet)), options_(options) {}

int Hdf5FileDef::getHashCode() const {
    return Adt::Hasher(53)(path_.native())(dataSet_);
}

void Hdf5FileDef::print(std::ostream& out) const {
    out << "Hdf5FileDef(" << path_ << ", " << std::quoted(dataSet_) << (options_.isPacked ? ", packed" : "") << ")";
}

bool Hdf5FileDef::compare(Adt::BulkDef::SourceDef const& other) const {
    auto const* const file = dynamic_cast<Hdf5FileDef const*>(&other);
    return file != nullptr && path_.native() == file->path_.native() && dataSet_ == file->dataSet_ &&
           options_ == file->options_;
}

std::unique_ptr<Adt::BulkDef::SourceDef> Hdf5FileDef::makeClone() const {
    return std::make_unique<Hdf5FileDef>(path_, dataSet_, options_);
}

Hdf5DataSet openHdf5DataSet(Hdf5FileDef const& file) {
    auto set = openSet(file.path(), file.dataSet(), file.options().isWritable);
    auto const packing = file.options().isPacked ? Packing() : packingOf(*set);
    auto const size = set->size();
    auto const traits = traitsOf(*set, file.options().isWritable);
    std::type_info const& type = set->type();
    Hdf5DataSet opened;
    opened.info = infoOf(*set, file.dataSet(), file.options().isPacked);
    opened.store = makePackedStore(std::make_unique<DataSetNumbers>(std::move(set)), type, size, traits, packing);
    return opened;
}

Adt::BulkView::OpenedData openHdf5(Hdf5FileDef const& file, Adt::BulkView::Openers const& openers) {
    auto opened = openHdf5DataSet(file);
    return {Adt::BulkView::StoreAccessor::Make(std::move(opened.store), openers.pool()), std::move(opened.info)};
}

std::vector<std::string> hdf5DataSets(std::filesystem::path const& path) {
    auto names = DataSet::namesIn(path);
    auto const cannotBeOpened = [&](std::string const& name) {
        try {
            DataSet const opened(path, name, /*writable=*/false);
            return false;
        } catch (std::runtime_error const&) {
            return true;
        }
    };
    names.erase(std::remove_if(names.begin(), names.end(), cannotBeOpened), names.end());
    return names;
}

void createHdf5(std::filesystem::path const& path, Hdf5Layout const& layout) {
    checkLayout(layout);
    if (std::filesystem::exists(path)) {
        throw std::system_error(std::make_error_code(std::errc::file_exists), path.string());
    }
    Hdf5Call const call;
    try {
        Hdf5Id const file(
            Hdf5Call::check(H5Fcreate(path.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, H5P_DEFAULT), path), H5Fclose);
        define(file, layout, path);
        Hdf5Call::check(H5Fflush(file, H5F_SCOPE_GLOBAL), path);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        throw;
    }
}

void registerHdf5(Adt::BulkView::Openers& openers) {
    openers.addSource<Hdf5FileDef>(openHdf5);
    openers.addFormat("HDF5", recognise);
}

}  // namespace Quorvel::Dravik::Files
