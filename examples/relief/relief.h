// SPDX-License-Identifier: Apache-2.0
#pragma once

// The demo itself: opens a grid, reads it through a typed view, draws it.

#include "options.h"

#include <iosfwd>

namespace Relief {

/// Draws what `options` ask for and reports on `out`.
/// @throws std::exception with one line that says what went wrong; no picture is left half written
void run(Options const& options, std::ostream& out);

}  // namespace Relief
