// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/alternate_stack.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <utility>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

std::size_t pageByteSize() noexcept {
    static auto const size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

/// Enough for the saved registers of this processor and for a host's own handler behind ours.
std::size_t stackByteSize() noexcept {
    static auto const size = (64 << 10) + static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ));
    return size;
}

/// Whether a handler can run on `stack`, again and again: one that disarms itself would stay so after a jump out of it.
bool isLargeEnough(stack_t const& stack) noexcept {
    constexpr unsigned kSelfDisarming = 1u << 31;  // SS_AUTODISARM, which some C libraries do not name
    bool const lasting = (static_cast<unsigned>(stack.ss_flags) & (SS_DISABLE | kSelfDisarming)) == 0;
    return lasting && stack.ss_size >= stackByteSize();
}

/// A guard page with a stack above it; null without memory.
void* mapStack() noexcept {
    std::size_t const byteSize = pageByteSize() + stackByteSize();
    void* const mapping =
        mmap(nullptr, byteSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED) {
        return nullptr;
    }
    if (mprotect(mapping, pageByteSize(), PROT_NONE) != 0) {
        munmap(mapping, byteSize);
        return nullptr;
    }
    return mapping;
}

void unmapStack(void* mapping) noexcept {
    if (mapping != nullptr) {
        munmap(mapping, pageByteSize() + stackByteSize());
    }
}

/// The memory that a thread keeps. It outlives its owner: a guarded call may come even later in the thread's end.
struct Spare {
    void* mapping = nullptr;
    bool isKept = true;
};
constinit thread_local Spare spare;

/// Gives the memory back at the end of the thread.
struct SpareOwner {
    ~SpareOwner() { unmapStack(std::exchange(spare, {nullptr, /*isKept=*/false}).mapping); }
};

void* takeStack() noexcept {
    static thread_local SpareOwner const owner;
    void* const kept = std::exchange(spare.mapping, nullptr);
    return kept != nullptr ? kept : mapStack();
}

void returnStack(void* mapping) noexcept {
    unmapStack(spare.isKept ? std::exchange(spare.mapping, mapping) : mapping);
}

}  // namespace

AlternateStack::AlternateStack() noexcept {
    if (sigaltstack(nullptr, &earlier_) != 0 || isLargeEnough(earlier_)) {
        return;
    }
    mapping_ = takeStack();
    if (mapping_ == nullptr) {
        return;
    }
    stack_t ours = {};
    ours.ss_sp = static_cast<std::byte*>(mapping_) + pageByteSize();
    ours.ss_size = stackByteSize();
    if (sigaltstack(&ours, nullptr) != 0) {  // we are in a handler that runs on the one it would replace
        returnStack(std::exchange(mapping_, nullptr));
    }
}

AlternateStack::~AlternateStack() {
    if (mapping_ == nullptr) {
        return;
    }
    stack_t current = {};
    sigaltstack(&earlier_, &current);
    if (current.ss_sp != static_cast<std::byte*>(mapping_) + pageByteSize()) {
        sigaltstack(&current, nullptr);  // somebody installed another one meanwhile and wants to keep it
    }
    returnStack(mapping_);
}

}  // namespace Quorvel::Dravik::Adt::Platform
