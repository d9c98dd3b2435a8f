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
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <type_traits>

namespace Quorvel::Dravik::Files::Detail {

namespace {

using Adt::BulkView::AccessTraits;
using Adt::BulkView::IBrickStore;
using Box = Adt::OpenEndedRange<4, int>;
using Size = Adt::FixedVector<4, int>;

constexpr int kBlockBytes = 1 << 18;  // of a variable in one piece

// Numbers as the file stores them, in this machine's byte order.
class StoredNumbers {
  public:
    virtual ~StoredNumbers() = default;
    virtual void read(Box const& box, void* numbers) const = 0;
    virtual void write(Box const& box, void const* numbers) = 0;
    virtual void flush() = 0;
    virtual bool servesParts() const = 0;

  protected:
    StoredNumbers() = default;
    StoredNumbers(StoredNumbers const&) = delete;
    StoredNumbers& operator=(StoredNumbers const&) = delete;
};

// By the library, one thread at a time.
class LibraryNumbers final : public StoredNumbers {
  public:
    LibraryNumbers(std::shared_ptr<Dataset> dataset, Variable variable)
        : dataset_(std::move(dataset)), variable_(std::move(variable)) {}

    void read(Box const& box, void* numbers) const override {
        auto const place = Place(box);
        dataset_->read(variable_, place.start, place.count, numbers);
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
};

// Where they lie in a classic file, by any number of threads.
class MappedNumbers final : public StoredNumbers {
  public:
    MappedNumbers(MappedFile const& file, std::int64_t begin, Size const& size, std::type_info const& type)
        : file_(file), begin_(begin), size_(size), bytes_(Adt::TypeRegister::sizeofTypeInBits(type) / 8), type_(type) {
        if (bytes_ > 1 && std::endian::native == std::endian::little) {
            swap_.emplace(type);
        }
    }

    void read(Box const& box, void* numbers) const override {
        auto* to = static_cast<char*>(numbers);
        file_.access([&] {
            forEachRun(size_, box, [&](std::int64_t position, std::int64_t count) {
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
    std::type_info const& type_;
    std::optional<Adt::Converters::ByteSwapConverter> swap_;
};

// Unpacks, with samples of type S made of numbers of type N.
template <class N, class S>
class NetcdfStore final : public IBrickStore {
  public:
    NetcdfStore(std::unique_ptr<StoredNumbers> numbers, Size const& size, AccessTraits traits, Packing const& packing)
        : numbers_(std::move(numbers)), size_(size), traits_(traits), packing_(packing) {
        traits_.sampleType = &typeid(S);
        traits_.bitSize = static_cast<int>(8 * sizeof(S));
    }

    Size size() const override { return size_; }
    AccessTraits traits() const override { return traits_; }
    bool servesParts() const override { return numbers_->servesParts(); }
    void flush() override { numbers_->flush(); }

    void read(Box const& box, void* samples) const override {
        auto* const to = static_cast<S*>(samples);
        auto const count = static_cast<std::size_t>(box.pointCount());
        if constexpr (std::is_same_v<N, S>) {
            numbers_->read(box, samples);
            unpack(to, to, count);
        } else {
            std::vector<N> numbers(count);
            numbers_->read(box, numbers.data());
            unpack(numbers.data(), to, count);
        }
    }

    void write(Box const& box, void const* samples) override {
        if (!traits_.writable) {
            return IBrickStore::write(box, samples);
        }
        if (std::is_same_v<N, S> && packing_.isPlain()) {
            return numbers_->write(box, samples);
        }
        std::vector<N> numbers(static_cast<std::size_t>(box.pointCount()));
        auto const* from = static_cast<S const*>(samples);
        std::transform(from, from + numbers.size(), numbers.begin(), [&](S sample) { return packed(sample); });
        numbers_->write(box, numbers.data());
    }

  private:
    void unpack(N const* from, S* to, std::size_t count) const {
        if (packing_.isPlain()) {
            if constexpr (!std::is_same_v<N, S>) {
                std::transform(from, from + count, to, [](N number) { return static_cast<S>(number); });
            }
            return;
        }
        // Locals, and no branch on what a loop needs not: the compiler makes vector code of it.
        double const scale = packing_.scale, offset = packing_.offset;
        double const none = std::numeric_limits<double>::quiet_NaN();
        double const first = packing_.missing[0].value_or(none), second = packing_.missing[1].value_or(none);
        if (!packing_.isScaled()) {
            auto const one = static_cast<S>(first), other = static_cast<S>(second);
            for (std::size_t k = 0; k < count; ++k) {
                S const sample = static_cast<S>(from[k]);
                to[k] = sample == one || sample == other ? std::numeric_limits<S>::quiet_NaN() : sample;
            }
            return;
        }
        for (std::size_t k = 0; k < count; ++k) {
            double const number = static_cast<double>(from[k]);
            to[k] = static_cast<S>(number == first || number == second ? none : number * scale + offset);
        }
    }

    N packed(S sample) const {
        if (std::isnan(static_cast<double>(sample)) && (packing_.missing[0] || packing_.missing[1])) {
            return static_cast<N>(packing_.missing[0] ? *packing_.missing[0] : *packing_.missing[1]);
        }
        double const number = (static_cast<double>(sample) - packing_.offset) / packing_.scale;
        if constexpr (std::is_floating_point_v<N>) {
            return static_cast<N>(number);
        } else {
            // The nearest that there is; the highest number of 64 bits is no double.
            auto const low = static_cast<double>(std::numeric_limits<N>::min());
            auto const high = static_cast<double>(std::numeric_limits<N>::max());
            double const rounded = std::nearbyint(number);
            return std::isnan(rounded) ? N{0}
                   : rounded <= low    ? std::numeric_limits<N>::min()
                   : rounded >= high   ? std::numeric_limits<N>::max()
                                       : static_cast<N>(rounded);
        }
    }

    std::unique_ptr<StoredNumbers> numbers_;
    Size size_;
    AccessTraits traits_;
    Packing packing_;
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
    auto const bytes = Box::OfSize(size).pointCount() * (Adt::TypeRegister::sizeofTypeInBits(type) / 8);
    if (!begin || *begin < 0 || file->byteSize() - *begin < bytes) {
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

template <class N>
std::shared_ptr<IBrickStore> storeOf(
    std::unique_ptr<StoredNumbers> numbers, Size const& size, AccessTraits const& traits, Packing const& packing) {
    if (packing.isPlain()) {
        return std::make_shared<NetcdfStore<N, N>>(std::move(numbers), size, traits, packing);
    }
    constexpr bool isWide = std::is_same_v<N, double> || (std::is_integral_v<N> && sizeof(N) >= 4);
    using Shown = std::conditional_t<isWide, double, float>;
    return std::make_shared<NetcdfStore<N, Shown>>(std::move(numbers), size, traits, packing);
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
        numbers = std::make_unique<LibraryNumbers>(std::move(dataset), variable);
    }
    switch (variable.type) {
    case NC_BYTE:
        return storeOf<char>(std::move(numbers), size, traits, packing);
    case NC_UBYTE:
        return storeOf<unsigned char>(std::move(numbers), size, traits, packing);
    case NC_SHORT:
        return storeOf<short>(std::move(numbers), size, traits, packing);
    case NC_USHORT:
        return storeOf<unsigned short>(std::move(numbers), size, traits, packing);
    case NC_INT:
        return storeOf<int>(std::move(numbers), size, traits, packing);
    case NC_UINT:
        return storeOf<unsigned int>(std::move(numbers), size, traits, packing);
    case NC_INT64:
        return storeOf<std::int64_t>(std::move(numbers), size, traits, packing);
    case NC_FLOAT:
        return storeOf<float>(std::move(numbers), size, traits, packing);
    default:
        return storeOf<double>(std::move(numbers), size, traits, packing);
    }
}

}  // namespace Quorvel::Dravik::Files::Detail
