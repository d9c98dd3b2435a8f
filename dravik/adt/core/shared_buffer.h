// SPDX-License-Identifier: Apache-2.0
#pragma once

// SharedBuffer: a counted hold on a flat piece of memory, which is freed by whoever lets go last. The owners behind it
// decide where the bytes come from. Threads: owners are safe from any of them, one SharedBuffer value is as `int`.

#include "dravik/adt/core/lightweight_mutex.h"
#include "dravik/adt/core/shared.h"
#include "dravik/adt/export.h"

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/shared_array.hpp>

#include <atomic>
#include <cstdint>

namespace Quorvel::Dravik::Adt {

/// A counted reference to an owner of bytes, or to none. Copies share the bytes.
///
///     SharedBuffer samples;
///     char* const bytes = samples.getBuffer(4096, /*allocate=*/true, /*createOwner=*/true);
class DRAVIK_ADT_EXPORT SharedBuffer {
  public:
    class Owner;
    class BasicArrayOwner;
    class ExternalPointerOwner;

    /// Refers to no owner.
    SharedBuffer() noexcept = default;
    /// Refers to `owner`, which may be null.
    explicit SharedBuffer(boost::intrusive_ptr<Owner> owner) noexcept;

    SharedBuffer(SharedBuffer const&) noexcept;
    SharedBuffer(SharedBuffer&&) noexcept;
    SharedBuffer& operator=(SharedBuffer const&) noexcept;
    SharedBuffer& operator=(SharedBuffer&&) noexcept;
    ~SharedBuffer();

    /// A buffer over `byteSize` bytes of somebody else at `pointer`.
    /// @lifetime the provider keeps the bytes as long as any SharedBuffer refers to them; they are never freed here
    static SharedBuffer createFromExternal(void* pointer, std::uint32_t byteSize, bool writable);

    /// Whether there is no owner.
    bool isNull() const noexcept { return owner_ == nullptr; }
    /// Whether the owner forbids writing; false without an owner.
    bool isReadOnly() const;
    /// Whether the library may hand the bytes on: they are not external. True without an owner.
    bool isShareable() const noexcept;
    /// The owner's size in bytes; 0 without an owner.
    std::uint32_t getBufferByteSize() const;

    /// The bytes, null when there are none yet. `byteSize`, if given, receives the owner's size in bytes, or 0 together
    /// with a null result.
    char* getBufferNoAlloc(std::uint32_t* byteSize = nullptr) const;

    /// At least `byteSize` bytes: of the present owner if it has as many; else null, unless `createOwner` asks for a
    /// new owner of `byteSize` bytes in its place. Null also where nothing is allocated and `allocate` is false.
    ///
    /// Other holders keep a replaced owner. This buffer has let go of it before the new one allocates, and refers to
    /// the new one, still without bytes, when that fails.
    /// @throws Exceptions::MemoryException if the allocation fails
    char* getBuffer(std::uint32_t byteSize, bool allocate, bool createOwner);

    /// The owner, null if there is none.
    boost::intrusive_ptr<Owner const> getOwner() const noexcept;

  private:
    boost::intrusive_ptr<Owner> owner_;
};

/// What has the bytes behind a SharedBuffer. Hosts derive their own to lend memory of theirs.
class DRAVIK_ADT_EXPORT SharedBuffer::Owner : public Shared {
  public:
    ~Owner() override;

    virtual bool isWritable() const = 0;
    /// The size of the buffer in bytes, also before it is allocated.
    virtual std::uint32_t getByteSize() const = 0;
    /// The bytes. An owner that allocates late does it now if `allocate` is true, and returns null if it is false and
    /// there are none yet.
    virtual char* getBuffer(bool allocate) = 0;
    /// A new and separate owner over the same bytes, null if they cannot be shared.
    virtual boost::intrusive_ptr<Owner> share() = 0;

    /// The bytes to read, null if there are none yet.
    char const* getBufferRO() const { return const_cast<Owner*>(this)->getBuffer(/*allocate=*/false); }
};

/// Bytes of the library's own, allocated when first wanted and never resized. Writable.
///
/// The bytes go with the last owner that shares them. Threads: any; concurrent first requests allocate once, and a
/// request for bytes that are there takes no lock.
class DRAVIK_ADT_EXPORT SharedBuffer::BasicArrayOwner : public SharedBuffer::Owner {
  public:
    /// An owner of `byteSize` bytes that are not allocated yet.
    explicit BasicArrayOwner(std::uint32_t byteSize);
    /// An owner of a copy of the bytes of `other`, unallocated if `other` is.
    /// @throws Exceptions::MemoryException if the allocation fails
    explicit BasicArrayOwner(Owner const& other);
    BasicArrayOwner(BasicArrayOwner const& other);
    ~BasicArrayOwner() override;

    bool isWritable() const override;
    std::uint32_t getByteSize() const override;
    /// The bytes, uninitialised when they are allocated now; one byte for a size of 0. Allocates under the lock of this
    /// owner, the one place where a user's replacement of operator new is called under it.
    /// @throws Exceptions::MemoryException if the allocation fails; the owner stays unallocated
    char* getBuffer(bool allocate) override;
    /// A further owner of the same bytes. Of an unallocated owner it is one that will allocate bytes of its own.
    boost::intrusive_ptr<Owner> share() override;

  private:
    void allocate();

    LightweightMutex mutex_;
    boost::shared_array<char> storage_;
    std::uint32_t size_;
    /// storage_.get() once storage_ is set for good: what is read without the lock.
    std::atomic<char*> published_{nullptr};
};

/// Bytes of somebody else, whose place is all that is kept here. Cannot be shared.
class DRAVIK_ADT_EXPORT SharedBuffer::ExternalPointerOwner : public SharedBuffer::Owner {
  public:
    /// @lifetime `pointer` is valid as long as this owner
    ExternalPointerOwner(void* pointer, std::uint32_t byteSize, bool writable) noexcept;
    ~ExternalPointerOwner() override;

    bool isWritable() const override;
    std::uint32_t getByteSize() const override;
    char* getBuffer(bool allocate) override;
    boost::intrusive_ptr<Owner> share() override;

  private:
    char* pointer_;
    std::uint32_t size_;
    bool writable_;
};

}  // namespace Quorvel::Dravik::Adt
