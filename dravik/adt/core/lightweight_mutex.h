// SPDX-License-Identifier: Apache-2.0
#pragma once

// LightweightMutex: the lock around a few lines of one object's own state. Threads: any number.

#include <mutex>

namespace Quorvel::Dravik::Adt {

/// A mutex that its holder may take again, and gives back as often as it took it; others wait without a time-out.
///
/// Re-entry is needed where code of a client runs under the lock and comes back to the same object. Works with
/// std::lock_guard and std::unique_lock; within one process.
class LightweightMutex {
  public:
    LightweightMutex() = default;
    LightweightMutex(LightweightMutex const&) = delete;
    LightweightMutex& operator=(LightweightMutex const&) = delete;

    void lock() { mutex_.lock(); }
    /// @pre the calling thread holds this mutex
    void unlock() { mutex_.unlock(); }
    /// Takes the mutex if no other thread holds it; false otherwise.
    bool try_lock() { return mutex_.try_lock(); }

  private:
    std::recursive_mutex mutex_;
};

}  // namespace Quorvel::Dravik::Adt
