// SPDX-License-Identifier: Apache-2.0
#pragma once

// Shared: the base of every intrusively counted object of the library. boost::intrusive_ptr holds the references, to
// const objects as well. Threads: references may be added and dropped from any of them.

#include "dravik/adt/export.h"

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <typeinfo>

namespace Quorvel::Dravik::Adt {

/// Counts the references to itself and deletes itself with the last of them.
///
/// Starts unreferenced (use count 0), so the first intrusive_ptr makes it 1; an object that was never referenced is
/// deleted by its maker. Hold no reference to an object inside its own constructor: dropping it would delete an
/// object that is not there yet. Lives on the heap. Not copyable: a count belongs to one object.
///
///     class Grid : public Shared { … };
///     boost::intrusive_ptr<Grid const> const grid(new Grid);
class DRAVIK_ADT_EXPORT Shared {
  public:
    Shared(Shared const&) = delete;
    Shared& operator=(Shared const&) = delete;
    virtual ~Shared();

    /// Called when the last reference is dropped, before the object is deleted. Does nothing here. Must not throw.
    virtual void dispose();
    /// Called when nothing holds the object any more: deletes it. Must not throw.
    virtual void destroy();
    /// Null: the object deletes itself.
    virtual void* get_deleter(std::type_info const& deleterType);

    /// Whether exactly one reference is held. Another thread may change that before the caller looks at the answer,
    /// unless the caller holds the only reference.
    bool isUniqueRef() const noexcept { return getReferenceCount() == 1; }

    friend void intrusive_ptr_add_ref(Shared const* shared) noexcept {
        shared->useCount_.fetch_add(1, std::memory_order_relaxed);
    }
    friend void intrusive_ptr_release(Shared const* shared) noexcept {
        // Releases this thread's last writes, and lets the thread that deletes see those of every other.
        if (shared->useCount_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            shared->letGo();
        }
    }

  protected:
    Shared() noexcept = default;

    /// The number of references held.
    std::int32_t getReferenceCount() const noexcept { return useCount_.load(std::memory_order_acquire); }

    /// A new reference to `shared`, null for null.
    /// @throws boost::bad_weak_ptr if nothing references the object (any more); it takes no reference then
    static boost::intrusive_ptr<Shared> createFromPointer(Shared* shared);

    /// As createFromPointer, with null in place of the exception.
    static boost::intrusive_ptr<Shared> tryCreateFromPointer(Shared* shared) noexcept;

  private:
    void letGo() const noexcept;
    bool addReferenceUnlessZero() noexcept;

    mutable std::atomic<std::int32_t> useCount_{0};
    mutable std::atomic<std::int32_t> weakCount_{1};
};

/// Adds and drops a reference, as boost::intrusive_ptr does.
void intrusive_ptr_add_ref(Shared const* shared) noexcept;
void intrusive_ptr_release(Shared const* shared) noexcept;

}  // namespace Quorvel::Dravik::Adt
