// SPDX-License-Identifier: Apache-2.0
// What a guarded call costs beside a plain one, and a fault beside an exception.

#include "report.h"

#include "dravik/adt/exceptions/cloned_exception.h"

#include <stdexcept>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using Exceptions::ClonedException;
using Function = int (*)(void*);

constexpr int kCalls = 1000;

int work(void* number) {
    return *static_cast<int*>(number);
}

int throwOut(void*) {
    throw std::runtime_error("thrown");
}

int fault(void*) {
    int* const volatile nowhere = nullptr;
    return *static_cast<int volatile*>(nowhere);
}

int guarded(Function function) {
    int one = 1;
    ICloneableException::ConstPtr failure;
    int const result = ClonedException::runAndCatchException(function, &one, &failure);
    return failure ? 1 : result;
}

int caught(Function function) {
    try {
        return function(nullptr);
    } catch (...) {
        return ClonedException::catchException() ? 1 : 0;
    }
}

/// The sum of the results of kCalls calls.
template <class Call>
std::function<std::uint64_t()> calls(Call call) {
    return [call] {
        std::uint64_t sum = 0;
        for (int i = 0; i < kCalls; ++i) {
            sum += static_cast<unsigned>(call());
        }
        return sum;
    };
}

/// The same inside one more guarded call.
std::function<std::uint64_t()> nested(std::function<std::uint64_t()> body) {
    return [body] {
        struct Frame {
            std::function<std::uint64_t()> const& body;
            std::uint64_t sum;
        } frame{body, 0};
        ICloneableException::ConstPtr failure;
        auto const run = [](void* data) {
            auto& inner = *static_cast<Frame*>(data);
            inner.sum = inner.body();
            return 1;
        };
        ClonedException::runAndCatchException(run, &frame, &failure);
        return frame.sum;
    };
}

void callsThatSucceed(Report& report) {
    Contest contest("a call that succeeds");
    contest.enter("outermost guarded call", calls([] { return guarded(&work); }));
    contest.enter("guarded call inside another", nested(calls([] { return guarded(&work); })));
    contest.enter("plain call through a pointer", calls([] {
                      Function volatile const opaque = &work;
                      int one = 1;
                      return opaque(&one);
                  }));
    contest.run();
    report.time(contest, "outermost guarded call", kCalls, {5800});
    report.time(contest, "guarded call inside another", kCalls, {300});
    report.time(contest, "plain call through a pointer", kCalls);
}

void callsThatFail(Report& report) {
    Contest contest("a call that fails, with a clone of the failure");
    contest.enter("exception in a try block", calls([] { return caught(&throwOut); }));
    contest.enter("exception in a guarded call", calls([] { return guarded(&throwOut); }));
    contest.enter("fault in an outermost guarded call", calls([] { return guarded(&fault); }));
    contest.enter("fault in a guarded call inside another", nested(calls([] { return guarded(&fault); })));
    contest.run();
    report.time(contest, "fault in an outermost guarded call", kCalls, {9000});
    report.time(contest, "fault in a guarded call inside another", kCalls, {9000});
    report.ratio(contest, "fault in an outermost guarded call", "exception in a try block");
    report.ratio(contest, "fault in a guarded call inside another", "exception in a try block");
    report.ratio(contest, "exception in a guarded call", "exception in a try block");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("Guarded calls", "What a guard costs, and a processor fault that becomes an exception.");
    callsThatSucceed(report);
    callsThatFail(report);
}
