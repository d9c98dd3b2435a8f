// SPDX-License-Identifier: Apache-2.0
// What the pool of bricks costs beside a look-up in a table, and how often it reads a brick again.

#include "report.h"

#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mutex>
#include <numeric>
#include <unordered_map>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using BulkView::BrickPool;
using BulkView::StoreAccessor;
using Box = OpenEndedRange<4, int>;
using Index = FixedVector<4, int>;

constexpr int kSide = 256;
constexpr std::int64_t kBytes = std::int64_t{kSide} * kSide * kSide * std::int64_t{sizeof(float)};

/// A cube of floats in memory, in bricks of one size, that counts the bytes it is asked for.
class Cube final : public BulkView::IBrickStore {
  public:
    explicit Cube(int brick) : samples(std::size_t{kSide} * kSide * kSide), brick_(brick) {
        std::iota(samples.begin(), samples.end(), 0.0f);
    }

    Index size() const override { return {kSide, kSide, kSide, 1}; }
    BulkView::AccessTraits traits() const override {
        BulkView::AccessTraits traits;
        traits.naturalBlock = {brick_, brick_, brick_, 1};
        traits.sampleType = &typeid(float);
        traits.bitSize = 32;
        return traits;
    }
    void read(Box const& box, void* out) const override {
        bytesRead += box.pointCount() * std::int64_t{sizeof(float)};
        auto* to = static_cast<float*>(out);
        for (int i = box.min[0]; i < box.max[0]; ++i) {
            if (box.size(1) == kSide && box.size(2) == kSide) {
                to = std::copy_n(samples.data() + std::ptrdiff_t{i} * kSide * kSide, kSide * kSide, to);
                continue;
            }
            for (int j = box.min[1]; j < box.max[1]; ++j) {
                to =
                    std::copy_n(samples.data() + (std::ptrdiff_t{i} * kSide + j) * kSide + box.min[2], box.size(2), to);
            }
        }
    }

    std::vector<float> samples;
    mutable std::int64_t bytesRead = 0;

  private:
    int brick_;
};

struct Block final : BulkView::BufferHandle::Owner {
    float samples[1] = {};
};

// A table as everybody writes it first: one mutex, blocks by number.
class LockedTable {
  public:
    boost::intrusive_ptr<Block> find(std::uint64_t key) {
        std::lock_guard const lock(mutex_);
        return blocks_.find(key)->second;
    }
    void add(std::uint64_t key) { blocks_.emplace(key, new Block); }

  private:
    std::mutex mutex_;
    std::unordered_map<std::uint64_t, boost::intrusive_ptr<Block>> blocks_;
};

void hit(Report& report) {
    constexpr int kBrick = 32, kPerAxis = kSide / kBrick;
    auto const chain = StoreAccessor::Make(std::make_shared<Cube>(kBrick), std::make_shared<BrickPool>(2 * kBytes));
    LockedTable table;
    std::vector<Index> positions;
    for (int number = 0; number < kPerAxis * kPerAxis * kPerAxis; ++number) {
        int const mixed = number * 181 % (kPerAxis * kPerAxis * kPerAxis);
        positions.emplace_back(
            mixed / (kPerAxis * kPerAxis) * kBrick, mixed / kPerAxis % kPerAxis * kBrick, mixed % kPerAxis * kBrick, 0);
        table.add(static_cast<std::uint64_t>(mixed));
    }
    BulkView::BufferHandle handle;
    for (Index const& position : positions) {
        chain->getBuffer(position, BulkView::AdtEnums::Read, handle);
    }
    Contest contest("512 bricks in the pool, in any order");
    contest.enter("loan", [&] {
        for (Index const& position : positions) {
            chain->getBuffer(position, BulkView::AdtEnums::Read, handle);
            keep(handle.buffer());
        }
        return std::uint64_t{0};
    });
    boost::intrusive_ptr<Block> block;
    auto const find = [&](Index const& position) {
        block = table.find(static_cast<std::uint64_t>(
            (position[0] / kBrick * kPerAxis + position[1] / kBrick) * kPerAxis + position[2] / kBrick));
    };
    contest.enter("look-up under a lock", [&] {
        for (Index const& position : positions) {
            find(position);
            keep(block.get());
        }
        return std::uint64_t{0};
    });
    contest.enter("look-up under a lock and a handle filled", [&] {
        for (Index const& position : positions) {
            find(position);
            Box const box{position, position + Index(kBrick, kBrick, kBrick, 1)};
            handle.setOwner(block.get());
            handle.update(block->samples, {box, {kBrick * kBrick, kBrick, 1, 1}, 0}, BulkView::AdtEnums::Read);
            keep(handle.buffer());
        }
        return std::uint64_t{0};
    });
    contest.run();
    report.ratio(
        contest, "loan", "look-up under a lock and a handle filled",
        {2, "the pool finds the brick around a position by divisions and hashes where it begins; the table is asked by "
            "number."});
    report.ratio(contest, "loan", "look-up under a lock");
}

// Slices one after the other across a pool that has room for a tenth of the cube.
void sweeps(Report& report) {
    constexpr std::array kNames{
        "sweep of slices across axis 0", "sweep of slices across axis 1", "sweep of slices across axis 2"};
    for (int axis = 0; axis < 3; ++axis) {
        auto const cube = std::make_shared<Cube>(16);
        auto const chain = StoreAccessor::Make(cube, std::make_shared<BrickPool>(kBytes / 10));
        Box slice = Box::OfSize(cube->size());
        slice.max[axis] = 1;
        for (; slice.min[axis] < kSide; ++slice.min[axis], ++slice.max[axis]) {
            auto const array = SharedArray<4>::Make<float>(slice);
            BulkView::readRegion(*chain, ExtentK<4, int>(slice), array);
        }
        report.value(
            std::string(kNames[static_cast<std::size_t>(axis)]) + ", pool of a tenth: bytes read", "bytes there are",
            static_cast<double>(cube->bytesRead) / static_cast<double>(kBytes), {1.1});
    }
}

void whole(Report& report) {
    auto const cube = std::make_shared<Cube>(32);
    auto const chain = StoreAccessor::Make(cube, std::make_shared<BrickPool>(kBytes / 10));
    Box const box = Box::OfSize(cube->size());
    auto const array = SharedArray<4>::Make<float>(box);
    std::vector<float> copied(cube->samples.size());
    Contest contest("256³ floats in bricks of 32³");
    contest.enter("readRegion", [&] {
        BulkView::readRegion(*chain, ExtentK<4, int>(box), array);
        return keep(array.data()), std::uint64_t{0};
    });
    contest.enter("memory copy", [&] {
        std::memcpy(copied.data(), cube->samples.data(), copied.size() * sizeof(float));
        return keep(copied.data()), std::uint64_t{0};
    });
    contest.run();
    report.ratio(contest, "readRegion", "memory copy", {1.2});
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("Stores", "Bricks of a store in memory, lent by a pool and read as regions.");
    hit(report);
    sweeps(report);
    whole(report);
}
