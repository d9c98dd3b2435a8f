#pragma once

// Access to plain words that another thread may write while their owner reads them. On the usual processors all but
// storeDecisive cost what a plain load or store costs.

#include <atomic>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// The word as it is now; nothing is said about other words.
template <class Word>
Word loadRelaxed(Word const& word) noexcept {
    return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_relaxed);
}

template <class Word>
void storeRelaxed(Word& word, Word value) noexcept {
    std::atomic_ref<Word>(word).store(value, std::memory_order_relaxed);
}

/// The word as it is now, and with it everything that its writer wrote before by storeRelease.
template <class Word>
Word loadAcquire(Word const& word) noexcept {
    return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_acquire);
}

template <class Word>
void storeRelease(Word& word, Word value) noexcept {
    std::atomic_ref<Word>(word).store(value, std::memory_order_release);
}

/// Decisive loads and stores happen in one order for all threads: of two threads that each store one word and then load
/// the other's, at least one sees what the other stored.
template <class Word>
Word loadDecisive(Word const& word) noexcept {
    return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_seq_cst);
}

template <class Word>
void storeDecisive(Word& word, Word value) noexcept {
    std::atomic_ref<Word>(word).store(value, std::memory_order_seq_cst);
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
