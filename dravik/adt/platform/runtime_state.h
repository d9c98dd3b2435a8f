// SPDX-License-Identifier: Apache-2.0
#pragma once

// RuntimeState: what a jump out of a signal handler would lose of a thread's C++ runtime and floating-point control.

namespace Quorvel::Dravik::Adt::Platform {

/// The exceptions being handled and in flight, the rounding mode and the unmasked floating-point faults of a thread.
///
/// The kernel runs a handler with floating-point defaults, and a jump skips the ends of the catch blocks between:
/// without this, the host would round differently afterwards and std::current_exception() would stay set.
/// @threads saved and restored on the same thread
class RuntimeState {
  public:
    /// The state of the calling thread.
    static RuntimeState Current() noexcept;

    /// Brings the thread back to it. Exceptions that came after it are dropped, not destroyed.
    void restore() const noexcept;

  private:
    RuntimeState() noexcept = default;

    void* caught_ = nullptr;
    unsigned int uncaughtCount_ = 0;
    int handlerCount_ = 0;
    unsigned int mxcsr_ = 0;
    unsigned short x87Control_ = 0;
};

}  // namespace Quorvel::Dravik::Adt::Platform
