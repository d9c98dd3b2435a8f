// SPDX-License-Identifier: Apache-2.0
#pragma once

// Atomic words and a mutex whose every operation is a step of the schedule that is running, and faults that can be
// planted. The copies of the library's sources that bulkview/schedule_test.cmake makes are built upon them.

#include "dravik/adt/testing/schedule.h"

#include <atomic>
#include <utility>

namespace Quorvel::Dravik::Adt::Testing {

/// A fault that the scheduled copies can be given, to see that it is found.
enum class Planted {
    kNothing,
    kUncountedTakeBack,  ///< a block that is taken back does not count as a change
    kMarkAlone,          ///< an invalidation marks the handle and does not tell that it has still to empty the range
    kPlainQuestion,      ///< a fetch looks at the mark without asking in order
    kUnheldSlot,         ///< a release takes the owner out of a slot that somebody else may be changing
    kLateBlock,          ///< the cache keeps a block that was asked for before others were removed
    kForgottenWriter,    ///< a brick that somebody still writes into counts as carried down
    kUnclaimedBrick,     ///< a brick passes by the pool while another thread may be reading it into the pool
};
inline Planted planted = Planted::kNothing;
inline bool isPlanted(Planted fault) noexcept {
    return planted == fault;
}

/// What std::atomic_ref is to threads. Every operation is a step; orders but the strongest make no difference.
template <class Word>
class ScheduledRef {
  public:
    explicit ScheduledRef(Word& word) : word_(word) {}

    Word load(std::memory_order) const {
        Schedule::step();
        return Schedule::load(word_);
    }
    void store(Word value, std::memory_order order) const {
        Schedule::step();
        Schedule::store(word_, value);
        if (order == std::memory_order_seq_cst) {
            Schedule::settle();
        }
    }
    Word exchange(Word value, std::memory_order) const {
        return change([&](Word) { return value; });
    }
    template <class Change>
    Word change(Change change) const {
        Schedule::step();
        Schedule::settle();
        Word const before = word_;
        word_ = change(before);
        return before;
    }
    Word fetch_add(Word value, std::memory_order) const {
        return change([&](Word now) { return now + value; });
    }
    Word fetch_or(Word bits, std::memory_order) const {
        return change([&](Word now) { return now | bits; });
    }
    Word fetch_and(Word bits, std::memory_order) const {
        return change([&](Word now) { return now & bits; });
    }
    bool compare_exchange_strong(Word& expected, Word value, std::memory_order, std::memory_order) const {
        Word const before = change([&](Word now) { return now == expected ? value : now; });
        return std::exchange(expected, before) == before;
    }

  private:
    Word& word_;
};

/// What std::atomic is to threads, as ScheduledRef.
template <class Word>
class ScheduledAtomic {
  public:
    constexpr ScheduledAtomic(Word word) noexcept : word_(word) {}
    ~ScheduledAtomic() { Schedule::settle(); }  // what is held back must not reach a word that is gone

    Word load(std::memory_order order) const { return ref().load(order); }
    void store(Word value, std::memory_order order) { ref().store(value, order); }
    Word exchange(Word value, std::memory_order order) { return ref().exchange(value, order); }
    Word fetch_or(Word bits, std::memory_order order) { return ref().fetch_or(bits, order); }
    Word fetch_and(Word bits, std::memory_order order) { return ref().fetch_and(bits, order); }
    Word fetch_add(Word value, std::memory_order order) { return ref().fetch_add(value, order); }
    Word fetch_sub(Word value, std::memory_order order) { return ref().fetch_add(-value, order); }
    bool compare_exchange_weak(Word& expected, Word value, std::memory_order success, std::memory_order failure) {
        return ref().compare_exchange_strong(expected, value, success, failure);
    }

  private:
    ScheduledRef<Word> ref() const { return ScheduledRef<Word>(word_); }

    mutable Word word_;
};

/// What std::recursive_mutex and std::mutex are to threads.
class ScheduledMutex {
  public:
    void lock() {
        while (!try_lock()) {
            Schedule::letOthersRun();
        }
    }
    bool try_lock() {
        Schedule::step();
        Schedule::settle();
        if (depth_ != 0 && holder_ != Schedule::fiberNumber()) {
            return false;
        }
        holder_ = Schedule::fiberNumber();
        ++depth_;
        return true;
    }
    void unlock() {
        Schedule::settle();
        --depth_;
        Schedule::step();
    }

  private:
    int holder_ = -1;
    int depth_ = 0;
};

/// What std::condition_variable is to threads; looks again whenever it is let run.
class ScheduledCondition {
  public:
    template <class Lock, class Holds>
    void wait(Lock& lock, Holds holds) {
        while (!holds()) {
            lock.unlock();
            Schedule::letOthersRun();
            lock.lock();
        }
    }
    void notify_all() noexcept {}
};

}  // namespace Quorvel::Dravik::Adt::Testing
