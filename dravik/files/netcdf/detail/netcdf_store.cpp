// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/netcdf/detail/netcdf_store.h"

#include "dravik/adt/converters/type_register.h"
#include "dravik/files/netcdf/detail/classic_header.h"
#include "dravik/files/shared/dense_box.h"
#include "dravik/files/shared/mapped_array.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace Quorvel::Dravik::Files::Detail {

namespace {

using Adt::BulkView::AccessTraits;
using Adt::BulkView::IBrickStore;
using Box = Adt::OpenEndedRange<4, int>;
using Size = Adt::FixedVector<4, int>;

constexpr int kBlockBytes = 1 << 18;  // of a variable in one piece

// By the library, one thread at a time.
class LibraryNumbers final : public StoredNumbers {
  public:
    LibraryNumbers(std::shared_ptr<Dataset> dataset, Variable variable, Size const& block, std::type_info const& type)
        : dataset_(std::move(dataset)),
          variable_(std::move(variable)),
          block_(block),
          bytes_(Adt::TypeRegister::sizeofTypeInBits(type) / 8) {}

    void read(Box const& box, void* numbers) const override {
        readByParts(box, block_, bytes_, numbers, [&](Box const& part, void* to) {
            auto const place = Place(part);
            dataset_->read(variable_, place.start, place.count, to);
        });
    }
    void write(Box const& box, void const* numbers) override {
        auto const place = Place(box);
        dataset_->write(variable_, place.start, place.count, numbers);
    }
    void flush() override { dataset_->flush(); }
    bool servesParts() const override { return false; }

  private:
    struct Place {
        explicit Place(Box const& box) {
            for (int axis = 0; axis < 4; ++axis) {
                start[axis] = static_cast<std::size_t>(box.min[axis]);
                count[axis] = static_cast<std::size_t>(box.size(axis));
            }
        }
        std::size_t start[4], count[4];
    };

    std::shared_ptr<Dataset> dataset_;
    Variable variable_;
    Size block_;
    int bytes_;
};

// Where they lie in a classic file, by any number of threads.
class MappedNumbers final : public StoredNumbers {
  public:
    MappedNumbers(std::unique_ptr<MappedFile> file, std::int64_t begin, Size const& size, std::type_info const& type)
        : file_(std::move(file)), array_(*file_, begin, size, type, std::endian::big) {}

    void read(Box const& box, void* numbers) const override { array_.read(box, numbers); }
    void readSteps(Adt::ExtentK<4, int> const& region, void* numbers) const override {
        array_.readSteps(region, numbers);
    }
    void write(Box const& /*box*/, void const* /*numbers*/) override {
        throw std::logic_error("[MappedNumbers] Read alone.");
    }
    void flush() override {}
    bool servesParts() const override { return true; }
    bool servesSteps() const override { return true; }

  private:
    std::unique_ptr<MappedFile> file_;
    MappedArray array_;
};

// The numbers where they lie, if they lie there; null otherwise.
std::unique_ptr<StoredNumbers> mappedNumbers(
    std::filesystem::path const& path, Variable const& variable, Size const& size, std::type_info const& type) {
    auto file = std::make_unique<MappedFile>(path, /*writable=*/false);
    std::optional<std::int64_t> begin;
    file->access([&] {
        begin = classicVariableAt({file->data(), static_cast<std::size_t>(file->byteSize())}, variable.name);
    });
    int const bytes = Adt::TypeRegister::sizeofTypeInBits(type) / 8;
    // Divided: a header may claim more bytes than 63 bits count.
    if (!begin || *begin < 0 || Box::OfSize(size).pointCount() > (file->byteSize() - *begin) / bytes) {
        return nullptr;
    }
    return std::make_unique<MappedNumbers>(std::move(file), *begin, size, type);
}

Size sizeOf(Dataset const& dataset, Variable const& variable) {
    auto const refuse = [&](std::string const& why) {
        throw std::runtime_error(dataset.path().string() + ": the variable \"" + variable.name + "\" " + why);
    };
    if (variable.shape.empty() || variable.shape.size() > 4) {
        refuse("has " + std::to_string(variable.shape.size()) + " axes, not one to four");
    }
    auto size = Size::Filled(1);
    for (std::size_t axis = 0; axis < variable.shape.size(); ++axis) {
        if (variable.shape[axis] == 0 || variable.shape[axis] > INT_MAX) {
            refuse("has " + std::to_string(variable.shape[axis]) + " indices along " + variable.axes[axis]);
        }
        size[static_cast<int>(axis)] = static_cast<int>(variable.shape[axis]);
    }
    return size;
}

}  // namespace

std::shared_ptr<IBrickStore> makeNetcdfStore(
    std::shared_ptr<Dataset> dataset, Variable const& variable, Packing const& packing, bool writable) {
    Size const size = sizeOf(*dataset, variable);
    auto const* const type = sampleTypeOf(variable.type);
    if (type == nullptr) {
        throw std::runtime_error(
            dataset->path().string() + ": the variable \"" + variable.name + "\" has samples of type " +
            dataset->nameOf(variable.type) + "; int8 to int64, uint8 to uint32, float32 and float64 can be read");
    }
    int const bytes = Adt::TypeRegister::sizeofTypeInBits(*type) / 8;
    AccessTraits traits;
    traits.naturalBlock = blockOfRuns(size, kBlockBytes / bytes);
    for (std::size_t axis = 0; axis < variable.chunks.size(); ++axis) {
        auto const along = static_cast<int>(axis);
        traits.naturalBlock[along] =
            static_cast<int>(std::min(variable.chunks[axis], static_cast<std::size_t>(size[along])));
    }
    traits.fastestAxis = static_cast<int>(variable.shape.size()) - 1;
    traits.concurrency = AccessTraits::Concurrency::PerClone;
    traits.writable = writable;
    auto numbers = writable ? nullptr : mappedNumbers(dataset->path(), variable, size, *type);
    if (numbers == nullptr) {
        dataset->keepNoChunks(variable);
        auto const block = variable.chunks.empty() ? size : joinedBlocks(traits.naturalBlock, size, bytes);
        numbers = std::make_unique<LibraryNumbers>(std::move(dataset), variable, block, *type);
    }
    return makePackedStore(std::move(numbers), *type, size, traits, packing);
}

}  // namespace Quorvel::Dravik::Files::Detail
