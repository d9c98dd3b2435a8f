// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/detail/pooled_store.h"

#include <exception>
#include <optional>
#include <sstream>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

template <class Act>
std::optional<std::string> textOfFailure(Act act) {
    try {
        act();
        return std::nullopt;
    } catch (std::exception const& failure) {
        return failure.what();
    } catch (...) {
        return "unknown failure";
    }
}

}  // namespace

PooledStore::PooledStore(std::shared_ptr<IBrickStore> store, Diagnostics diagnostics)
    : store_(std::move(store)),
      traits_(store_->traits()),
      size_(store_->size()),
      servesParts_(store_->servesParts()),
      servesSteps_(store_->servesSteps()),
      diagnostics_(std::move(diagnostics)) {}

std::unique_lock<std::mutex> PooledStore::turn() const {
    bool const isSerial = traits_.concurrency == AccessTraits::Concurrency::Serial;
    return isSerial ? std::unique_lock(serial_) : std::unique_lock<std::mutex>();
}

void PooledStore::read(Box const& box, void* samples) const {
    auto const lock = turn();
    store_->read(box, samples);
}

void PooledStore::readSteps(ExtentK<4, int> const& region, void* samples) const {
    auto const lock = turn();
    store_->readSteps(region, samples);
}

void PooledStore::write(Box const& box, void const* samples) {
    auto const lock = turn();
    isFlushed_.store(false, std::memory_order_release);
    store_->write(box, samples);
}

void PooledStore::flush() {
    auto const lock = turn();
    bool const wasFlushed = isFlushed_.exchange(true, std::memory_order_acq_rel);
    try {
        store_->flush();
    } catch (...) {
        isFlushed_.store(wasFlushed, std::memory_order_release);
        throw;
    }
}

bool PooledStore::hasSamples(Box const& box) const {
    auto const lock = turn();
    return store_->hasSamples(box);
}

template <class Act, class What>
void PooledStore::tryAtLast(Act act, What what) const noexcept {
    try {
        auto const why = textOfFailure(act);
        if (why) {
            std::ostringstream text;
            text << "[BrickPool] ";
            what(text);
            text << ": " << *why;
            (*diagnostics_)(text.str());
        }
    } catch (...) {
        // Nobody is left to tell.
    }
}

void PooledStore::writeAtLast(Box const& box, void const* samples) noexcept {
    tryAtLast(
        [&] { write(box, samples); }, [&](std::ostream& out) { out << "Samples written into " << box << " are lost"; });
}

void PooledStore::flushAtLast() noexcept {
    if (isFlushed_.load(std::memory_order_acquire)) {
        return;
    }
    tryAtLast([&] { flush(); }, [](std::ostream& out) { out << "What was written may be lost"; });
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
