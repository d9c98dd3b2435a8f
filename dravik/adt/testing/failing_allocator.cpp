// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/testing/failing_allocator.h"

#include "dravik/adt/exceptions/memory_exception.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace Quorvel::Dravik::Adt::Testing {

namespace {

constinit thread_local FailurePlan allocationPlan;
constinit thread_local MemoryHook hook = nullptr;
constinit thread_local std::size_t largestRequest = 0;
constinit thread_local std::size_t requestLimit = std::numeric_limits<std::size_t>::max();
constinit std::atomic<std::int64_t> liveBlockCount = 0;
constinit std::atomic<std::int64_t> liveByteSize = 0;

void callHook() {
    if (hook != nullptr) {
        (*hook)();
    }
}

void* tryAllocate(std::size_t byteSize, std::size_t alignment = 0) noexcept {
    callHook();
    largestRequest = std::max(largestRequest, byteSize);
    if (allocationPlan.failsNow() || byteSize > requestLimit) {
        return nullptr;
    }
    void* memory = nullptr;
    if (alignment == 0) {
        memory = std::malloc(std::max<std::size_t>(byteSize, 1));
    } else if (posix_memalign(&memory, std::max(alignment, sizeof(void*)), byteSize) != 0) {
        return nullptr;
    }
    if (memory != nullptr) {
        liveBlockCount.fetch_add(1, std::memory_order_relaxed);
        liveByteSize.fetch_add(static_cast<std::int64_t>(malloc_usable_size(memory)), std::memory_order_relaxed);
    }
    return memory;
}

void* allocate(std::size_t byteSize, std::size_t alignment = 0) {
    if (void* const memory = tryAllocate(byteSize, alignment)) {
        return memory;
    }
    throw std::bad_alloc();
}

void giveBack(void* memory) noexcept {
    callHook();
    if (memory != nullptr) {
        liveBlockCount.fetch_sub(1, std::memory_order_relaxed);
        liveByteSize.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(memory)), std::memory_order_relaxed);
        std::free(memory);
    }
}

constexpr std::size_t bytes(std::align_val_t alignment) noexcept {
    return static_cast<std::size_t>(alignment);
}

}  // namespace

LiveMemory liveMemory() noexcept {
    return {liveBlockCount.load(std::memory_order_relaxed), liveByteSize.load(std::memory_order_relaxed)};
}

MemoryHook& memoryHook() noexcept {
    return hook;
}

std::size_t& RequestSize::largest() noexcept {
    return largestRequest;
}

std::size_t& RequestSize::limit() noexcept {
    return requestLimit;
}

FailurePlan& AllocationFailure::plan() noexcept {
    return allocationPlan;
}

bool AllocationFailure::explains(std::exception const& error) noexcept {
    return dynamic_cast<std::bad_alloc const*>(&error) != nullptr ||
           dynamic_cast<Exceptions::MemoryException const*>(&error) != nullptr;
}

}  // namespace Quorvel::Dravik::Adt::Testing

namespace Hook = Quorvel::Dravik::Adt::Testing;

// Every form is replaced: one that is left to the runtime would give out memory that the others do not know.
void* operator new(std::size_t size) {
    return Hook::allocate(size);
}
void* operator new[](std::size_t size) {
    return Hook::allocate(size);
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return Hook::tryAllocate(size);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return Hook::tryAllocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return Hook::allocate(size, Hook::bytes(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return Hook::allocate(size, Hook::bytes(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, std::nothrow_t const&) noexcept {
    return Hook::tryAllocate(size, Hook::bytes(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, std::nothrow_t const&) noexcept {
    return Hook::tryAllocate(size, Hook::bytes(alignment));
}
void operator delete(void* memory) noexcept {
    Hook::giveBack(memory);
}
void operator delete[](void* memory) noexcept {
    Hook::giveBack(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Hook::giveBack(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    Hook::giveBack(memory);
}
void operator delete(void* memory, std::nothrow_t const&) noexcept {
    Hook::giveBack(memory);
}
void operator delete[](void* memory, std::nothrow_t const&) noexcept {
    Hook::giveBack(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    Hook::giveBack(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    Hook::giveBack(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    Hook::giveBack(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    Hook::giveBack(memory);
}
void operator delete(void* memory, std::align_val_t, std::nothrow_t const&) noexcept {
    Hook::giveBack(memory);
}
void operator delete[](void* memory, std::align_val_t, std::nothrow_t const&) noexcept {
    Hook::giveBack(memory);
}
