// SPDX-License-Identifier: Apache-2.0
#pragma once

// The command line: from words to what is to be done. Threads: one.

#include "dravik/command/session.h"

#include <functional>
#include <optional>

namespace Quorvel::Dravik::Command {

struct Work {
    Resources resources;
    /// Returns the exit status.
    std::function<int(Session& session)> run;
    int failed = 1;  ///< the exit status where it throws
};

/// Nothing where there is nothing to do: then `status` is the exit status, 0 after a help, 2 for words that make no
/// sense, which are told on standard error.
std::optional<Work> parseCommandLine(int argc, char const* const* argv, int& status);

}  // namespace Quorvel::Dravik::Command
