// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/tiff_file.h"

#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/files/shared/packed_store.h"
#include "dravik/files/tiff/detail/gdal_tags.h"
#include "dravik/files/tiff/detail/georeference.h"
#include "dravik/files/tiff/detail/tiff_images.h"
#include "dravik/files/tiff/detail/tiff_maker.h"
#include "dravik/files/tiff/detail/tiff_numbers.h"
#include "dravik/text/forms.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files {

using Detail::ImageHeader;
using Detail::TiffArray;
using Detail::TiffHandle;

namespace {

constexpr int kMostCoordinates = 1 << 22;

std::string sizeOf(ImageHeader const& image) {
    return std::to_string(image.layout.width) + " x " + std::to_string(image.layout.height);
}

std::string shortest(double number) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

bool isLossless(int compression) {
    constexpr int kLossless[] = {COMPRESSION_NONE, COMPRESSION_LZW,  COMPRESSION_DEFLATE, COMPRESSION_ADOBE_DEFLATE,
                                 COMPRESSION_LZMA, COMPRESSION_ZSTD, COMPRESSION_PACKBITS};
    return std::find(std::begin(kLossless), std::end(kLossless), compression) != std::end(kLossless);
}

// The numbers of the images that are shown together.
std::vector<std::size_t> pagesOf(TiffFileDef const& file, std::vector<ImageHeader> const& images) {
    auto const refuse = [&](std::string const& what) { throw std::runtime_error(file.path().string() + ": " + what); };
    std::vector<std::size_t> pages;
    if (auto const image = file.options().image) {
        if (*image < 0 || static_cast<std::size_t>(*image) >= images.size()) {
            refuse("no image " + std::to_string(*image) + "; there are 0 to " + std::to_string(images.size() - 1));
        }
        pages.push_back(static_cast<std::size_t>(*image));
    } else {
        for (std::size_t number = 0; number < images.size(); ++number) {
            if (images[number].role == TiffImage::Role::Page) {
                pages.push_back(number);
            }
        }
        pages = pages.empty() ? std::vector<std::size_t>{0} : pages;
    }
    ImageHeader const& first = images[pages[0]];
    if (!first.refusal.empty()) {
        refuse("the image " + std::to_string(pages[0]) + " " + first.refusal);
    }
    auto const isAlike = [&](std::size_t page) {
        return images[page].refusal.empty() && images[page].layout == first.layout;
    };
    if (!std::all_of(pages.begin(), pages.end(), isAlike)) {
        pages.resize(1);
    }
    auto const isWritable = [&](std::size_t page) { return isLossless(images[page].compression); };
    if (file.options().isWritable &&
        (first.layout.isPacked() || !std::all_of(pages.begin(), pages.end(), isWritable))) {
        refuse("is compressed with loss or has samples of no whole bytes, and cannot be written");
    }
    return pages;
}

void setAxes(Adt::BulkView::DataInfo& info, TiffArray const& array, Detail::Georeference const& where) {
    std::size_t axis = 0;
    if (array.pages.size() > 1) {
        info.axes[axis++].name = "page";
    }
    if (array.layout.bands > 1) {
        info.axes[axis++].name = "band";
    }
    auto& rows = info.axes[axis];
    auto& columns = info.axes[axis + 1];
    rows.name = where.isGeographic ? "latitude" : "y";
    columns.name = where.isGeographic ? "longitude" : "x";
    bool const isDegrees = where.isGeographic && where.unit == "degrees";
    rows.unit = isDegrees ? "degrees_north" : where.unit;
    columns.unit = isDegrees ? "degrees_east" : where.unit;
    if (!where.isNorthUp()) {
        return;
    }
    auto const setMiddles = [](std::vector<double>& to, double begin, double step, int count) {
        to.resize(count <= kMostCoordinates ? static_cast<std::size_t>(count) : 0);
        for (std::size_t k = 0; k < to.size(); ++k) {
            to[k] = begin + (static_cast<double>(k) + 0.5) * step;
        }
    };
    auto const& t = *where.transform;
    setMiddles(rows.coordinates, t[3], t[5], array.layout.height);
    setMiddles(columns.coordinates, t[0], t[1], array.layout.width);
}

void setAttributes(
    Adt::BulkView::DataInfo& info, TiffHandle& file, std::vector<ImageHeader> const& images,
    Detail::Georeference const& where) {
    auto const add = [&](char const* name, std::string value) {
        if (!value.empty()) {
            info.attributes.emplace_back(name, std::move(value));
        }
    };
    add("reference_system", where.referenceSystem == 0 ? "" : "EPSG:" + std::to_string(where.referenceSystem));
    std::string transform, overviews;
    for (double const each : where.transform ? *where.transform : decltype(where.transform)::value_type()) {
        transform.append(transform.empty() ? 0 : 1, ' ').append(shortest(each));
    }
    add("transform", where.transform ? transform : "");
    for (std::size_t number = 0; number < images.size(); ++number) {
        if (images[number].role == TiffImage::Role::Overview && overviews.size() < 1000) {
            overviews.append(overviews.empty() ? "" : ", ").append(std::to_string(number));
            overviews.append(": ").append(sizeOf(images[number]));
        }
    }
    add("overviews", overviews);
    TIFFCodec const* const codec = TIFFFindCODEC(static_cast<std::uint16_t>(images[0].compression));
    add("compression", codec == nullptr ? "" : codec->name);
    add("description", file.text(TIFFTAG_IMAGEDESCRIPTION));
    add("software", file.text(TIFFTAG_SOFTWARE));
    add("date_time", file.text(TIFFTAG_DATETIME));
}

// As a number of the type has it: texts are cut off behind some digits.
template <class T>
std::optional<double> heldBy(double value) {
    constexpr auto kLow = static_cast<double>(std::numeric_limits<T>::lowest());
    constexpr auto kHigh = static_cast<double>(std::numeric_limits<T>::max());
    if constexpr (std::is_floating_point_v<T>) {
        constexpr double kSlack = 1 + 1e-6;
        bool const isNear = value / kSlack >= kLow && value / kSlack <= kHigh;
        return isNear ? static_cast<double>(static_cast<T>(std::clamp(value, kLow, kHigh))) : value;
    } else {
        bool const isHeld = value >= kLow && value < kHigh + 1 && std::trunc(value) == value;
        return isHeld ? std::optional(value) : std::nullopt;
    }
}

std::optional<double> heldBy(std::type_info const& type, double value) {
    std::optional<double> held;
    auto const find = [&]<class T>(T) {
        if (type == typeid(T)) {
            held = heldBy<T>(value);
        }
    };
    find(char());
    find(static_cast<unsigned char>(0));
    find(short());
    find(static_cast<unsigned short>(0));
    find(0);
    find(0u);
    find(std::int64_t());
    find(0.f);
    find(0.);
    return held;
}

Adt::BulkView::AccessTraits traitsOf(TiffArray const& array, bool writable) {
    Adt::BulkView::AccessTraits traits;
    traits.naturalBlock = array.brick();
    traits.fastestAxis = array.axisCount() - 1;
    traits.concurrency = Adt::BulkView::AccessTraits::Concurrency::PerClone;
    traits.writable = writable;
    return traits;
}

boost::shared_ptr<Adt::BulkDef::SourceDef const> recognise(
    std::filesystem::path const& path, std::string const& variable) {
    std::array<char, 4> bytes{};
    std::ifstream(path, std::ios::binary).read(bytes.data(), bytes.size());
    std::string_view const start(bytes.data(), bytes.size());
    constexpr std::string_view kSignatures[] = {{"II*\0", 4}, {"MM\0*", 4}, {"II+\0", 4}, {"MM\0+", 4}};
    if (std::find(std::begin(kSignatures), std::end(kSignatures), start) == std::end(kSignatures)) {
        return nullptr;
    }
    TiffFileDef::Options options;
    if (!variable.empty()) {
        int number = -1;
        auto const* const end = variable.data() + variable.size();
        if (std::from_chars(variable.data(), end, number).ptr != end) {
            throw std::runtime_error(path.string() + ": no image \"" + variable + "\", only those by number");
        }
        options.image = number;
    }
    auto def = boost::make_shared<TiffFileDef const>(path, options);
    TiffHandle file(path, TiffHandle::Mode::Read);
    pagesOf(*def, Detail::imagesOf(file));
    return def;
}

// Gives a file a name that none has. Unlike a renaming, a link leaves alone the file that there is; not all file
// systems have links.
void giveName(std::filesystem::path const& part, std::filesystem::path const& path) {
    if (::link(part.c_str(), path.c_str()) == 0) {
        return;
    }
    int const told = errno;
    int const error = std::filesystem::exists(path) ? EEXIST : told;
    if (error != EPERM && error != EOPNOTSUPP && error != ENOSYS) {
        throw std::system_error(error, std::generic_category(), path.string());
    }
    std::filesystem::rename(part, path);
}

Text::Node written(TiffFileDef const& file, Text::DefinitionWriter& /*writer*/) {
    Text::Node node;
    node.set("path", file.path().native()).set("writable", file.options().isWritable);
    if (file.options().image) {
        node.set("image", *file.options().image);
    }
    return node;
}

boost::shared_ptr<TiffFileDef const> read(Text::Node const& node, Text::DefinitionReader& /*reader*/) {
    auto const* const image = node.find("image");
    auto const* const writable = node.find("writable");
    TiffFileDef::Options options;
    options.image = image == nullptr ? std::nullopt : std::optional(image->as<int>());
    options.isWritable = writable != nullptr && writable->as<bool>();
    return boost::make_shared<TiffFileDef const>(node.at("path").as<std::string>(), options);
}

// At load, so that whoever links or loads this library can open its files.
[[maybe_unused]] bool const kIsRegistered = [] {
    registerTiff(Adt::BulkView::Openers::standard());
    Text::Forms::standard().add<TiffFileDef>("TiffFile", written, read);
    return true;
}();

}  // namespace

TiffFileDef::TiffFileDef(std::filesystem::path path) : TiffFileDef(std::move(path), Options()) {}

TiffFileDef::TiffFileDef(std::filesystem::path path, Options options) : path_(std::move(path)), options_(options) {}

int TiffFileDef::getHashCode() const {
    return Adt::Hasher(59)(path_.native())(static_cast<unsigned>(options_.image.value_or(-1)));
}

void TiffFileDef::print(std::ostream& out) const {
    out << "TiffFileDef(" << path_;
    if (options_.image) {
        out << ", image " << *options_.image;
    }
    out << (options_.isWritable ? ", writable" : "") << ")";
}

bool TiffFileDef::compare(Adt::BulkDef::SourceDef const& other) const {
    auto const* const file = dynamic_cast<TiffFileDef const*>(&other);
    return file != nullptr && path_.native() == file->path_.native() && options_ == file->options_;
}

std::unique_ptr<Adt::BulkDef::SourceDef> TiffFileDef::makeClone() const {
    return std::make_unique<TiffFileDef>(path_, options_);
}

TiffData openTiffImage(TiffFileDef const& def) {
    TiffHandle file(def.path(), TiffHandle::Mode::Read);
    auto const images = Detail::imagesOf(file);
    auto const pages = pagesOf(def, images);
    TiffArray array;
    array.layout = images[pages[0]].layout;
    for (std::size_t const page : pages) {
        array.pages.push_back(images[page].place);
    }
    file.select(array.pages[0]);
    TiffData opened;
    auto const where = Detail::georeferenceOf(file);
    opened.info.axisCount = array.axisCount();
    opened.info.valueUnit = Detail::valueUnitOf(file);
    setAxes(opened.info, array, where);
    setAttributes(opened.info, file, images, where);
    std::type_info const& type = *array.layout.type;
    bool const isFloat = type == typeid(float) || type == typeid(double);
    auto const told = Detail::missingValueOf(file);
    auto const missing = told ? heldBy(type, *told) : std::nullopt;
    Packing packing;
    if (missing && isFloat) {
        packing.missing.push_back(*missing);
    } else {
        opened.info.missingValue = missing;
    }
    array.fill = missing.value_or(0);
    array.isFillMissing = isFloat ? missing.has_value() : array.fill == 0;
    auto const size = array.size();
    auto const traits = traitsOf(array, def.options().isWritable);
    opened.store = makePackedStore(
        Detail::makeTiffNumbers(def.path(), std::move(array), def.options().isWritable), type, size, traits, packing);
    return opened;
}

Adt::BulkView::OpenedData openTiff(TiffFileDef const& file, Adt::BulkView::Openers const& openers) {
    auto opened = openTiffImage(file);
    return {Adt::BulkView::StoreAccessor::Make(std::move(opened.store), openers.pool()), std::move(opened.info)};
}

std::vector<TiffImage> tiffImages(std::filesystem::path const& path) {
    TiffHandle file(path, TiffHandle::Mode::Read);
    std::vector<TiffImage> images;
    for (ImageHeader const& each : Detail::imagesOf(file)) {
        images.push_back({each.role, each.layout.width, each.layout.height, each.layout.bands, ""});
        images.back().sampleType = each.refusal.empty() ? Adt::sampleTypeName(*each.layout.type) : "";
    }
    return images;
}

void createTiff(std::filesystem::path const& path, TiffLayout const& layout) {
    Detail::checkLayout(layout);
    std::random_device random;
    auto part = path;
    part += ".part" + std::to_string(std::uint64_t{random()} << 32 | random());
    std::error_code ignored;
    try {
        Detail::makeTiff(part, layout);
        giveName(part, path);
        std::filesystem::remove(part, ignored);
    } catch (...) {
        std::filesystem::remove(part, ignored);
        throw;
    }
}

void registerTiff(Adt::BulkView::Openers& openers) {
    openers.addSource<TiffFileDef>(openTiff);
    openers.addFormat("TIFF", recognise);
}

}  // namespace Quorvel::Dravik::Files
