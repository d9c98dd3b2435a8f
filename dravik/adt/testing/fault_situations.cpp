// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/testing/fault_situations.h"

#include <fenv.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace Quorvel::Dravik::Adt::Testing {
namespace {

using Platform::Fault;
using enum Platform::FaultKind;
using enum Platform::FaultAccess;

constexpr std::uintptr_t kNonCanonical = 0x8000'0000'0000'1000;
int const kConstant = 1;

/// Keeps what it is given from the optimiser.
template <class T>
T opaque(T value) {
    T const volatile hidden = value;
    return hidden;
}

int load(std::uintptr_t address) {
    return *opaque(reinterpret_cast<int volatile*>(address));
}

void store(std::uintptr_t address) {
    *opaque(reinterpret_cast<int volatile*>(address)) = 1;
}

void call(void* target) {
    opaque(reinterpret_cast<void (*)()>(target))();
}

void callTheStack() {
    char code[16] = {};
    call(opaque(&code[0]));
}

void readBeyondAFile() {
    int const empty = memfd_create("empty", MFD_CLOEXEC);
    load(reinterpret_cast<std::uintptr_t>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, empty, 0)));
}

template <class Number>
void divide(Number numerator, Number denominator) {
    [[maybe_unused]] Number const volatile quotient = opaque(numerator) / opaque(denominator);
}

template <int Trapped>
void divideTrapped(double numerator, double denominator) {
    feenableexcept(Trapped);
    divide(numerator, denominator);
}

template <std::size_t FrameByteSize>
[[gnu::noinline]] int recurse(int depth) {
    char volatile frame[FrameByteSize];
    frame[FrameByteSize / 2] = static_cast<char>(depth);
    return opaque(depth) < 0 ? 0 : recurse<FrameByteSize>(depth + 1) + frame[FrameByteSize / 2];
}

template <std::size_t FrameByteSize>
void overflow() {
    rlimit limit = {};
    getrlimit(RLIMIT_STACK, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, 8 << 20);  // a shell may have lifted it
    setrlimit(RLIMIT_STACK, &limit);
    recurse<FrameByteSize>(0);
}

void virtualCall() {
    static std::uintptr_t zeroes[4] = {};
    opaque(reinterpret_cast<std::exception*>(zeroes))->what();
}

void catchAllAround() {
    try {
        readNull();
    } catch (...) {
        std::abort();
    }
}

struct ReadsAtTheEnd {
    ~ReadsAtTheEnd() { readNull(); }
};

void destructorWhileUnwinding() {
    try {
        ReadsAtTheEnd const reader;
        throw 1;
    } catch (int) {
        std::abort();
    }
}

void destructorOfAnException() {
    try {
        throw ReadsAtTheEnd();
    } catch (ReadsAtTheEnd const&) {
    }
}

void catchBlockThatRethrows() {
    try {
        try {
            throw 1;
        } catch (int) {
            ReadsAtTheEnd const reader;
            throw;
        }
    } catch (int) {
        std::abort();
    }
}

void catchBlockOfTheCallersException() {
    if (!std::current_exception()) {
        readNull();
    }
    try {
        throw;
    } catch (...) {
        readNull();
    }
}

void qsortCallback() {
    int numbers[] = {3, 1, 2};
    std::qsort(numbers, 3, sizeof(int), [](void const*, void const*) { return load(0); });
}

void signalHandler() {
    std::signal(SIGUSR1, [](int) { readNull(); });
    std::raise(SIGUSR1);
}

void fiber() {
    static ucontext_t caller;
    static ucontext_t callee;
    alignas(16) static char stack[64 << 10];
    getcontext(&callee);
    callee.uc_stack = {stack, 0, sizeof stack};
    makecontext(&callee, &readNull, 0);
    swapcontext(&caller, &callee);
}

void afterChangingTheThread() {
    sigset_t mask;
    sigfillset(&mask);
    sigdelset(&mask, SIGSEGV);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    fesetround(FE_UPWARD);
    readNull();
}

constexpr FaultSituation kSituations[] = {
    {"ReadNearNull", [] { load(8); }, accessViolation, read, 8},
    {"WriteNearNull", [] { store(8); }, accessViolation, write, 8},
    {"WriteConstant", [] { store(reinterpret_cast<std::uintptr_t>(&kConstant)); }, accessViolation, write},
    {"CallNull", [] { call(nullptr); }, accessViolation, execute, 0},
    {"CallTheStack", callTheStack, accessViolation, execute},
    {"NonCanonical", [] { load(kNonCanonical); }, accessViolation, read, Fault::kUnknownAddress},
    {"ReadBeyondAFile", readBeyondAFile},
    {"IntegerDivision", [] { divide(1, 0); }, integerDivision},
    {"FloatDivision", [] { divideTrapped<FE_DIVBYZERO>(1, 0); }, floatDivision},
    {"FloatOverflow", [] { divideTrapped<FE_OVERFLOW>(1e300, 1e-300); }, floatOverflow},
    {"FloatUnderflow", [] { divideTrapped<FE_UNDERFLOW>(1e-300, 1e300); }, floatUnderflow},
    {"FloatInvalid", [] { divideTrapped<FE_INVALID>(0, 0); }, floatInvalidOperation},
    {"FloatInexact", [] { divideTrapped<FE_INEXACT>(1, 3); }, floatInexact},
    {"IllegalInstruction", [] { asm volatile("ud2"); }, illegalInstruction},
    {"StackOverflow", overflow<16>, stackOverflow},
    {"StackOverflowOfLargeFrames", overflow<300 << 10>, stackOverflow},
    {"StackOverflowOfHugeFrames", overflow<6 << 20>, stackOverflow},
    {"VirtualCall", virtualCall},
    {"NoexceptCaller", []() noexcept { readNull(); }},
    {"CatchAllAround", catchAllAround},
    {"DestructorWhileUnwinding", destructorWhileUnwinding},
    {"DestructorOfAnException", destructorOfAnException},
    {"CatchBlockThatRethrows", catchBlockThatRethrows},
    {"CatchBlockOfTheCallersException", catchBlockOfTheCallersException},
    {"QsortCallback", qsortCallback},
    {"CLibrary", [] { opaque (&std::memset)(nullptr, 0, 100); }, accessViolation, write},
    {"SignalHandler", signalHandler},
    {"Fiber", fiber},
    {"AfterChangingTheThread", afterChangingTheThread},
};

}  // namespace

std::span<FaultSituation const> faultSituations() {
    return kSituations;
}

void readNull() {
    load(0);
}

}  // namespace Quorvel::Dravik::Adt::Testing
