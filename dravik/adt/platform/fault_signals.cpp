// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/fault_signals.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <utility>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

using Action = struct sigaction;
using Handler = FaultSignals::Handler;

constinit Action const kDefaultAction = {};
static_assert(SIG_DFL == nullptr);

/// Each handler that the host puts over ours needs a layer of ours above it.
constexpr int kLayers = 8;

bool hasFlag(Action const& action, unsigned flag) noexcept {
    return (static_cast<unsigned>(action.sa_flags) & flag) != 0;
}

Action currentAction(int signal) noexcept {
    Action action;
    sigaction(signal, nullptr, &action);
    return action;
}

/// A disposition that handlers read while another thread may write it. A reader that meets a writer may see the handler
/// of one and the mask of the other, which costs nobody more than a blocked signal.
class SharedAction {
  public:
    void store(Action const& action) noexcept {
        std::uint64_t mask = 0;  // the kernel knows no more signals than these
        std::memcpy(&mask, &action.sa_mask, sizeof mask);
        mask_.store(mask, std::memory_order_relaxed);
        flags_.store(action.sa_flags, std::memory_order_relaxed);
        handler_.store(action.sa_sigaction, std::memory_order_relaxed);
    }

    Action load() const noexcept { return with(handler_); }

    /// For the delivery of a signal: a handler for one time is used up.
    Action take() noexcept {
        return with(hasFlag(load(), SA_RESETHAND) ? handler_.exchange(nullptr) : handler_.load());
    }

  private:
    Action with(Handler handler) const noexcept {
        Action action;
        sigemptyset(&action.sa_mask);
        action.sa_sigaction = handler;
        action.sa_flags = flags_;
        std::uint64_t const mask = mask_;
        std::memcpy(&action.sa_mask, &mask, sizeof mask);
        return action;
    }

    std::atomic<Handler> handler_ = nullptr;
    std::atomic<int> flags_ = 0;
    std::atomic<std::uint64_t> mask_ = 0;
};

/// Whether the instruction runs again when the handler returns, and the kernel lets nobody ignore what it did.
bool comesBack(int signal, siginfo_t const* info) noexcept {
    return info != nullptr && info->si_code > 0 && !(signal == SIGBUS && info->si_code == BUS_MCEERR_AO);
}

void performDefault(int signal, siginfo_t* info) noexcept {
    sigaction(signal, &kDefaultAction, nullptr);
    if (comesBack(signal, info)) {
        return;
    }
    if (info == nullptr || syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) != 0) {
        raise(signal);
    }
}

/// What the kernel would do with the signal under `action`.
void perform(Action const& action, int signal, siginfo_t* info, void* context) {
    if (action.sa_handler == SIG_IGN && !comesBack(signal, info)) {
        return;
    }
    if (action.sa_handler == SIG_IGN || action.sa_handler == SIG_DFL) {
        performDefault(signal, info);
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

constinit std::atomic<Handler> ourHandler = nullptr;

void passOn(int layer, int signal, siginfo_t* info, void* context);

/// Our handler as the kernel and the host know it. One function per layer: whoever calls it tells where the signal is.
template <int layer>
void enter(int signal, siginfo_t* info, void* context) {
    ourHandler.load()(signal, info, context);
    passOn(layer, signal, info, context);
}

template <int... layers>
constexpr std::array<Handler, kLayers> entriesOf(std::integer_sequence<int, layers...>) {
    return {&enter<layers>...};
}
constexpr std::array<Handler, kLayers> kEntries = entriesOf(std::make_integer_sequence<int, kLayers>());

/// The layer whose handler `action` is; kLayers when it is somebody else's.
int layerOf(Action const& action) noexcept {
    return static_cast<int>(std::find(kEntries.begin(), kEntries.end(), action.sa_sigaction) - kEntries.begin());
}

/// The dispositions of one signal. Layer n of our handler lies over a handler of the host; that one may remember layer
/// n - 1, which it has replaced, and call it long after our guards have ended. So a layer stays as it is until nobody's
/// handler lies over it.
class Disposition {
  public:
    /// Puts ours on top.
    void install(int signal) noexcept {
        Action const found = currentAction(signal);
        int layer = layerOf(found);
        if (layer == kLayers) {
            layer = std::min(free_, kLayers - 1);  // of too many, the one below the uppermost is passed over
            below(layer).store(found);
            Action replaced;
            Action const ours = entry(layer, found);
            sigaction(signal, &ours, &replaced);
            if (replaced.sa_sigaction != found.sa_sigaction) {
                below(layer).store(replaced);  // installed since the look
            }
        }
        free_ = layer + 1;
    }

    /// Takes ours away, unless somebody else's lies over it.
    void giveBack(int signal) noexcept {
        int const layer = layerOf(currentAction(signal));
        if (layer == kLayers) {
            return;
        }
        Action given = below(layer).load();
        Action replaced;
        sigaction(signal, &given, &replaced);
        if (layerOf(replaced) == layer) {
            free_ = layer;
        }
        // What was installed since the look goes back, and so does what was installed since then.
        for (Handler expected = kEntries[static_cast<std::size_t>(layer)]; replaced.sa_sigaction != expected;) {
            expected = given.sa_sigaction;
            given = replaced;
            sigaction(signal, &given, &replaced);
        }
    }

    SharedAction& below(int layer) noexcept { return below_[static_cast<std::size_t>(layer)]; }

  private:
    static Action entry(int layer, Action const& over) noexcept {
        Action ours;
        sigemptyset(&ours.sa_mask);
        ours.sa_sigaction = kEntries[static_cast<std::size_t>(layer)];
        ours.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
        // System calls are interrupted for those who wanted that, and for nobody else.
        ours.sa_flags |= over.sa_handler == SIG_IGN ? SA_RESTART : over.sa_flags & SA_RESTART;
        return ours;
    }

    std::array<SharedAction, kLayers> below_;
    int free_ = 0;  ///< the lowest layer that nobody's handler lies over
};

struct Installations {
    std::mutex lock;
    int count = 0;
    std::array<Disposition, kFaultSignals.size()> dispositions;

    void install() noexcept {
        for (std::size_t i = 0; i < dispositions.size(); ++i) {
            dispositions[i].install(kFaultSignals[i]);
        }
    }
    void giveBack() noexcept {
        for (std::size_t i = 0; i < dispositions.size(); ++i) {
            dispositions[i].giveBack(kFaultSignals[i]);
        }
    }
};
constinit Installations installations;

/// Those of this thread.
[[gnu::tls_model("initial-exec")]] constinit thread_local int ownCount = 0;

/// Hands a signal that is not for us to what lies below the layer. Handlers that call each other in a circle come to an
/// end: each time a signal comes back, it goes one layer down at least. How far it has come stands in its own context,
/// in the link that the kernel clears and nobody reads, so that it ends with the signal however that is left.
void passOn(int layer, int signal, siginfo_t* info, void* context) {
    static constinit std::array<char, kLayers> marks = {};
    auto const lowest = reinterpret_cast<std::uintptr_t>(marks.data());
    ucontext_t* none = nullptr;
    ucontext_t*& link = context != nullptr ? static_cast<ucontext_t*>(context)->uc_link : none;
    ucontext_t* const outer = link;
    std::uintptr_t const reached = reinterpret_cast<std::uintptr_t>(outer) - lowest;
    int const next = reached < kLayers ? std::min(layer, static_cast<int>(reached) - 1) : layer;
    if (next < 0) {
        performDefault(signal, info);
        return;
    }
    link = reinterpret_cast<ucontext_t*>(lowest + static_cast<std::uintptr_t>(next));
    auto const which = std::find(kFaultSignals.begin(), kFaultSignals.end(), signal) - kFaultSignals.begin();
    perform(installations.dispositions[static_cast<std::size_t>(which)].below(next).take(), signal, info, context);
    link = outer;
}

/// No other thread is inside while the process is copied, and in the copy there is no other thread.
int const kForkHandlers = pthread_atfork(
    [] { installations.lock.lock(); }, [] { installations.lock.unlock(); },
    [] {
        if (std::exchange(installations.count, ownCount) > 0 && ownCount == 0) {
            installations.giveBack();
        }
        installations.lock.unlock();
    });

}  // namespace

FaultSignals::FaultSignals(Handler handler) noexcept {
    std::lock_guard const guard(installations.lock);
    ourHandler.store(handler, std::memory_order_relaxed);
    installations.install();
    ++installations.count;
    ++ownCount;
}

FaultSignals::~FaultSignals() {
    std::lock_guard const guard(installations.lock);
    --ownCount;
    if (--installations.count == 0) {
        installations.giveBack();
    }
}

}  // namespace Quorvel::Dravik::Adt::Platform
