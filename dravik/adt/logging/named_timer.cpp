// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/logging/named_timer.h"

#include <cstdio>
#include <utility>

namespace Quorvel::Dravik::Adt::Logging {
namespace {

// From which verbosity on a line is printed.
constexpr int kEachStopWithText = 2;
constexpr int kEachStop = 3;
constexpr int kEachStart = 4;

// Keeps lines of other threads out of a line that is printed in two pieces.
class OutputLock {
  public:
    OutputLock() { flockfile(stdout); }
    ~OutputLock() { funlockfile(stdout); }
    OutputLock(OutputLock const&) = delete;
    OutputLock& operator=(OutputLock const&) = delete;
};

}  // namespace

NamedTimer::NamedTimer(char const* name) : NamedTimer(name, &TimerPool::getInstance()) {}

NamedTimer::NamedTimer(char const* name, TimerPool* pool) : pool_(pool) {
    if (pool_ == nullptr || !pool_->isEnabled()) {
        return;
    }
    auto const [pooled, copy] = pool_->borrow(name);
    localTimer_ = std::make_shared<Timer>(copy);
    pooledTimer_ = pooled;
    announceStart();
    localTimer_->start();
}

NamedTimer::~NamedTimer() {
    stop();
}

void NamedTimer::start() {
    if (localTimer_) {
        announceStart();
        localTimer_->start();
    }
}

void NamedTimer::lapEnd() {
    if (!isRunning()) {
        return;
    }
    localTimer_->stop();
    if (localTimer_->getVerbose() >= kEachStop) {
        log("%s took %.4lf seconds\n", localTimer_->getName(), localTimer_->getLast());
    }
}

void NamedTimer::stop() {
    lapEnd();
    addToPool();
}

void NamedTimer::stop(char const* format, ...) {
    if (isRunning()) {
        localTimer_->stop();
        if (localTimer_->getVerbose() >= kEachStopWithText) {
            OutputLock const lock;
            log("%s took %.4lf seconds. ", localTimer_->getName(), localTimer_->getLast());
            std::va_list arguments;
            va_start(arguments, format);
            vlog(format, arguments);
            va_end(arguments);
        }
    }
    addToPool();
}

void NamedTimer::announceStart() const {
    if (localTimer_->getVerbose() >= kEachStart) {
        log("%-50s is starting\n", localTimer_->getName());
    }
}

void NamedTimer::addToPool() {
    if (localTimer_ && localTimer_->getCount() > 0) {
        pool_->addToTimer(pooledTimer_, localTimer_->getCount(), localTimer_->getTotal(), localTimer_->getLast());
        localTimer_->reset();
    }
}

void NamedTimer::log(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    vlog(format, arguments);
    va_end(arguments);
}

void NamedTimer::vlog(char const* format, std::va_list arguments) {
    std::vprintf(format, arguments);
}

}  // namespace Quorvel::Dravik::Adt::Logging
