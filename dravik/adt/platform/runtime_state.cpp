// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/runtime_state.h"

#include <cstdint>
#include <cstring>
#include <cxxabi.h>
#include <unwind.h>
#include <xmmintrin.h>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

/// The layout of the C++ ABI for the exceptions of a thread ...
struct ThreadExceptions {
    void* caught;
    unsigned int uncaughtCount;
};

/// ... and for one of them, up to the parts needed here.
struct CaughtException {
    void* typeAndHandlers[4];
    CaughtException* next;
    int handlerCount;
    void* search[4];
    _Unwind_Exception unwinding;
};

ThreadExceptions& threadExceptions() noexcept {
    return *reinterpret_cast<ThreadExceptions*>(abi::__cxa_get_globals());
}

/// The count of catch blocks that handle the exception; null for one of another language, which has none.
int* handlerCountOf(void* caught) noexcept {
    auto* const exception = static_cast<CaughtException*>(caught);
    // The last byte tells a thrown object from a rethrown std::exception_ptr.
    constexpr std::uint64_t kOurLanguage = 0x474E5543432B2B00;  // "GNUCC++"
    bool const ours =
        exception != nullptr && (exception->unwinding.exception_class & ~std::uint64_t{0xFF}) == kOurLanguage;
    return ours ? &exception->handlerCount : nullptr;
}

}  // namespace

RuntimeState RuntimeState::Current() noexcept {
    RuntimeState state;
    ThreadExceptions const& exceptions = threadExceptions();
    state.caught_ = exceptions.caught;
    state.uncaughtCount_ = exceptions.uncaughtCount;
    if (int const* const count = handlerCountOf(state.caught_)) {
        state.handlerCount_ = *count;
    }
    state.mxcsr_ = _mm_getcsr();
    asm volatile("fnstcw %0" : "=m"(state.x87Control_));
    return state;
}

void RuntimeState::restore() const noexcept {
    ThreadExceptions& exceptions = threadExceptions();
    exceptions.caught = caught_;
    exceptions.uncaughtCount = uncaughtCount_;
    if (int* const count = handlerCountOf(caught_)) {
        *count = handlerCount_;  // the guarded code may have rethrown it and been inside another catch block
    }
    _mm_setcsr(mxcsr_);
    asm volatile("fldcw %0" : : "m"(x87Control_));
}

}  // namespace Quorvel::Dravik::Adt::Platform
