// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/alternate_stack.h"

#include <sys/mman.h>
#include <unistd.h>

#include <utility>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

// Read each time, since a static that is being made while the process forks would never be made in the child.

/// What the kernel saves of this processor, and our handler.
std::size_t leastByteSize() noexcept {
    return (64 << 10) + static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ));
}

/// The same with room for the host's handlers, which without us might run on the thread's own stack. Whole pages; those
/// that nobody touches cost nothing.
std::size_t stackByteSize() noexcept {
    auto const pageByteSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    std::size_t const byteSize = (192 << 10) + leastByteSize();
    return (byteSize + pageByteSize - 1) / pageByteSize * pageByteSize;
}

/// Whether a handler can run on `stack`, again and again: one that disarms itself would stay so after a jump out of it.
bool isLargeEnough(stack_t const& stack) noexcept {
    constexpr unsigned kSelfDisarming = 1u << 31;  // SS_AUTODISARM, which some C libraries do not name
    bool const lasting = (static_cast<unsigned>(stack.ss_flags) & (SS_DISABLE | kSelfDisarming)) == 0;
    return lasting && stack.ss_size >= leastByteSize();
}

/// Guard pages with a stack above them; null without memory.
void* mapStack() noexcept {
    std::size_t const byteSize = kAlternateStackGuard + stackByteSize();
    void* const mapping =
        mmap(nullptr, byteSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED) {
        return nullptr;
    }
    if (mprotect(mapping, kAlternateStackGuard, PROT_NONE) != 0) {
        munmap(mapping, byteSize);
        return nullptr;
    }
    return mapping;
}

void unmapStack(void* mapping) noexcept {
    if (mapping != nullptr) {
        munmap(mapping, kAlternateStackGuard + stackByteSize());
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

/// The thread's own, kept or new; null without memory, or with an `earlier` one that is large enough.
void* takeStack(stack_t& earlier) noexcept {
    static thread_local SpareOwner const owner;
    void* const kept = std::exchange(spare.mapping, nullptr);
    if (kept != nullptr) {
        return kept;
    }
    return sigaltstack(nullptr, &earlier) != 0 || isLargeEnough(earlier) ? nullptr : mapStack();
}

void returnStack(void* mapping) noexcept {
    unmapStack(spare.isKept ? std::exchange(spare.mapping, mapping) : mapping);
}

}  // namespace

AlternateStack::AlternateStack() noexcept : mapping_(takeStack(earlier_)) {
    if (mapping_ == nullptr) {
        return;
    }
    stack_t ours = {};
    ours.ss_sp = static_cast<std::byte*>(mapping_) + kAlternateStackGuard;
    ours.ss_size = stackByteSize();
    if (sigaltstack(&ours, &earlier_) != 0) {  // we are in a handler that runs on the one it would replace
        returnStack(std::exchange(mapping_, nullptr));
    } else if (isLargeEnough(earlier_)) {
        sigaltstack(&earlier_, nullptr);
        returnStack(std::exchange(mapping_, nullptr));
    }
}

AlternateStack::~AlternateStack() {
    if (mapping_ == nullptr) {
        return;
    }
    stack_t current = {};
    sigaltstack(&earlier_, &current);
    if (current.ss_sp != static_cast<std::byte*>(mapping_) + kAlternateStackGuard) {
        sigaltstack(&current, nullptr);  // somebody installed another one meanwhile and wants to keep it
    }
    returnStack(mapping_);
}

}  // namespace Quorvel::Dravik::Adt::Platform
