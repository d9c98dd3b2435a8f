// SPDX-License-Identifier: Apache-2.0
#pragma once

// AlternateStack: room for signal handlers on a thread whose own stack may be exhausted.

#include <csignal>

#include <cstddef>

namespace Quorvel::Dravik::Adt::Platform {

/// Bytes below an alternate stack of ours that nobody can access.
inline constexpr std::size_t kAlternateStackGuard = 64 << 10;

/// Gives the calling thread an alternate signal stack for the lifetime of this object, unless it has one that is large
/// enough, and puts the earlier one back. It has room for a host's own handlers, too: 256 KiB. Without memory for it
/// the thread goes on without: only the overflow of its own stack then ends the process as before. The memory is kept
/// for the thread's next one and goes with the thread, since mapping it costs more than everything else in a guarded
/// call.
/// @threads made and destroyed on the same thread
class AlternateStack {
  public:
    AlternateStack() noexcept;
    AlternateStack(AlternateStack const&) = delete;
    AlternateStack& operator=(AlternateStack const&) = delete;
    ~AlternateStack();

  private:
    stack_t earlier_ = {};
    void* mapping_;  ///< guard pages and stack; null where the thread kept its own
};

}  // namespace Quorvel::Dravik::Adt::Platform
