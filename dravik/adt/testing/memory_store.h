// SPDX-License-Identifier: Apache-2.0
#pragma once

// MemoryStore: a store over samples in memory that fails on demand and counts what it is asked for. Threads: any, as
// long as threads write different boxes.

#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/adt/testing/plain_array.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::Testing {

template <class T>
class MemoryStore final : public BulkView::IBrickStore {
  public:
    using Box = OpenEndedRange<4, int>;

    MemoryStore(PlainArray<T> const& samples, FixedVector<4, int> const& brick) : data(samples) {
        traits_.naturalBlock = brick;
        traits_.sampleType = &typeid(T);
        traits_.bitSize = static_cast<int>(8 * sizeof(T));
        traits_.concurrency = BulkView::AccessTraits::Concurrency::PerClone;
        traits_.writable = true;
    }

    FixedVector<4, int> size() const override { return data.size(); }
    BulkView::AccessTraits traits() const override { return traits_; }
    void read(Box const& box, void* samples) const override {
        ++reads;
        samplesRead += box.pointCount();
        onRead ? onRead() : void();
        auto* out = static_cast<T*>(samples);
        forEachIndex(box, [&](FixedVector<4, int> const& index) { return *out++ = data.at(index), true; });
    }
    void write(Box const& box, void const* samples) override {
        ++writes;
        onWrite ? onWrite() : void();
        auto const* in = static_cast<T const*>(samples);
        forEachIndex(box, [&](FixedVector<4, int> const& index) { return data.at(index) = *in++, true; });
    }
    void flush() override { ++flushes; }
    bool hasSamples(Box const& box) const override { return !holes.contains(box.min); }
    bool servesParts() const override { return hasCheapParts; }
    bool servesSteps() const override { return hasCheapSteps; }
    void readSteps(ExtentK<4, int> const& region, void* samples) const override {
        ++reads;
        onRead ? onRead() : void();
        auto* out = static_cast<T*>(samples);
        Box places;
        for (int axis = 0; axis < 4; ++axis) {
            places.max[axis] = region[axis].count;
        }
        samplesRead += places.pointCount();
        forEachIndex(
            places, [&](FixedVector<4, int> const& place) { return *out++ = data.at(region.at(place)), true; });
    }

    PlainArray<T> data;
    BulkView::AccessTraits traits_;
    bool hasCheapParts = false;
    bool hasCheapSteps = false;
    Box holes;                      ///< bricks that begin in here have no samples
    std::function<void()> onRead;   ///< called before a read, perhaps to fail
    std::function<void()> onWrite;  ///< called before a write, perhaps to fail
    mutable std::atomic<int> reads{0};
    mutable std::atomic<std::int64_t> samplesRead{0};
    std::atomic<int> writes{0};
    std::atomic<int> flushes{0};
};

}  // namespace Quorvel::Dravik::Adt::Testing
