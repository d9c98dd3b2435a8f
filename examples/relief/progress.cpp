// SPDX-License-Identifier: Apache-2.0
#include "progress.h"

#include <cstdio>
#include <unistd.h>

namespace Relief {

Progress::Progress(char const* what, long long total) noexcept
    : what_(what), total_(total), onTerminal_(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    if (onTerminal_ && shownPercent_ >= 0) {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::advance(long long amount) {
    done_ += amount;
    int const percent = total_ > 0 ? static_cast<int>(100 * done_ / total_) : 100;
    if (onTerminal_ && percent != shownPercent_) {
        std::fprintf(stderr, "\r%s %3d %%", what_, percent);
        std::fflush(stderr);
        shownPercent_ = percent;
    }
}

}  // namespace Relief
