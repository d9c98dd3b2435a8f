// SPDX-License-Identifier: Apache-2.0
#pragma once

// FaultSignals: our handler in front of the host's own, for the signals that report faults, while anybody needs it.

#include <array>
#include <csignal>

namespace Quorvel::Dravik::Adt::Platform {

/// The signals by which the kernel reports what an instruction did.
inline constexpr std::array kFaultSignals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};

/// While one object lives, `handler` of the first of them receives the fault signals of the process. The last one gives
/// the dispositions back, except where somebody else has put a handler over ours: that one stays.
/// @threads any number at once; not inside a signal handler
class FaultSignals {
  public:
    using Handler = void (*)(int signal, siginfo_t* info, void* context);

    explicit FaultSignals(Handler handler) noexcept;
    FaultSignals(FaultSignals const&) = delete;
    FaultSignals& operator=(FaultSignals const&) = delete;
    ~FaultSignals();
};

/// For a handler that does not want its signal: does what would have happened without it, with the mask and in the
/// style of the handler it replaced. Arguments as the handler got them. Safe inside a handler.
void passSignalOn(int signal, siginfo_t* info, void* context);

}  // namespace Quorvel::Dravik::Adt::Platform
