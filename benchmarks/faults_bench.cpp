// What a guarded call costs beside a plain one, and a fault beside an exception. A thousand calls a turn: the figures
// are microseconds per call.

#include "contest.h"

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

void callsThatSucceed() {
    Contest contest("1000 calls that succeed");
    contest.enter("outermost guarded call", calls([] { return guarded(&work); }));
    contest.enter("guarded call inside another", nested(calls([] { return guarded(&work); })));
    contest.enter("plain call through a pointer", calls([] {
                      Function volatile const opaque = &work;
                      int one = 1;
                      return opaque(&one);
                  }));
    contest.run();
}

void callsThatFail() {
    Contest contest("1000 calls that fail, with a clone of the failure");
    contest.enter("exception in a try block", calls([] { return caught(&throwOut); }));
    contest.enter("exception in a guarded call", calls([] { return guarded(&throwOut); }));
    contest.enter("fault in an outermost guarded call", calls([] { return guarded(&fault); }));
    contest.enter("fault in a guarded call inside another", nested(calls([] { return guarded(&fault); })));
    contest.run();
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    Quorvel::Dravik::Adt::Benchmarks::callsThatSucceed();
    Quorvel::Dravik::Adt::Benchmarks::callsThatFail();
}
