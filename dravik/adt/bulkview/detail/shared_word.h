// SPDX-License-Identifier: Apache-2.0
#pragma once

// Access to plain words that another thread may write while their owner reads them. On the usual processors the
// loads and stores cost what plain ones cost, and what decides an order costs a locked instruction.

#include <atomic>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// The word as it is now; nothing is said about other words.
template <class Word>
[[gnu::always_inline]] inline Word loadRelaxed(Word const& word) noexcept {
    return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_relaxed);
}

template <class Word>
[[gnu::always_inline]] inline void storeRelaxed(Word& word, Word value) noexcept {
    std::atomic_ref<Word>(word).store(value, std::memory_order_relaxed);
}

/// The word as it is now, and with it everything that its writer wrote before by storeRelease.
template <class Word>
[[gnu::always_inline]] inline Word loadAcquire(Word const& word) noexcept {
    return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_acquire);
}

template <class Word>
[[gnu::always_inline]] inline void storeRelease(Word& word, Word value) noexcept {
    std::atomic_ref<Word>(word).store(value, std::memory_order_release);
}

// Of two threads that call any of the following on one word, the later sees what the earlier wrote before its call, to
// this word and to any other.

template <class Word>
void add(Word& word, Word value) noexcept {
    std::atomic_ref<Word>(word).fetch_add(value, std::memory_order_acq_rel);
}

template <class Word>
void setBits(Word& word, Word bits) noexcept {
    std::atomic_ref<Word>(word).fetch_or(bits, std::memory_order_acq_rel);
}

template <class Word>
void clearBits(Word& word, Word bits) noexcept {
    std::atomic_ref<Word>(word).fetch_and(~bits, std::memory_order_acq_rel);
}

/// Whether the word is `value`: one more in the order of changes, though it changes nothing.
template <class Word>
bool isInOrder(Word& word, Word value) noexcept {
    Word expected = value;
    return std::atomic_ref<Word>(word).compare_exchange_strong(
        expected, value, std::memory_order_acq_rel, std::memory_order_acquire);
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
