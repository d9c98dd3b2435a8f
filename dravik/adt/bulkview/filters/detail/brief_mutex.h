// SPDX-License-Identifier: Apache-2.0
#pragma once

// BriefMutex: the lock around a few instructions that call nothing. Threads: any number.

#include <atomic>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {

/// Taken by one locked instruction and given back by none. A waiting thread yields, so what is done under it has to be
/// brief. Its holder may not take it again.
class BriefMutex {
  public:
    BriefMutex() = default;
    BriefMutex(BriefMutex const&) = delete;
    BriefMutex& operator=(BriefMutex const&) = delete;

    void lock() noexcept {
        while (isHeld_.exchange(true, std::memory_order_acquire)) {
            std::this_thread::yield();
        }
    }
    void unlock() noexcept { isHeld_.store(false, std::memory_order_release); }

  private:
    std::atomic<bool> isHeld_{false};
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail
