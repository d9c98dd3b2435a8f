// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/shared.h"

#include <boost/smart_ptr/bad_weak_ptr.hpp>

namespace Quorvel::Dravik::Adt {

Shared::~Shared() = default;

void Shared::dispose() {}

void Shared::destroy() {
    delete this;
}

void* Shared::get_deleter(std::type_info const&) {
    return nullptr;
}

boost::intrusive_ptr<Shared> Shared::createFromPointer(Shared* shared) {
    auto reference = tryCreateFromPointer(shared);
    if (shared != nullptr && reference == nullptr) {
        throw boost::bad_weak_ptr();
    }
    return reference;
}

boost::intrusive_ptr<Shared> Shared::tryCreateFromPointer(Shared* shared) noexcept {
    if (shared == nullptr || !shared->addReferenceUnlessZero()) {
        return nullptr;
    }
    return {shared, /*add_ref=*/false};
}

void Shared::letGo() const noexcept {
    // A reference to const counts like any other, and the last one ends the object as the holder of a plain one would.
    auto* const self = const_cast<Shared*>(this);
    self->dispose();
    if (weakCount_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        self->destroy();
    }
}

bool Shared::addReferenceUnlessZero() noexcept {
    std::int32_t count = useCount_.load(std::memory_order_relaxed);
    while (count != 0) {
        if (useCount_.compare_exchange_weak(count, count + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

}  // namespace Quorvel::Dravik::Adt
