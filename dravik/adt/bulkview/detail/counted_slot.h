// SPDX-License-Identifier: Apache-2.0
#pragma once

// CountedSlot: a counted reference in a place that two threads may clear at once. Threads: any number, on every member.

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// One counted reference or null. The thread that takes the pointer out of the slot drops the reference.
///
/// Taking a further reference needs the object to stay while its count is raised. The lowest bit of the word says that
/// somebody is doing so; the few instructions until it is cleared again run no code of the object.
template <class T>
class CountedSlot {
  public:
    CountedSlot() noexcept = default;
    ~CountedSlot() { exchange(nullptr); }
    CountedSlot(CountedSlot const&) = delete;
    CountedSlot& operator=(CountedSlot const&) = delete;

    /// The pointer alone: good for comparing, and for use while the slot cannot be cleared.
    T* peek() const noexcept { return pointerIn(word_.load(std::memory_order_acquire)); }

    /// A further reference if the object is there and `wanted(object)` holds; `wanted` must not throw nor wait.
    template <class Predicate>
    boost::intrusive_ptr<T> share(Predicate wanted) const noexcept {
        if (peek() == nullptr) {
            return nullptr;
        }
        T* const object = pointerIn(hold());
        boost::intrusive_ptr<T> reference(object != nullptr && wanted(*object) ? object : nullptr);
        word_.fetch_and(~kHeld, std::memory_order_release);
        return reference;
    }
    boost::intrusive_ptr<T> share() const noexcept {
        return share([](T const&) { return true; });
    }

    /// Puts `next` here and hands back what was here.
    boost::intrusive_ptr<T> exchange(boost::intrusive_ptr<T> next) noexcept {
        std::uintptr_t const word = reinterpret_cast<std::uintptr_t>(next.detach());
        // One locked instruction where the object is free.
        std::uintptr_t before = word_.load(std::memory_order_relaxed) & ~kHeld;
        while (!word_.compare_exchange_weak(before, word, std::memory_order_acq_rel, std::memory_order_relaxed)) {
            if ((before & kHeld) != 0) {
                std::this_thread::yield();
                before &= ~kHeld;
            }
        }
        return {pointerIn(before), /*add_ref=*/false};
    }

    /// Clears the slot if it holds `expected` and hands back the reference through `taken`; false otherwise.
    bool takeIf(T const* expected, boost::intrusive_ptr<T>& taken) noexcept {
        std::uintptr_t const word = hold();
        bool const same = pointerIn(word) == expected;
        if (same) {
            taken = {pointerIn(word), /*add_ref=*/false};
        }
        word_.store(same ? 0 : word, std::memory_order_release);
        return same;
    }

  private:
    static constexpr std::uintptr_t kHeld = 1;

    static T* pointerIn(std::uintptr_t word) noexcept { return reinterpret_cast<T*>(word & ~kHeld); }

    // Sets the bit, waiting while another thread has it, and gives the word without it.
    std::uintptr_t hold() const noexcept {
        std::uintptr_t word = word_.fetch_or(kHeld, std::memory_order_acquire);
        while ((word & kHeld) != 0) {
            std::this_thread::yield();
            word = word_.fetch_or(kHeld, std::memory_order_acquire);
        }
        return word;
    }

    mutable std::atomic<std::uintptr_t> word_{0};
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
