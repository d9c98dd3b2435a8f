// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/fault_guard.h"

#include "dravik/adt/platform/alternate_stack.h"
#include "dravik/adt/platform/fault_decoder.h"
#include "dravik/adt/platform/fault_signals.h"
#include "dravik/adt/platform/runtime_state.h"

#include <csetjmp>
#include <csignal>

#include <atomic>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

class Guard;

/// The innermost guard of the thread. The handler reads it, so it lies where a read needs no call and no allocation,
/// and no store to it may be moved across the guarded code.
[[gnu::tls_model("initial-exec")]] constinit thread_local Guard* volatile innermost = nullptr;

void onFaultSignal(int signal, siginfo_t* info, void* context);

/// The fault signals unblocked. What was blocked is blocked again at the end; other signals stay as the body left them.
class UnblockedSignals {
  public:
    UnblockedSignals() noexcept {
        sigset_t faults;
        sigemptyset(&faults);
        for (int const signal : kFaultSignals) {
            sigaddset(&faults, signal);
        }
        pthread_sigmask(SIG_UNBLOCK, &faults, &entry_);
    }
    UnblockedSignals(UnblockedSignals const&) = delete;
    UnblockedSignals& operator=(UnblockedSignals const&) = delete;
    ~UnblockedSignals() {
        sigset_t blocked;
        sigemptyset(&blocked);
        bool any = false;
        for (int const signal : kFaultSignals) {
            if (sigismember(&entry_, signal) == 1) {
                sigaddset(&blocked, signal);
                any = true;
            }
        }
        if (any) {
            pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
        }
    }

    /// The whole mask of the entry again, but for the fault signals.
    void restore() const noexcept {
        sigset_t mask = entry_;
        for (int const signal : kFaultSignals) {
            sigdelset(&mask, signal);
        }
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    }

  private:
    sigset_t entry_;
};

/// What the first guard of a thread sets up for those inside it.
struct Outermost {
    AlternateStack stack;
    FaultSignals signals{&onFaultSignal};
};

/// One guarded call, in the frame of runGuarded.
class Guard {
  public:
    explicit Guard(void const* stackTop) noexcept : stackTop_(reinterpret_cast<std::uintptr_t>(stackTop)) {
        if (outer_ == nullptr) {
            outermost_.emplace();
        }
    }
    Guard(Guard const&) = delete;
    Guard& operator=(Guard const&) = delete;
    ~Guard() { innermost = outer_; }

    sigjmp_buf& landing() noexcept { return landing_; }

    /// From here on, faults of the thread are ours.
    void arm() noexcept {
        innermost = this;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }

    /// In the handler: keeps the fault and leaves.
    [[noreturn]] void jump(int signal, siginfo_t const& info, void const* context) noexcept {
        fault_ = decodeFault(signal, info, context, stackTop_);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        siglongjmp(landing_, 1);
    }

    /// After the jump, on the guard's own stack.
    Fault land() noexcept {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        innermost = outer_;
        state_.restore();
        signals_.restore();
        return fault_;
    }

  private:
    Guard* const outer_ = innermost;
    std::optional<Outermost> outermost_;
    UnblockedSignals const signals_;
    RuntimeState const state_ = RuntimeState::Current();
    std::uintptr_t const stackTop_;
    sigjmp_buf landing_;
    Fault fault_ = {};
};

void onFaultSignal(int signal, siginfo_t* info, void* context) {
    Guard* const guard = innermost;
    if (guard != nullptr && info != nullptr && isGuardedFault(signal, *info, context)) {
        guard->jump(signal, *info, context);
    }
}

/// A call that no optimiser looks into: it would move what cannot fault in the language's eyes across it.
void callOpaquely(void (*body)(void*), void* argument) {
    void (*const volatile opaque)(void*) = body;
    opaque(argument);
}

}  // namespace

std::optional<Fault> runGuarded(void (*body)(void*), void* argument) {
    Guard guard(__builtin_frame_address(0));
    if (sigsetjmp(guard.landing(), /*savemask=*/0) != 0) {
        return guard.land();
    }
    guard.arm();
    callOpaquely(body, argument);
    return std::nullopt;
}

}  // namespace Quorvel::Dravik::Adt::Platform
