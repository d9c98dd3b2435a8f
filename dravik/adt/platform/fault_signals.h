// SPDX-License-Identifier: Apache-2.0
#pragma once

// FaultSignals: our handler over the host's own, for the signals that report faults, while anybody needs it.

#include <array>
#include <csignal>

namespace Quorvel::Dravik::Adt::Platform {

/// The signals by which the kernel reports what an instruction did.
inline constexpr std::array kFaultSignals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};

/// While one object lives, `handler` receives the fault signals of the process. Each new object puts ours back on top
/// of handlers that the host has installed meanwhile; until then the host's come first.
///
/// A signal from which `handler` returns goes to the host's handler that ours replaced, as the kernel would have
/// delivered it: with its own context, mask and style. The last object gives the dispositions back. A handler that the
/// host has put over ours stays, and ours stays below it for as long as the process runs, since the host's may call it.
/// In a forked child only the object of the forking thread counts.
/// @threads any number at once
class FaultSignals {
  public:
    using Handler = void (*)(int signal, siginfo_t* info, void* context);

    /// @pre the same `handler` for all objects
    explicit FaultSignals(Handler handler) noexcept;
    FaultSignals(FaultSignals const&) = delete;
    FaultSignals& operator=(FaultSignals const&) = delete;
    ~FaultSignals();
};

}  // namespace Quorvel::Dravik::Adt::Platform
