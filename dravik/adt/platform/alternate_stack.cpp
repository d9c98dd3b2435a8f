#include "dravik/adt/platform/alternate_stack.h"

#include <sys/mman.h>
#include <unistd.h>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

std::size_t pageByteSize() noexcept {
    static auto const size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

/// Enough for the saved registers of this processor and for a host's own handler behind ours, in whole pages.
std::size_t stackByteSize() noexcept {
    static std::size_t const size = [] {
        std::size_t const wanted = (64 << 10) + static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ));
        return (wanted + pageByteSize() - 1) / pageByteSize() * pageByteSize();
    }();
    return size;
}

/// The one we run on cannot be exchanged. One that disarms itself would stay so after a jump out of a handler.
bool mustStay(stack_t const& stack) noexcept {
    constexpr unsigned kSelfDisarming = 1u << 31;  // SS_AUTODISARM, which some C libraries do not name
    bool const lasting = (static_cast<unsigned>(stack.ss_flags) & (SS_DISABLE | kSelfDisarming)) == 0;
    return (stack.ss_flags & SS_ONSTACK) != 0 || (lasting && stack.ss_size >= stackByteSize());
}

}  // namespace

AlternateStack::AlternateStack() noexcept {
    if (sigaltstack(nullptr, &earlier_) != 0 || mustStay(earlier_)) {
        return;
    }
    std::size_t const byteSize = pageByteSize() + stackByteSize();
    void* const mapping =
        mmap(nullptr, byteSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED) {
        return;
    }
    stack_t ours = {};
    ours.ss_sp = static_cast<std::byte*>(mapping) + pageByteSize();
    ours.ss_size = stackByteSize();
    if (mprotect(mapping, pageByteSize(), PROT_NONE) != 0 || sigaltstack(&ours, nullptr) != 0) {
        munmap(mapping, byteSize);
        return;
    }
    mapping_ = mapping;
    mappingByteSize_ = byteSize;
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
    munmap(mapping_, mappingByteSize_);
}

}  // namespace Quorvel::Dravik::Adt::Platform
