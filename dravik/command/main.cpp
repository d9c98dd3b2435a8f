// SPDX-License-Identifier: Apache-2.0
// dravik: looks into, cuts, converts, compares and draws what the library opens.

#include "dravik/adt/exceptions/cancelled_exception.h"
#include "dravik/command/command_line.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stop_token>
#include <thread>

namespace {

constexpr int kStoppedStatus = 128 + SIGINT;

// Turns the signals that ask a program to end into a wish to stop. A thread waits for them, since little may be done in
// a handler; it sleeps until the process ends.
void stopOnSignals(std::stop_source const& stop) {
    sigset_t asking;
    sigemptyset(&asking);
    sigaddset(&asking, SIGINT);
    sigaddset(&asking, SIGTERM);
    sigaddset(&asking, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &asking, nullptr);
    std::thread([stop, asking]() mutable {
        for (int signal = 0; sigwait(&asking, &signal) == 0;) {
            stop.request_stop();
        }
    }).detach();
}

}  // namespace

int main(int argc, char** argv) {
    using namespace Quorvel::Dravik;
    int status = 0;
    auto const work = Command::parseCommandLine(argc, argv, status);
    if (!work) {
        return status;
    }
    std::stop_source const stop;
    stopOnSignals(stop);
    try {
        Command::Session session(work->resources, stop.get_token());
        status = work->run(session);
        session.report();
        std::cout.flush();
        if (!std::cout) {
            throw std::runtime_error("standard output cannot be written");
        }
        return status;
    } catch (Adt::Exceptions::CancelledException const&) {
        std::cerr << "dravik: stopped\n";
        return kStoppedStatus;
    } catch (std::exception const& error) {
        std::cerr << "dravik: " << error.what() << '\n';
        std::cout.flush();
        // At once: HDF5 does not come to an end, and says so, over a file that its disk had no room for.
        std::_Exit(work->failed);
    }
}
