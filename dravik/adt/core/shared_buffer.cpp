// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/shared_buffer.h"

#include "dravik/adt/exceptions/memory_exception.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace Quorvel::Dravik::Adt {

SharedBuffer::SharedBuffer(boost::intrusive_ptr<Owner> owner) noexcept : owner_(std::move(owner)) {}

SharedBuffer::SharedBuffer(SharedBuffer const&) noexcept = default;
SharedBuffer::SharedBuffer(SharedBuffer&&) noexcept = default;
SharedBuffer& SharedBuffer::operator=(SharedBuffer const&) noexcept = default;
SharedBuffer& SharedBuffer::operator=(SharedBuffer&&) noexcept = default;
SharedBuffer::~SharedBuffer() = default;

SharedBuffer SharedBuffer::createFromExternal(void* pointer, std::uint32_t byteSize, bool writable) {
    return SharedBuffer(boost::intrusive_ptr<Owner>(new ExternalPointerOwner(pointer, byteSize, writable)));
}

bool SharedBuffer::isReadOnly() const {
    return owner_ != nullptr && !owner_->isWritable();
}

bool SharedBuffer::isShareable() const noexcept {
    return dynamic_cast<ExternalPointerOwner const*>(owner_.get()) == nullptr;
}

std::uint32_t SharedBuffer::getBufferByteSize() const {
    return owner_ == nullptr ? 0 : owner_->getByteSize();
}

char* SharedBuffer::getBufferNoAlloc(std::uint32_t* byteSize) const {
    char* const bytes = owner_ == nullptr ? nullptr : owner_->getBuffer(/*allocate=*/false);
    if (byteSize != nullptr) {
        *byteSize = bytes == nullptr ? 0 : owner_->getByteSize();
    }
    return bytes;
}

char* SharedBuffer::getBuffer(std::uint32_t byteSize, bool allocate, bool createOwner) {
    bool const fits = owner_ != nullptr && byteSize <= owner_->getByteSize();
    if (!fits && !createOwner) {
        return nullptr;
    }
    if (!fits) {
        owner_ = new BasicArrayOwner(byteSize);
    }
    return owner_->getBuffer(allocate);
}

boost::intrusive_ptr<SharedBuffer::Owner const> SharedBuffer::getOwner() const noexcept {
    return owner_;
}

SharedBuffer::Owner::~Owner() = default;

SharedBuffer::BasicArrayOwner::BasicArrayOwner(std::uint32_t byteSize) : size_(byteSize) {}

SharedBuffer::BasicArrayOwner::BasicArrayOwner(Owner const& other) : size_(other.getByteSize()) {
    if (char const* const bytes = other.getBufferRO()) {
        allocate();
        std::memcpy(storage_.get(), bytes, size_);
    }
}

SharedBuffer::BasicArrayOwner::BasicArrayOwner(BasicArrayOwner const& other)
    : BasicArrayOwner(static_cast<Owner const&>(other)) {}

SharedBuffer::BasicArrayOwner::~BasicArrayOwner() = default;

bool SharedBuffer::BasicArrayOwner::isWritable() const {
    return true;
}

std::uint32_t SharedBuffer::BasicArrayOwner::getByteSize() const {
    return size_;
}

char* SharedBuffer::BasicArrayOwner::getBuffer(bool allocate) {
    char* const bytes = published_.load(std::memory_order_acquire);
    if (bytes != nullptr || !allocate) {
        return bytes;
    }
    std::lock_guard<LightweightMutex> const lock(mutex_);
    if (storage_ == nullptr) {
        this->allocate();
    }
    return storage_.get();
}

boost::intrusive_ptr<SharedBuffer::Owner> SharedBuffer::BasicArrayOwner::share() {
    boost::intrusive_ptr<BasicArrayOwner> sharer(new BasicArrayOwner(size_));
    // Once published, storage_ never changes again: it may be copied without the lock.
    if (char* const bytes = published_.load(std::memory_order_acquire)) {
        sharer->storage_ = storage_;
        sharer->published_.store(bytes, std::memory_order_release);
    }
    return sharer;
}

void SharedBuffer::BasicArrayOwner::allocate() {
    std::uint32_t const byteSize = std::max<std::uint32_t>(size_, 1);
    boost::shared_array<char> bytes;
    try {
        bytes.reset(new char[byteSize]);
    } catch (std::bad_alloc const& failure) {
        throw Exceptions::MemoryException(failure, "SharedBuffer", byteSize);
    }
    // A host's operator new may have asked this owner for its bytes: those are in use by now and stay.
    if (storage_ == nullptr) {
        storage_ = std::move(bytes);
        published_.store(storage_.get(), std::memory_order_release);
    }
}

SharedBuffer::ExternalPointerOwner::ExternalPointerOwner(void* pointer, std::uint32_t byteSize, bool writable) noexcept
    : pointer_(static_cast<char*>(pointer)), size_(byteSize), writable_(writable) {}

SharedBuffer::ExternalPointerOwner::~ExternalPointerOwner() = default;

bool SharedBuffer::ExternalPointerOwner::isWritable() const {
    return writable_;
}

std::uint32_t SharedBuffer::ExternalPointerOwner::getByteSize() const {
    return size_;
}

char* SharedBuffer::ExternalPointerOwner::getBuffer(bool) {
    return pointer_;
}

boost::intrusive_ptr<SharedBuffer::Owner> SharedBuffer::ExternalPointerOwner::share() {
    return nullptr;
}

}  // namespace Quorvel::Dravik::Adt
