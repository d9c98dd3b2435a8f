// SPDX-License-Identifier: Apache-2.0
#pragma once

// Schedule: runs pieces of a test that would be threads as fibers of the calling thread and lets chance, by a seed,
// decide which one goes on at each step. A run is repeated exactly by its seed. One schedule runs at a time.

#include <ucontext.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// Steps are what the bodies say: with the words of scheduled_words.h, every access to one.
///
/// Stores are held back as the usual processors do: a fiber sees its own at once, the others see them later and in
/// order, and an exchange or a lock lets go of all of them. Weaker orders than that do not show here.
class Schedule {
  public:
    explicit Schedule(std::uint64_t seed) : random_(seed) {}

    /// Runs each of up to eight bodies to its end, all of them in turn. False if it was given up, since they seem to
    /// wait for each other for ever; what their stacks hold is lost then.
    bool run(std::vector<std::function<void()>> bodies);

    /// A number in [0, bound).
    int random(int bound) { return static_cast<int>((nextRandom() >> 33) % static_cast<std::uint64_t>(bound)); }
    std::int64_t steps() const { return steps_; }

    // For what the bodies call. All of them are for free, and stores are plain, outside of a run.

    /// Another fiber may go on here.
    static void step() {
        if (running != nullptr) {
            running->takeStep();
        }
    }
    /// Another fiber goes on here, if there is one: the running one waits for something.
    static void letOthersRun() {
        if (running != nullptr) {
            running->takeStep();
            running->switchFiber();
        }
    }
    /// Lets the others see what the running fiber has stored.
    static void settle() {
        if (running != nullptr) {
            while (running->fiber().letGoOfOne()) {
            }
        }
    }
    /// Which fiber is running; -1 outside of a run.
    static int fiberNumber() { return running == nullptr ? -1 : static_cast<int>(running->current_); }

    template <class Word>
    static Word load(Word const& word) {
        Word value = word;
        if (running != nullptr) {
            running->fiber().overlay(&word, &value);
        }
        return value;
    }
    template <class Word>
    static void store(Word& word, Word value) {
        static_assert(std::is_trivially_copyable_v<Word> && sizeof(Word) <= sizeof(std::uint64_t));
        if (running == nullptr) {
            word = value;
        } else {
            running->fiber().holdBack(&word, &value, sizeof value);
        }
    }

  private:
    struct Fiber {
        struct Store {
            void* word;
            std::uint64_t value;
            std::size_t byteSize;
        };

        void holdBack(void* word, void const* value, std::size_t byteSize) {
            stores.push_back({word, 0, byteSize});
            std::memcpy(&stores.back().value, value, byteSize);
        }
        void overlay(void const* word, void* value) const {
            for (Store const& store : stores) {
                if (store.word == word) {
                    std::memcpy(value, &store.value, store.byteSize);
                }
            }
        }
        bool letGoOfOne() {
            if (stores.empty()) {
                return false;
            }
            std::memcpy(stores.front().word, &stores.front().value, stores.front().byteSize);
            stores.pop_front();
            return true;
        }

        std::function<void()> body;
        std::deque<Store> stores;
        std::unique_ptr<char[]> stack;
        ucontext_t context{};
        bool isDone = false;
    };

    static constexpr std::size_t kStackBytes = 256 * 1024;
    static constexpr std::int64_t kMostSteps = 100000;

    Fiber& fiber() { return *fibers[current_]; }
    std::uint64_t nextRandom();
    void takeStep();
    void switchFiber();
    static void enter();

    static inline Schedule* running = nullptr;
    static inline std::vector<std::unique_ptr<Fiber>> fibers;  // kept for the next schedule, stacks and all
    static inline ucontext_t outside;

    std::uint64_t random_;
    std::size_t current_ = 0;
    std::size_t count_ = 0;
    std::int64_t steps_ = 0;
    int switchesIn64_ = 1;
};

inline std::uint64_t Schedule::nextRandom() {
    random_ += 0x9e3779b97f4a7c15u;
    std::uint64_t mixed = (random_ ^ (random_ >> 30)) * 0xbf58476d1ce4e5b9u;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebu;
    return mixed ^ (mixed >> 31);
}

inline bool Schedule::run(std::vector<std::function<void()>> bodies) {
    switchesIn64_ = 1 << random(6);  // from rare to half of all steps
    count_ = bodies.size();
    while (fibers.size() < count_) {
        fibers.push_back(std::make_unique<Fiber>());
        fibers.back()->stack.reset(new char[kStackBytes]);
    }
    for (std::size_t i = 0; i < count_; ++i) {
        Fiber& each = *fibers[i];
        each.body = std::move(bodies[i]);
        each.isDone = false;
        getcontext(&each.context);
        each.context.uc_stack.ss_sp = each.stack.get();
        each.context.uc_stack.ss_size = kStackBytes;
        each.context.uc_link = nullptr;
        makecontext(&each.context, &Schedule::enter, 0);
    }
    current_ = static_cast<std::size_t>(random(static_cast<int>(count_)));
    running = this;
    swapcontext(&outside, &fiber().context);
    running = nullptr;
    return steps_ < kMostSteps;
}

inline void Schedule::enter() {
    running->fiber().body();
    settle();
    running->fiber().isDone = true;
    running->switchFiber();
}

inline void Schedule::takeStep() {
    if (++steps_ >= kMostSteps) {
        swapcontext(&fiber().context, &outside);  // for good
    }
    int const chance = random(64);
    Fiber& other = *fibers[static_cast<std::size_t>(random(static_cast<int>(count_)))];
    if (other.stores.size() > 16 || chance % 4 == 0) {
        other.letGoOfOne();
    }
    if (chance < switchesIn64_) {
        switchFiber();
    }
}

inline void Schedule::switchFiber() {
    std::size_t const from = current_;
    std::size_t alive = 0;
    std::size_t next[8];
    for (std::size_t i = 0; i < count_; ++i) {
        if (!fibers[i]->isDone && i != from) {
            next[alive++] = i;
        }
    }
    if (alive > 0) {
        current_ = next[static_cast<std::size_t>(random(static_cast<int>(alive)))];
        swapcontext(&fibers[from]->context, &fiber().context);
    } else if (fiber().isDone) {
        setcontext(&outside);
    }
}

}  // namespace Quorvel::Dravik::Adt::Testing
