#include "dravik/adt/testing/fault_situations.h"

#include <fenv.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::Testing {
namespace {

using Platform::Fault;
using Platform::FaultAccess;
using Platform::FaultKind;

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

void call(void const* target) {
    opaque(reinterpret_cast<void (*)()>(reinterpret_cast<std::uintptr_t>(target)))();
}

constexpr std::uintptr_t kNonCanonical = 0x8000'0000'0000'1000;
int const kReadOnly = 1;
unsigned char data[64];

void busError() {
    int const file = memfd_create("empty", MFD_CLOEXEC);
    void* const mapping = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    close(file);
    load(reinterpret_cast<std::uintptr_t>(mapping));
}

void misalignedVector() {
    asm volatile("movaps %0, %%xmm0" : : "m"(data[1]) : "xmm0");
}

template <class Number>
void divide(Number numerator, Number denominator) {
    [[maybe_unused]] Number const volatile result = opaque(numerator) / opaque(denominator);
}

template <class Number>
void multiplyTrapped(int trapped, Number left, Number right) {
    feenableexcept(trapped);
    [[maybe_unused]] Number const volatile result = opaque(left) * opaque(right);
    feclearexcept(FE_ALL_EXCEPT);  // the x87 unit reports with its next instruction
}

template <std::size_t ByteSize>
[[gnu::noinline]] int recurse(int depth) {
    char volatile frame[ByteSize];
    frame[ByteSize / 2] = static_cast<char>(depth);
    return opaque(depth) < 0 ? 0 : recurse<ByteSize>(depth + 1) + frame[ByteSize / 2];
}

template <std::size_t FrameByteSize>
void overflow() {
    rlimit limit = {};
    getrlimit(RLIMIT_STACK, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, 8 << 20);  // a shell may have lifted it
    setrlimit(RLIMIT_STACK, &limit);
    recurse<FrameByteSize>(0);
}

struct Base {
    virtual ~Base() = default;
    virtual void run() = 0;
};

struct Reader : Base {
    void run() override { readNull(); }
};

void virtualCall() {
    Reader reader;
    opaque(static_cast<Base*>(&reader))->run();
}

void virtualCallOnZeroes() {
    opaque(reinterpret_cast<Base*>(data))->run();
}

void noexceptCaller() noexcept {
    readNull();
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

void destructor() {
    ReadsAtTheEnd const reader;
}

void destructorWhileUnwinding() {
    try {
        ReadsAtTheEnd const reader;
        throw std::runtime_error("in flight");
    } catch (std::runtime_error const&) {
        std::abort();
    }
}

void catchBlock() {
    try {
        throw std::runtime_error("caught");
    } catch (std::runtime_error const&) {
        readNull();
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

void nestedCatchBlocks() {
    try {
        throw std::runtime_error("outer");
    } catch (std::runtime_error const&) {
        catchBlockThatRethrows();
    }
}

void catchBlockOfTheCallersException() {
    if (!std::current_exception()) {
        readNull();
    }
    try {
        throw;
    } catch (...) {
        try {
            std::rethrow_exception(std::current_exception());
        } catch (...) {
            readNull();
        }
    }
}

void destructorOfAnException() {
    try {
        throw ReadsAtTheEnd();
    } catch (ReadsAtTheEnd const&) {
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
    callee.uc_stack.ss_sp = stack;
    callee.uc_stack.ss_size = sizeof stack;
    callee.uc_link = &caller;
    makecontext(&callee, &readNull, 0);
    swapcontext(&caller, &callee);
}

void afterChangingTheThread() {
    sigset_t all;
    sigemptyset(&all);
    sigaddset(&all, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    fesetround(FE_UPWARD);
    readNull();
}

constexpr FaultSituation kSituations[] = {
    {"ReadNull", [] { load(0); }, FaultKind::accessViolation, FaultAccess::read, 0},
    {"ReadNearNull", [] { load(8); }, FaultKind::accessViolation, FaultAccess::read, 8},
    {"WriteNearNull", [] { store(8); }, FaultKind::accessViolation, FaultAccess::write, 8},
    {"WriteConstant", [] { store(reinterpret_cast<std::uintptr_t>(&kReadOnly)); }, FaultKind::accessViolation,
     FaultAccess::write},
    {"CallNull", [] { call(nullptr); }, FaultKind::accessViolation, FaultAccess::execute, 0},
    {"CallData", [] { call(data); }, FaultKind::accessViolation, FaultAccess::execute},
    {"CallTheStack",
     [] {
         char code[16] = {};
         call(opaque(&code[0]));
     },
     FaultKind::accessViolation, FaultAccess::execute},
    {"NonCanonical", [] { load(kNonCanonical); }, FaultKind::accessViolation, FaultAccess::read,
     Fault::kUnknownAddress},
    {"WildStackPointer",
     [] {
         asm volatile("mov %0, %%rax\n\tmov %%ss:(%%rax), %%eax" : : "r"(kNonCanonical) : "rax");
     },
     FaultKind::accessViolation, FaultAccess::read, Fault::kUnknownAddress},
    {"MisalignedVector", misalignedVector, FaultKind::accessViolation, FaultAccess::read, Fault::kUnknownAddress},
    {"EndOfAMappedFile", busError},
    {"IntegerDivision", [] { divide(1, 0); }, FaultKind::integerDivision},
    {"IntegerQuotientTooLarge", [] { divide(INT_MIN, -1); }, FaultKind::integerDivision},
    {"FloatDivision",
     [] {
         feenableexcept(FE_DIVBYZERO);
         divide(1.0, 0.0);
     },
     FaultKind::floatDivision},
    {"FloatOverflow", [] { multiplyTrapped(FE_OVERFLOW, 1e300, 1e300); }, FaultKind::floatOverflow},
    {"FloatUnderflow", [] { multiplyTrapped(FE_UNDERFLOW, 1e-300, 1e-300); }, FaultKind::floatUnderflow},
    {"FloatInvalid", [] { multiplyTrapped(FE_INVALID, 0.0, HUGE_VAL); }, FaultKind::floatInvalidOperation},
    {"FloatInexact", [] { multiplyTrapped(FE_INEXACT, 0.1, 0.1); }, FaultKind::floatInexact},
    {"X87Invalid", [] { multiplyTrapped<long double>(FE_INVALID, 0, HUGE_VALL); }, FaultKind::floatInvalidOperation},
    {"IllegalInstruction", [] { asm volatile("ud2"); }, FaultKind::illegalInstruction},
    {"StackOverflow", overflow<16>, FaultKind::stackOverflow},
    {"StackOverflowOfLargeFrames", overflow<300 << 10>, FaultKind::stackOverflow},
    {"VirtualCall", virtualCall},
    {"VirtualCallOnZeroes", virtualCallOnZeroes},
    {"NoexceptCaller", noexceptCaller},
    {"CatchAllAround", catchAllAround},
    {"Destructor", destructor},
    {"DestructorWhileUnwinding", destructorWhileUnwinding},
    {"CatchBlock", catchBlock},
    {"NestedCatchBlocksThatRethrow", nestedCatchBlocks},
    {"CatchBlockOfTheCallersException", catchBlockOfTheCallersException},
    {"DestructorOfAnException", destructorOfAnException},
    {"QsortCallback", qsortCallback},
    {"CLibrary", [] { opaque (&std::memset)(nullptr, 0, 100); }, FaultKind::accessViolation, FaultAccess::write},
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
