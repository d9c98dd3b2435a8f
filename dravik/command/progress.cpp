// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Quorvel::Dravik::Command {

Progress::Progress(std::string what) : what_(std::move(what)), isOnTerminal_(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    if (isShown_) {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::show(std::int64_t done, std::int64_t total) {
    auto const now = Clock::now();
    if (!isOnTerminal_ || now - last_ < std::chrono::milliseconds(100)) {
        return;
    }
    last_ = now;
    isShown_ = true;
    double const seconds = std::chrono::duration<double>(now - begin_).count();
    std::fprintf(stderr, "\r\033[K%s", progressLine(what_, done, total, seconds).c_str());
    std::fflush(stderr);
}

std::string progressLine(std::string const& what, std::int64_t done, std::int64_t total, double seconds) {
    constexpr int kLength = 30;
    double const share = total > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0) : 1;
    auto const filled = static_cast<std::size_t>(share * kLength);
    double const rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    double const left = rate > 0 ? static_cast<double>(total - done) / rate : 0;
    char text[160];
    std::snprintf(
        text, sizeof text, "] %3d %%  %.1f Msamples/s  %.0f s left", static_cast<int>(100 * share), rate / 1e6, left);
    return what + " [" + std::string(filled, '#') + std::string(kLength - filled, ' ') + text;
}

}  // namespace Quorvel::Dravik::Command
