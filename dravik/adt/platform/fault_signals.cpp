// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/fault_signals.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

using Action = struct sigaction;

constinit Action const kDefaultAction = {};
static_assert(SIG_DFL == nullptr);

/// Whether two dispositions are the same to the kernel, which knows the first 64 signals of a mask and no more.
bool isSame(Action const& left, Action const& right) noexcept {
    return left.sa_sigaction == right.sa_sigaction && left.sa_flags == right.sa_flags &&
           std::memcmp(&left.sa_mask, &right.sa_mask, 8) == 0;
}

bool hasFlag(Action const& action, unsigned flag) noexcept {
    return (static_cast<unsigned>(action.sa_flags) & flag) != 0;
}

Action currentAction(int signal) noexcept {
    Action action = {};
    sigaction(signal, nullptr, &action);
    return action;
}

/// Whether the instruction runs again when the handler returns, and the kernel lets nobody ignore what it did.
bool comesBack(int signal, siginfo_t const* info) noexcept {
    return info != nullptr && info->si_code > 0 && !(signal == SIGBUS && info->si_code == BUS_MCEERR_AO);
}

/// Makes the signal arrive once more, as it was, under the disposition that stands then.
void deliverAgain(int signal, siginfo_t* info) noexcept {
    bool const queued = info != nullptr && syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) == 0;
    if (!comesBack(signal, info) && !queued) {
        raise(signal);
    }
}

/// One fault signal: what the host wanted to happen, and where our handler stands.
///
/// Somebody who installs a handler while ours is current remembers ours as the one below and may call it for ever. So
/// what ours had replaced by then is kept as a layer, and the next installation begins a layer above. A signal starts
/// at the top; each time it comes back to us from a handler that we have called, it goes one layer down.
class Disposition {
  public:
    void install(int signal, FaultSignals::Handler handler) noexcept;
    void giveBack(int signal) noexcept;

    int top() const noexcept { return top_; }

    /// Does what the layer says; below the lowest one, what the kernel does by default.
    void perform(int layer, int signal, siginfo_t* info, void* context);

    /// For a signal that found our handler in place but no layer to go to.
    void performWithoutLayer(int signal, siginfo_t* info, void* context);

  private:
    static constexpr int kLayers = 4;

    bool isOurs(Action const& action) const noexcept { return action.sa_sigaction == handler_; }
    void replaceLayer(Action const& action) noexcept;
    Action const* takeLayer(int layer) noexcept;

    FaultSignals::Handler handler_ = nullptr;
    /// What the layers point to. A handler may be reading one on another thread, so none changes while a layer points
    /// to it, and those that are free take turns.
    std::array<Action, 4 * kLayers> copies_ = {};
    std::size_t lastCopy_ = 0;
    std::array<std::atomic<Action const*>, kLayers> layers_ = {};
    std::atomic<int> top_ = -1;  ///< where a signal starts; -1 while nobody should call us
    int buried_ = 0;             ///< layers below handlers that somebody else put over ours
};

void Disposition::install(int signal, FaultSignals::Handler handler) noexcept {
    handler_ = handler;
    Action replaced = currentAction(signal);
    if (isOurs(replaced)) {  // whoever was above us has left and put us back
        buried_ -= buried_ > 0 ? 1 : 0;
        top_ = buried_;
        return;
    }
    replaceLayer(replaced);
    top_ = buried_;
    Action ours = {};
    ours.sa_sigaction = handler;
    ours.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    // System calls are interrupted for those who wanted that, and for nobody else.
    ours.sa_flags |= replaced.sa_handler == SIG_IGN ? SA_RESTART : replaced.sa_flags & SA_RESTART;
    sigaction(signal, &ours, &replaced);
    replaceLayer(replaced);
}

void Disposition::giveBack(int signal) noexcept {
    if (isOurs(currentAction(signal))) {
        sigaction(signal, layers_[static_cast<std::size_t>(buried_)], nullptr);
    } else if (++buried_ == kLayers) {
        // The oldest handler over ours is passed over from now on; what lies below all of them stays.
        for (std::size_t layer = 2; layer < kLayers; ++layer) {
            layers_[layer - 1] = layers_[layer].load();
        }
        --buried_;
    }
    top_ = buried_ - 1;
}

void Disposition::replaceLayer(Action const& action) noexcept {
    auto& layer = layers_[static_cast<std::size_t>(buried_)];
    if (layer != nullptr && isSame(*layer, action)) {
        return;
    }
    auto const isUsed = [this](Action const* copy) { return std::count(layers_.begin(), layers_.end(), copy) != 0; };
    do {
        lastCopy_ = (lastCopy_ + 1) % copies_.size();
    } while (isUsed(&copies_[lastCopy_]));
    copies_[lastCopy_] = action;
    layer = &copies_[lastCopy_];
}

Action const* Disposition::takeLayer(int layer) noexcept {
    auto& place = layers_[static_cast<std::size_t>(layer)];
    Action const* action = place;
    while (hasFlag(*action, SA_RESETHAND) && !place.compare_exchange_weak(action, &kDefaultAction)) {
    }
    return action;
}

void Disposition::perform(int layer, int signal, siginfo_t* info, void* context) {
    Action const& action = layer < 0 ? kDefaultAction : *takeLayer(layer);
    if (action.sa_handler == SIG_IGN && !comesBack(signal, info)) {
        return;
    }
    if (action.sa_handler == SIG_IGN || action.sa_handler == SIG_DFL) {
        sigaction(signal, &kDefaultAction, nullptr);
        deliverAgain(signal, info);
        return;
    }
    sigset_t blocked = action.sa_mask;
    if (!hasFlag(action, SA_NODEFER)) {
        sigaddset(&blocked, signal);
    }
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    if (hasFlag(action, SA_SIGINFO)) {
        action.sa_sigaction(signal, info, context);
    } else {
        action.sa_handler(signal);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Disposition::performWithoutLayer(int signal, siginfo_t* info, void* context) {
    if (!isOurs(currentAction(signal))) {
        deliverAgain(signal, info);  // the last one has just left: the host's own disposition stands again
    } else {
        perform(0, signal, info, context);  // somebody kept a copy of our handler and has put it back
    }
}

struct Installations {
    std::mutex lock;
    int count = 0;
    std::array<Disposition, kFaultSignals.size()> dispositions;
};
constinit Installations installations;

Disposition& dispositionOf(int signal) noexcept {
    std::size_t i = 0;
    while (kFaultSignals[i] != signal) {
        ++i;
    }
    return installations.dispositions[i];
}

/// The signal that this thread is passing on. A handler may leave by a jump and nobody clears it then, so a signal
/// counts as the same one only when its context is the same and we are called from deeper down.
struct Passing {
    void const* context = nullptr;
    std::uintptr_t frame = 0;
    int layer = 0;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local Passing passing;

}  // namespace

FaultSignals::FaultSignals(Handler handler) noexcept {
    std::lock_guard const guard(installations.lock);
    if (installations.count++ == 0) {
        for (int const signal : kFaultSignals) {
            dispositionOf(signal).install(signal, handler);
        }
    }
}

FaultSignals::~FaultSignals() {
    std::lock_guard const guard(installations.lock);
    if (--installations.count == 0) {
        for (int const signal : kFaultSignals) {
            dispositionOf(signal).giveBack(signal);
        }
    }
}

void passSignalOn(int signal, siginfo_t* info, void* context) {
    Disposition& disposition = dispositionOf(signal);
    auto const frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    Passing const outer = passing;
    bool const cameBack = context == outer.context && frame < outer.frame;
    int const top = disposition.top();
    passing = {context, frame, cameBack ? outer.layer - 1 : top};
    if (!cameBack && top < 0) {
        disposition.performWithoutLayer(signal, info, context);
    } else {
        disposition.perform(passing.layer, signal, info, context);
    }
    passing = outer;
}

}  // namespace Quorvel::Dravik::Adt::Platform
