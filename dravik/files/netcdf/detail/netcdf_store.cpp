// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/netcdf/detail/netcdf_store.h"

#include "dravik/adt/converters/byte_swap_converter.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/files/netcdf/detail/classic_header.h"
#include "dravik/files/shared/dense_box.h"
#include "dravik/files/shared/mapped_file.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>
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
    MappedNumbers(MappedFile const& file, std::int64_t begin, Size const& size, std::type_info const& type)
        : file_(file), begin_(begin), size_(size), bytes_(Adt::TypeRegister::sizeofTypeInBits(type) / 8) {
        if (bytes_ > 1 && std::endian::native == std::endian::little) {
            swap_.emplace(type);
        }
    }

    void read(Box const& box, void* numbers) const override {
        auto* to = static_cast<char*>(numbers);
        file_.access([&] {
            forEachRun(size_, box, [&, run = std::int64_t{0}](std::int64_t position, std::int64_t count) mutable {
                file_.settleAfter(run++);
                std::memcpy(to, file_.data() + begin_ + position * bytes_, static_cast<std::size_t>(count * bytes_));
                to += count * bytes_;
            });
        });
        if (swap_) {
            // Afterwards, since the file aligns numbers to four bytes alone.
            for (std::int64_t left = box.pointCount(), done = 0; left > 0; left -= kPiece, done += kPiece) {
                auto* const piece = static_cast<char*>(numbers) + done * bytes_;
                swap_->convertContiguous(piece, 0, piece, 0, static_cast<int>(std::min(left, kPiece)));
            }
        }
    }
    void write(Box const& /*box*/, void const* /*numbers*/) override {
        throw std::logic_error("[MappedNumbers] Read alone.");
    }
    void flush() override {}
    bool servesParts() const override { return true; }

  private:
    static constexpr std::int64_t kPiece = 1 << 30;

    MappedFile const& file_;
    std::int64_t begin_;
    Size size_;
    std::int64_t bytes_;
    std::optional<Adt::Converters::ByteSwapConverter> swap_;
};

// Keeps the mapping for as long as the numbers.
class OwnedMapping final : public StoredNumbers {
  public:
    OwnedMapping(std::unique_ptr<MappedFile> file, std::int64_t begin, Size const& size, std::type_info const& type)
        : file_(std::move(file)), numbers_(*file_, begin, size, type) {}

    void read(Box const& box, void* numbers) const override { numbers_.read(box, numbers); }
    void write(Box const& box, void const* numbers) override { numbers_.write(box, numbers); }
    void flush() override {}
    bool servesParts() const override { return true; }

  private:
    std::unique_ptr<MappedFile> file_;
    MappedNumbers numbers_;
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
    return std::make_unique<OwnedMapping>(std::move(file), *begin, size, type);
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
            dataset->path().string() + ": the variable \"" + variable.name + "\" has no numbers of up to 64 bits");
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
        auto const block = variable.chunks.empty() ? size : traits.naturalBlock;
        numbers = std::make_unique<LibraryNumbers>(std::move(dataset), variable, block, *type);
    }
    return makePackedStore(std::move(numbers), *type, size, traits, packing);
}

}  // namespace Quorvel::Dravik::Files::Detail
