// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/zarr/detail/zarr_store.h"

#include "dravik/adt/converters/byte_swap_converter.h"
#include "dravik/files/zarr/detail/chunk_codec.h"
#include "dravik/files/zarr/detail/chunk_files.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace Quorvel::Dravik::Files::Detail {

namespace {

using Adt::BulkView::AccessTraits;
using Adt::BulkView::IBrickStore;
using Box = Adt::OpenEndedRange<4, int>;
using Index = Adt::FixedVector<4, int>;
using Strides = Adt::FixedVector<4, std::int64_t>;  // in samples

Strides denseStrides(Index const& size, bool isFortran) {
    Strides strides;
    std::int64_t reach = 1;
    for (int place = 3; place >= 0; --place) {
        int const axis = isFortran ? 3 - place : place;
        strides[axis] = std::exchange(reach, reach * size[axis]);
    }
    return strides;
}

// Samples of one box inside another place.
struct Place {
    char* samples;
    Strides strides;
};

template <int Bytes>
void copyRow(char const* from, std::int64_t fromStride, char* to, std::int64_t toStride, int count) {
    for (int k = 0; k < count; ++k) {
        std::memcpy(to + k * toStride * Bytes, from + k * fromStride * Bytes, Bytes);
    }
}

void copySamples(Place from, Place to, Index size, int bytes) {
    // Axes that the array does not have go to the front: rows are the last axis that has several samples.
    auto const turned = [](auto const& v) { return std::decay_t<decltype(v)>{v[3], v[0], v[1], v[2]}; };
    for (int turns = 0; turns < 3 && size[3] == 1; ++turns) {
        size = turned(size);
        from.strides = turned(from.strides);
        to.strides = turned(to.strides);
    }
    bool const isDense = from.strides[3] == 1 && to.strides[3] == 1;
    auto const row = bytes == 1 ? copyRow<1> : bytes == 2 ? copyRow<2> : bytes == 4 ? copyRow<4> : copyRow<8>;
    for (int a = 0; a < size[0]; ++a) {
        for (int b = 0; b < size[1]; ++b) {
            for (int c = 0; c < size[2]; ++c) {
                auto const at = [&](Place const& place) {
                    auto const& s = place.strides;
                    return place.samples + (a * s[0] + b * s[1] + c * s[2]) * bytes;
                };
                if (isDense) {
                    std::memcpy(at(to), at(from), static_cast<std::size_t>(size[3]) * static_cast<std::size_t>(bytes));
                } else {
                    row(at(from), from.strides[3], at(to), to.strides[3], size[3]);
                }
            }
        }
    }
}

// Sets `bytes` to as many samples as fit.
void fillWith(std::string const& sample, std::span<char> bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        auto const* const from = done == 0 ? sample.data() : bytes.data();
        auto const now = std::min(done == 0 ? sample.size() : done, bytes.size() - done);
        std::memcpy(bytes.data() + done, from, now);
        done += now;
    }
}

// What a block without memory shows: not-a-number, or zeros.
bool isNull(std::string const& sample, std::type_info const& type) {
    if (type == typeid(float) || type == typeid(double)) {
        float single = 0;
        double value = 0;
        type == typeid(float) ? std::memcpy(&single, sample.data(), sizeof single)
                              : std::memcpy(&value, sample.data(), sizeof value);
        return std::isnan(single) || std::isnan(value);
    }
    return sample.find_first_not_of('\0') == std::string::npos;
}

std::string nullOf(std::type_info const& type, int sampleBytes) {
    std::string bytes(static_cast<std::size_t>(sampleBytes), '\0');
    float const single = std::numeric_limits<float>::quiet_NaN();
    double const value = std::numeric_limits<double>::quiet_NaN();
    if (type == typeid(float)) {
        std::memcpy(bytes.data(), &single, sizeof single);
    } else if (type == typeid(double)) {
        std::memcpy(bytes.data(), &value, sizeof value);
    }
    return bytes;
}

class ZarrStore final : public IBrickStore {
  public:
    ZarrStore(std::filesystem::path folder, ArrayMetadata const& array, bool writable)
        : folder_(std::move(folder)),
          array_(array),
          fill_(array.fill.value_or(nullOf(*array.sampleType, array.sampleBytes))),
          isFillNull_(isNull(fill_, *array.sampleType)),
          chunkStrides_(denseStrides(array.chunk, array.isFortran)) {
        traits_.sampleType = array.sampleType;
        traits_.bitSize = 8 * array.sampleBytes;
        for (int axis = 0; axis < 4; ++axis) {
            traits_.naturalBlock[axis] = std::min(array.chunk[axis], array.size[axis]);
        }
        traits_.fastestAxis = static_cast<int>(array.shape.size()) - 1;
        traits_.concurrency = AccessTraits::Concurrency::PerClone;
        traits_.writable = writable;
        if (array.isSwapped) {
            swap_.emplace(*array.sampleType);
        }
    }

    Index size() const override { return array_.size; }
    AccessTraits traits() const override { return traits_; }

    void read(Box const& box, void* samples) const override {
        Place const to{static_cast<char*>(samples), denseStrides(sizeOf(box), /*isFortran=*/false)};
        std::unique_ptr<char[]> memory;
        forEachChunk(box, [&](Index const& number, Box const& part) {
            thread_local std::string stored;
            auto const partSize = sizeOf(part);
            if (!readWhole(pathOf(number), stored)) {
                Place const fill{const_cast<char*>(fill_.data()), Strides()};
                return copySamples(fill, inBox(to, box, part), partSize, array_.sampleBytes);
            }
            // A whole chunk is decompressed to where it is wanted.
            bool const isInPlace = partSize == array_.chunk && sizeOf(box) == partSize && !array_.isFortran;
            if (!isInPlace && memory == nullptr) {
                memory = makeChunk();
            }
            std::span<char> const chunk(isInPlace ? to.samples : memory.get(), chunkBytes());
            decode(number, stored, chunk);
            if (!isInPlace) {
                copySamples(inChunk(chunk, number, part), inBox(to, box, part), partSize, array_.sampleBytes);
            }
        });
    }

    void write(Box const& box, void const* samples) override {
        if (!traits_.writable) {
            return IBrickStore::write(box, samples);
        }
        // Read from alone.
        Place const from{
            const_cast<char*>(static_cast<char const*>(samples)), denseStrides(sizeOf(box), /*isFortran=*/false)};
        auto const memory = makeChunk();
        std::span<char> const chunk(memory.get(), chunkBytes());
        forEachChunk(box, [&](Index const& number, Box const& part) {
            std::lock_guard const lock(chunkLock(number));
            std::string stored;
            if (part != insideOf(number) && readWhole(pathOf(number), stored)) {
                decode(number, stored, chunk);
            } else if (sizeOf(part) != array_.chunk) {
                fillWith(fill_, chunk);
            }
            copySamples(inBox(from, box, part), inChunk(chunk, number, part), sizeOf(part), array_.sampleBytes);
            store(number, chunk);
        });
    }

    void flush() override {
        std::lock_guard const lock(mutex_);
        while (!unflushed_.empty()) {
            auto const first = unflushed_.begin();
            makeLasting(*first);
            folders_.insert(first->parent_path());
            unflushed_.erase(first);
        }
        for (; !folders_.empty(); folders_.erase(folders_.begin())) {
            makeLasting(*folders_.begin());
        }
    }

    bool hasSamples(Box const& box) const override {
        bool found = !isFillNull_;
        if (!found) {
            forEachChunk(box, [&](Index const& number, Box const& /*part*/) {
                std::error_code failure;  // told when the chunk is read
                auto const status = std::filesystem::status(pathOf(number), failure);
                found = found || status.type() != std::filesystem::file_type::not_found;
            });
        }
        return found;
    }

  private:
    static Index sizeOf(Box const& box) {
        Index size;
        for (int axis = 0; axis < 4; ++axis) {
            size[axis] = box.max[axis] - box.min[axis];
        }
        return size;
    }

    // What of a chunk lies inside the array. The end may be beyond the highest int.
    Box insideOf(Index const& number) const {
        Box inside;
        for (int axis = 0; axis < 4; ++axis) {
            auto const begin = std::int64_t{number[axis]} * array_.chunk[axis];
            inside.min[axis] = static_cast<int>(begin);
            inside.max[axis] = static_cast<int>(std::min<std::int64_t>(begin + array_.chunk[axis], array_.size[axis]));
        }
        return inside;
    }

    // Calls act(number, part) for the chunks that `box` touches and what of each it touches.
    template <class Act>
    void forEachChunk(Box const& box, Act act) const {
        Index first, last;
        for (int axis = 0; axis < 4; ++axis) {
            first[axis] = box.min[axis] / array_.chunk[axis];
            last[axis] = (box.max[axis] - 1) / array_.chunk[axis];
        }
        Index number = first;
        for (bool more = true; more;) {
            Box part = insideOf(number);
            part.intersect(box);
            act(std::as_const(number), std::as_const(part));
            more = false;
            for (int axis = 3; axis >= 0 && !more; --axis) {
                more = number[axis] < last[axis];
                number[axis] = more ? number[axis] + 1 : first[axis];
            }
        }
    }

    Place inChunk(std::span<char> chunk, Index const& number, Box const& part) const {
        return inBox({chunk.data(), chunkStrides_}, insideOf(number), part);
    }
    Place inBox(Place const& place, Box const& box, Box const& part) const {
        std::int64_t position = 0;
        for (int axis = 0; axis < 4; ++axis) {
            position += place.strides[axis] * (part.min[axis] - box.min[axis]);
        }
        return {place.samples + position * array_.sampleBytes, place.strides};
    }

    std::filesystem::path pathOf(Index const& number) const {
        std::string name = std::to_string(number[0]);
        for (int axis = 1; axis < static_cast<int>(array_.shape.size()); ++axis) {
            name += array_.separator + std::to_string(number[axis]);
        }
        return folder_ / name;
    }

    void swap(std::span<char> chunk) const {
        if (swap_) {
            swap_->convertContiguous(chunk.data(), 0, chunk.data(), 0, static_cast<int>(array_.chunkSamples()));
        }
    }

    std::size_t chunkBytes() const { return static_cast<std::size_t>(array_.chunkBytes()); }
    std::unique_ptr<char[]> makeChunk() const { return std::make_unique_for_overwrite<char[]>(chunkBytes()); }

    // The samples of a chunk in this machine's byte order.
    void decode(Index const& number, std::string const& stored, std::span<char> chunk) const {
        try {
            decompress(array_.compression, stored, chunk);
        } catch (std::runtime_error const& error) {
            throw std::runtime_error(pathOf(number).string() + ": " + error.what());
        }
        swap(chunk);
    }

    // Spoils `chunk`.
    void store(Index const& number, std::span<char> chunk) {
        auto const path = pathOf(number);
        swap(chunk);
        if (array_.compression.kind == Compression::Kind::None) {
            replaceWhole(path, chunk);
        } else {
            replaceWhole(path, compress(array_.compression, array_.sampleBytes, chunk));
        }
        std::lock_guard const lock(mutex_);
        unflushed_.insert(path);
    }

    std::mutex& chunkLock(Index const& number) {
        std::size_t mixed = 0;
        for (int axis = 0; axis < 4; ++axis) {
            mixed = mixed * 31 + static_cast<std::size_t>(number[axis]);
        }
        return chunkLocks_[mixed % chunkLocks_.size()];
    }

    std::filesystem::path const folder_;
    ArrayMetadata const array_;
    std::string const fill_;
    bool const isFillNull_;
    Strides const chunkStrides_;
    AccessTraits traits_;
    std::optional<Adt::Converters::ByteSwapConverter> swap_;
    std::array<std::mutex, 64> chunkLocks_;  // held while a chunk is changed; many share one
    std::mutex mutex_;                       // of all below
    std::set<std::filesystem::path> unflushed_;
    std::set<std::filesystem::path> folders_;
};

}  // namespace

std::shared_ptr<IBrickStore> makeZarrStore(std::filesystem::path folder, ArrayMetadata const& array, bool writable) {
    return std::make_shared<ZarrStore>(std::move(folder), array, writable);
}

}  // namespace Quorvel::Dravik::Files::Detail
