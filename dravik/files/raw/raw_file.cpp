// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/raw/raw_file.h"

#include "dravik/adt/bulkview/filters/permute_filter.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/files/shared/dense_box.h"
#include "dravik/files/shared/mapped_array.h"
#include "dravik/text/forms.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files {

using Adt::BulkView::AccessTraits;
using Box = Adt::OpenEndedRange<4, int>;

namespace {

constexpr int kBlockBytes = 1 << 18;  // of what is kept and lent at once

[[noreturn]] void refuse(std::string const& what) {
    throw std::invalid_argument("[RawLayout] Invalid argument: " + what + ".");
}

Adt::FixedVector<4, int> sizeOf(RawLayout const& layout) {
    if (layout.shape.empty() || layout.shape.size() > 4) {
        refuse("a shape of " + std::to_string(layout.shape.size()) + " axes");
    }
    auto size = Adt::FixedVector<4, int>::Filled(1);
    for (std::size_t axis = 0; axis < layout.shape.size(); ++axis) {
        if (layout.shape[axis] < 1) {
            refuse("axis " + std::to_string(axis) + " has " + std::to_string(layout.shape[axis]) + " indices");
        }
        size[static_cast<int>(axis)] = layout.shape[axis];
    }
    return size;
}

std::type_info const& typeOf(RawLayout const& layout) {
    auto const* const type = Adt::sampleTypeNamed(layout.sampleType);
    if (type == nullptr || layout.sampleType == "bit") {
        refuse("no samples of type \"" + layout.sampleType + "\"");
    }
    return *type;
}

// Header and samples.
std::int64_t byteSizeOf(RawLayout const& layout) {
    std::int64_t bytes = Adt::TypeRegister::sizeofTypeInBits(typeOf(layout)) / 8;
    if (layout.headerBytes < 0) {
        refuse("a header of " + std::to_string(layout.headerBytes) + " bytes");
    }
    auto const size = sizeOf(layout);
    for (int axis = 0; axis < 4; ++axis) {
        if (__builtin_mul_overflow(bytes, std::int64_t{size[axis]}, &bytes)) {
            refuse("more than 2^63 bytes");
        }
    }
    if (__builtin_add_overflow(bytes, layout.headerBytes, &bytes)) {
        refuse("more than 2^63 bytes");
    }
    return bytes;
}

// The order as the filter wants it: of all four axes.
Adt::FixedVector<4, int> orderOf(RawLayout const& layout) {
    Adt::FixedVector<4, int> order{0, 1, 2, 3};
    if (layout.axisOrder.empty()) {
        return order;
    }
    auto sorted = layout.axisOrder;
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t axis = 0; axis < sorted.size(); ++axis) {
        if (sorted.size() != layout.shape.size() || sorted[axis] != static_cast<int>(axis)) {
            refuse("the order of axes does not name each of them once");
        }
    }
    std::copy(layout.axisOrder.begin(), layout.axisOrder.end(), order.begin());
    return order;
}

// Of a file that holds as much as the layout says.
MappedFile const& checked(MappedFile const& file, RawLayout const& layout) {
    if (std::int64_t const wanted = byteSizeOf(layout); file.byteSize() < wanted) {
        throw std::system_error(
            EINVAL, std::generic_category(),
            file.path().string() + ": has " + std::to_string(file.byteSize()) + " bytes, its layout " +
                std::to_string(wanted));
    }
    return file;
}

class RawStore final : public Adt::BulkView::IBrickStore {
  public:
    explicit RawStore(RawFileDef const& def)
        : file_(def.path(), def.isWritable()),
          size_(sizeOf(def.layout())),
          samples_(
              checked(file_, def.layout()), def.layout().headerBytes, size_, typeOf(def.layout()),
              def.layout().byteOrder == RawLayout::ByteOrder::Big ? std::endian::big : std::endian::little) {
        traits_.sampleType = &typeOf(def.layout());
        traits_.bitSize = Adt::TypeRegister::sizeofTypeInBits(*traits_.sampleType);
        traits_.naturalBlock = blockOfRuns(size_, kBlockBytes / (traits_.bitSize / 8));
        traits_.fastestAxis = static_cast<int>(def.layout().shape.size()) - 1;
        traits_.concurrency = AccessTraits::Concurrency::PerClone;
        traits_.writable = def.isWritable();
    }

    Adt::FixedVector<4, int> size() const override { return size_; }
    AccessTraits traits() const override { return traits_; }
    bool servesParts() const override { return true; }
    bool servesSteps() const override { return true; }
    void flush() override { file_.flush(); }

    void read(Box const& box, void* samples) const override { samples_.read(box, samples); }
    void readSteps(Adt::ExtentK<4, int> const& region, void* samples) const override {
        samples_.readSteps(region, samples);
    }
    void write(Box const& box, void const* samples) override {
        traits_.writable ? samples_.write(box, samples) : IBrickStore::write(box, samples);
    }

  private:
    MappedFile file_;
    Adt::FixedVector<4, int> size_;
    MappedArray samples_;
    AccessTraits traits_;
};

Text::Node written(RawFileDef const& file, Text::DefinitionWriter& /*writer*/) {
    auto const& layout = file.layout();
    Text::Node node;
    node.set("path", file.path().native()).set("shape", Text::Node::MakeArray(layout.shape));
    node.set("sampleType", layout.sampleType);
    node.set("byteOrder", layout.byteOrder == RawLayout::ByteOrder::Big ? "big" : "little");
    node.set("headerBytes", layout.headerBytes).set("axisOrder", Text::Node::MakeArray(layout.axisOrder));
    node.set("writable", file.isWritable());
    return node;
}

std::vector<int> numbersOf(Text::Node const& node) {
    std::vector<int> numbers;
    for (Text::Node const& each : node.elements()) {
        numbers.push_back(each.as<int>());
    }
    return numbers;
}

boost::shared_ptr<RawFileDef const> read(Text::Node const& node, Text::DefinitionReader& /*reader*/) {
    RawLayout layout;
    layout.shape = numbersOf(node.at("shape"));
    layout.sampleType = node.at("sampleType").as<std::string>();
    auto const order = node.at("byteOrder").as<std::string>();
    if (order != "big" && order != "little") {
        throw std::invalid_argument("the byte order is \"big\" or \"little\"");
    }
    layout.byteOrder = order == "big" ? RawLayout::ByteOrder::Big : RawLayout::ByteOrder::Little;
    if (auto const* const bytes = node.find("headerBytes")) {
        layout.headerBytes = bytes->as<std::int64_t>();
    }
    if (auto const* const axes = node.find("axisOrder")) {
        layout.axisOrder = numbersOf(*axes);
    }
    auto const* const writable = node.find("writable");
    return boost::make_shared<RawFileDef const>(
        node.at("path").as<std::string>(), layout, writable != nullptr && writable->as<bool>());
}

// At load, so that whoever links or loads this library can open its files.
[[maybe_unused]] bool const kIsRegistered = [] {
    registerRaw(Adt::BulkView::Openers::standard());
    Text::Forms::standard().add<RawFileDef>("RawFile", written, read);
    return true;
}();

}  // namespace

RawFileDef::RawFileDef(std::filesystem::path path, RawLayout layout, bool writable)
    : path_(std::move(path)), layout_(std::move(layout)), writable_(writable) {}

int RawFileDef::getHashCode() const {
    return Adt::Hasher(41)(path_.native())(static_cast<unsigned>(layout_.shape.size()));
}

void RawFileDef::print(std::ostream& out) const {
    out << "RawFileDef(" << path_ << ", " << layout_.sampleType;
    for (std::size_t axis = 0; axis < layout_.shape.size(); ++axis) {
        out << (axis == 0 ? ' ' : 'x') << layout_.shape[axis];
    }
    out << ")";
}

bool RawFileDef::compare(Adt::BulkDef::SourceDef const& other) const {
    auto const* const file = dynamic_cast<RawFileDef const*>(&other);
    return file != nullptr && path_.native() == file->path_.native() && layout_ == file->layout_ &&
           writable_ == file->writable_;
}

std::unique_ptr<Adt::BulkDef::SourceDef> RawFileDef::makeClone() const {
    return std::make_unique<RawFileDef>(path_, layout_, writable_);
}

std::shared_ptr<Adt::BulkView::IBrickStore> openRawStore(RawFileDef const& file) {
    orderOf(file.layout());  // refused before the file is opened
    return std::make_shared<RawStore>(file);
}

Adt::BulkView::OpenedData openRaw(RawFileDef const& file, Adt::BulkView::Openers const& openers) {
    Adt::BulkView::DataInfo info;
    auto store = openRawStore(file);
    info.axisCount = static_cast<int>(file.layout().shape.size());
    auto chain = Adt::BulkView::StoreAccessor::Make(std::move(store), openers.pool());
    return {Adt::BulkView::Filters::PermuteFilter::Apply(std::move(chain), orderOf(file.layout())), std::move(info)};
}

void createRaw(std::filesystem::path const& path, RawLayout const& layout) {
    orderOf(layout);
    createFile(path, byteSizeOf(layout));
}

void registerRaw(Adt::BulkView::Openers& openers) {
    openers.addSource<RawFileDef>(openRaw);
}

}  // namespace Quorvel::Dravik::Files
