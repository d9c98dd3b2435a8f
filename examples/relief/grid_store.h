// SPDX-License-Identifier: Apache-2.0
#pragma once

// GridStore: what the demo's stores of float samples have in common. Threads: every operation from any thread.

#include <dravik/adt/bulkview/stores/brick_store.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace Relief {

namespace Adt = Quorvel::Dravik::Adt;
namespace BulkView = Quorvel::Dravik::Adt::BulkView;

using Position = Adt::FixedVector<4, int>;
using Box = Adt::OpenEndedRange<4, int>;

/// A read-only store of float samples, any cut of which is as good as another.
class GridStore : public BulkView::IBrickStore {
  public:
    BulkView::AccessTraits traits() const override;
};

/// What stores that share it have been asked for. Counts may be read at any time.
struct Traffic {
    std::atomic<std::int64_t> requests{0};
    std::atomic<std::int64_t> samples{0};
};

/// A store in bricks of another size, and a count of what is read of it.
class CountedStore final : public BulkView::IBrickStore {
  public:
    /// @pre no pointer is null, the brick has at least one sample along each axis
    CountedStore(std::shared_ptr<IBrickStore const> store, Position const& brick, std::shared_ptr<Traffic> traffic);

    Position size() const override;
    BulkView::AccessTraits traits() const override;
    void read(Box const& box, void* samples) const override;

  private:
    std::shared_ptr<IBrickStore const> store_;
    Position brick_;
    std::shared_ptr<Traffic> traffic_;
};

}  // namespace Relief
