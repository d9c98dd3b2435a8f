#include "dravik/adt/platform/fault_guard.h"

#include "dravik/adt/platform/fault_signals.h"
#include "dravik/adt/testing/fault_situations.h"

#include <fenv.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <exception>
#include <fstream>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

using Testing::FaultSituation;
using Testing::readNull;

std::optional<Fault> guarded(std::function<void()> body) {
    return runGuarded([](void* function) { (*static_cast<std::function<void()>*>(function))(); }, &body);
}

/// Runs on another thread: on the given stack, or on one that ends in a guard that no large frame can skip.
void onThread(std::function<void()> body, std::span<std::byte> stack = {}) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (stack.empty()) {
        pthread_attr_setguardsize(&attributes, 1 << 20);
    } else {
        pthread_attr_setstack(&attributes, stack.data(), stack.size());
    }
    pthread_t thread;
    auto const start = [](void* function) -> void* {
        (*static_cast<std::function<void()>*>(function))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, start, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

struct sigaction currentAction(int signal) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action;
}

/// What a guarded call must leave as it was, as one text: a difference shows itself.
std::string threadState() {
    constexpr int kRestorer = 0x04000000;  // set by the C library, not by anybody who installs a handler
    std::string text;
    auto const add = [&text](char const* name, auto value) { text += std::string(name) + std::to_string(value); };
    for (int const signal : kFaultSignals) {
        struct sigaction const action = currentAction(signal);
        add("\naction ", reinterpret_cast<std::uintptr_t>(action.sa_sigaction));
        add(" flags ", action.sa_flags & ~kRestorer);
    }
    stack_t stack = {};
    sigaltstack(nullptr, &stack);
    add("\nstack flags ", stack.ss_flags);
    add(" of ", (stack.ss_flags & SS_DISABLE) != 0 ? 0 : reinterpret_cast<std::uintptr_t>(stack.ss_sp));
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (int signal = 1; signal < 32; ++signal) {
        text += sigismember(&mask, signal) == 1 ? " blocked " + std::to_string(signal) : "";
    }
    unsigned short x87 = 0;
    asm volatile("fnstcw %0" : "=m"(x87));
    add("\nrounding ", fegetround());
    add(" sse ", _mm_getcsr() & 0xFFC0);
    add(" x87 ", x87);
    add("\nin flight ", std::uncaught_exceptions());
    add(" handling ", std::current_exception() != nullptr);
    return text;
}

void expectFault(FaultSituation const& situation) {
    SCOPED_TRACE(situation.name);
    std::string const before = threadState();
    auto const fault =
        runGuarded([](void* run) { reinterpret_cast<void (*)()>(run)(); }, reinterpret_cast<void*>(situation.run));
    EXPECT_EQ(threadState(), before);
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->kind, situation.kind);
    if (situation.kind == FaultKind::accessViolation) {
        EXPECT_EQ(fault->access, situation.access);
        EXPECT_TRUE(situation.address == FaultSituation::kAnyAddress || fault->address == situation.address);
        EXPECT_EQ(fault->instruction == fault->address, situation.access == FaultAccess::execute);
    }
}

void expectAllFaults() {
    for (FaultSituation const& situation : Testing::faultSituations()) {
        expectFault(situation);
    }
}

struct RunsAtTheEnd {
    std::function<void()> body;
    ~RunsAtTheEnd() { body(); }
};

/// Installs a disposition for one test.
class HostAction {
  public:
    HostAction(int signal, void (*handler)(int), unsigned flags) : signal_(signal) {
        struct sigaction action = {};
        action.sa_handler = handler;
        install(action, flags);
    }
    HostAction(int signal, FaultSignals::Handler handler, unsigned flags) : signal_(signal) {
        struct sigaction action = {};
        action.sa_sigaction = handler;
        install(action, flags | SA_SIGINFO);
    }
    ~HostAction() { sigaction(signal_, &before_, nullptr); }

  private:
    void install(struct sigaction& action, unsigned flags) {
        action.sa_flags = static_cast<int>(flags);
        sigaddset(&action.sa_mask, SIGUSR2);
        sigaction(signal_, &action, &before_);
    }

    int signal_;
    struct sigaction before_ = {};
};

TEST(FaultGuard, ReturnsEveryFaultAndLeavesTheThreadAsItWas) {
    expectAllFaults();
}

TEST(FaultGuard, WorksOnAnyThread) {
    onThread(expectAllFaults);
}

TEST(FaultGuard, WorksInsideACatchBlock) {
    try {
        throw 42;
    } catch (int number) {
        expectAllFaults();
        EXPECT_EQ(number, 42);
    }
    EXPECT_FALSE(std::current_exception()) << "an exception counts as handled although its catch block has ended";
}

TEST(FaultGuard, WorksWhileAnExceptionIsInFlight) {
    EXPECT_THROW(
        {
            RunsAtTheEnd const destructor{expectAllFaults};
            throw std::runtime_error("in flight");
        },
        std::runtime_error);
}

TEST(FaultGuard, GivesAFaultToTheInnermostCall) {
    bool resumed = false;
    auto const outer = guarded([&resumed] {
        expectAllFaults();
        resumed = true;
        readNull();
    });
    EXPECT_TRUE(resumed);
    ASSERT_TRUE(outer);
    EXPECT_EQ(outer->kind, FaultKind::accessViolation);
}

TEST(FaultGuard, KeepsUnusualThreadSettings) {
    sigset_t blocked;
    sigfillset(&blocked);
    sigdelset(&blocked, SIGUSR1);  // one situation lives in its handler
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    fesetround(FE_DOWNWARD);
    expectAllFaults();
    fesetround(FE_TONEAREST);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(FaultGuard, TakesOnlyTheLowerEndOfAStackForAnOverflow) {
    constexpr std::size_t kByteSize = 512 << 10;
    void* const mapping = mmap(nullptr, 2 * kByteSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto* const stack = static_cast<std::byte*>(mapping);
    mprotect(stack + kByteSize, kByteSize, PROT_NONE);
    auto const overrun = [end = stack + kByteSize] {
        auto const fault = guarded([end] { [[maybe_unused]] int const read = *reinterpret_cast<int volatile*>(end); });
        ASSERT_TRUE(fault);
        EXPECT_EQ(fault->kind, FaultKind::accessViolation);
    };
    onThread(overrun, {stack, kByteSize});
    munmap(mapping, 2 * kByteSize);
}

TEST(FaultGuard, WithoutAFaultKeepsWhatTheBodyChanged) {
    std::string const before = threadState();
    EXPECT_FALSE(guarded([] {
        fesetround(FE_UPWARD);
        sigset_t user;
        sigemptyset(&user);
        sigaddset(&user, SIGUSR2);
        pthread_sigmask(SIG_BLOCK, &user, nullptr);
    }));
    EXPECT_EQ(fegetround(), FE_UPWARD);
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR2), 1);
    fesetround(FE_TONEAREST);
    sigdelset(&mask, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    EXPECT_EQ(threadState(), before);
}

TEST(FaultGuard, LetsExceptionsAndCancellationPass) {
    std::string const before = threadState();
    EXPECT_THROW(guarded([] { throw std::out_of_range("T"); }), std::out_of_range);
    EXPECT_EQ(threadState(), before);
    bool unwound = false;
    onThread([&unwound] {
        RunsAtTheEnd const destructor{[&unwound] { unwound = true; }};
        guarded([] { pthread_exit(nullptr); });
    });
    EXPECT_TRUE(unwound);
    EXPECT_EQ(threadState(), before);
}

TEST(FaultGuard, UsesTheHostsAlternateStackWhereItIsLargeEnough) {
    struct Row {
        char const* name;
        std::size_t byteSize;
        int flags;
    };
    constexpr int kSelfDisarming = INT32_MIN;
    for (Row const& row :
         {Row{"Large", 1 << 20, 0}, Row{"TooSmall", 12 << 10, 0}, Row{"Fickle", 1 << 20, kSelfDisarming}}) {
        SCOPED_TRACE(row.name);
        onThread([&row] {
            std::vector<char> memory(row.byteSize);
            stack_t const host{memory.data(), row.flags, memory.size()};
            ASSERT_EQ(sigaltstack(&host, nullptr), 0);
            guarded([&] {
                stack_t now;
                sigaltstack(nullptr, &now);
                EXPECT_EQ(now.ss_sp == host.ss_sp, row.byteSize > (64 << 10) && row.flags == 0);
            });
            expectAllFaults();
            stack_t const none{nullptr, SS_DISABLE, 0};
            sigaltstack(&none, nullptr);
        });
    }
}

TEST(FaultGuard, WorksInsideAHandlerOnAnAlternateStack) {
    onThread([] {
        std::vector<char> memory(40 << 10);
        stack_t const host{memory.data(), 0, memory.size()};
        sigaltstack(&host, nullptr);
        HostAction const action(
            SIGUSR2, [](int) { EXPECT_TRUE(guarded(readNull)); }, SA_ONSTACK);
        std::string const before = threadState();
        std::raise(SIGUSR2);
        EXPECT_EQ(threadState(), before);
        stack_t const none{nullptr, SS_DISABLE, 0};
        sigaltstack(&none, nullptr);
    });
}

TEST(FaultGuard, LeavesAnAlternateStackThatTheBodyInstalled) {
    onThread([] {
        std::vector<char> memory(64 << 10);
        stack_t now = {};
        guarded([&memory] {
            stack_t const host{memory.data(), 0, memory.size()};
            sigaltstack(&host, nullptr);
            readNull();
        });
        stack_t const none{nullptr, SS_DISABLE, 0};
        sigaltstack(&none, &now);
        EXPECT_EQ(now.ss_sp, memory.data());
    });
}

/// Bytes of the process that are resident, and how many mappings it has.
std::pair<long, long> memoryInUse() {
    std::ifstream maps("/proc/self/maps");
    long const mappings = std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {pages * sysconf(_SC_PAGESIZE), mappings};
}

TEST(FaultGuard, DoesNotGrow) {
    auto const fault = [](int count) {
        for (int i = 0; i < count; ++i) {
            runGuarded([](void*) { readNull(); }, nullptr);
        }
    };
    fault(1000);
    auto const before = memoryInUse();
    fault(100'000);
    auto const after = memoryInUse();
    EXPECT_LT(after.first - before.first, 1 << 20);
    EXPECT_LE(after.second, before.second + 1);
}

TEST(FaultGuard, LeavesNoMemoryBehindAThread) {
    auto const before = memoryInUse();
    for (int i = 0; i < 20; ++i) {
        onThread([] {
            // Built before the thread's first guarded call, so destroyed after whatever that call keeps for the thread.
            static thread_local RunsAtTheEnd const late{[] { EXPECT_TRUE(guarded(readNull)); }};
            EXPECT_TRUE(late.body && guarded(readNull));
        });
    }
    EXPECT_LE(memoryInUse().second, before.second + 4);
}

TEST(FaultGuard, ServesManyThreadsAtOnce) {
    std::string const before = threadState();
    std::atomic<int> faults = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&faults] {
            for (int call = 0; call < 500; ++call) {
                faults += runGuarded([](void*) { readNull(); }, nullptr).has_value();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(faults, 4000);
    EXPECT_EQ(threadState(), before);
}

// What follows is about the host's own handlers.

struct HandlerLog {
    int calls = 0;
    int signal = 0;
    bool withInfo = false;
    bool userSignalBlocked = false;
    bool ownSignalBlocked = false;
};
HandlerLog handlerLog;

void note(int signal, siginfo_t* info, void*) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    handlerLog = {
        handlerLog.calls + 1, signal, info != nullptr && info->si_signo == signal, sigismember(&mask, SIGUSR2) == 1,
        sigismember(&mask, signal) == 1};
}
void notePlainly(int signal) {
    note(signal, nullptr, nullptr);
}

sigjmp_buf escape;
void escapeByJump(int) {
    siglongjmp(escape, 1);
}

TEST(HostHandlers, GetSentSignalsInTheirOwnStyle) {
    for (int const signal : kFaultSignals) {
        SCOPED_TRACE(signal);
        {
            HostAction const host(signal, note, SA_RESTART);
            handlerLog = {};
            EXPECT_FALSE(guarded([signal] {
                EXPECT_TRUE((currentAction(signal).sa_flags & SA_RESTART) != 0) << "system calls are interrupted";
                std::raise(signal);
            }));
            EXPECT_EQ(handlerLog.calls, 1);
            EXPECT_EQ(handlerLog.signal, signal);
            EXPECT_TRUE(handlerLog.withInfo && handlerLog.userSignalBlocked && handlerLog.ownSignalBlocked);
        }
        HostAction const host(signal, notePlainly, SA_NODEFER | SA_RESETHAND);
        handlerLog = {};
        EXPECT_FALSE(guarded([signal] { std::raise(signal); }));
        EXPECT_EQ(handlerLog.calls, 1);
        EXPECT_FALSE(handlerLog.ownSignalBlocked);
        EXPECT_TRUE(currentAction(signal).sa_handler == SIG_DFL) << "a handler for one time stands for a second one";
    }
}

TEST(HostHandlers, GetMemoryErrorsOfTheMachine) {
    HostAction const host(SIGBUS, note, 0);
    for (int const code : {BUS_MCEERR_AR, BUS_MCEERR_AO}) {
        handlerLog = {};
        siginfo_t info = {};
        info.si_signo = SIGBUS;
        info.si_code = code;
        EXPECT_FALSE(guarded([&info] { syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGBUS, &info); }));
        EXPECT_EQ(handlerLog.calls, 1);
    }
}

TEST(HostHandlers, DoNotSeeFaultsOfAGuardedThreadButThoseOfOthers) {
    HostAction const host(SIGSEGV, escapeByJump, SA_NODEFER);
    guarded([] {
        expectAllFaults();
        onThread([] {
            for (int i = 0; i < 3; ++i) {
                if (sigsetjmp(escape, 1) == 0) {
                    readNull();
                    ADD_FAILURE() << "the fault went unnoticed";
                }
            }
        });
    });
    expectAllFaults();
}

TEST(HostHandlers, IgnoredSignalsStayIgnored) {
    HostAction const host(SIGFPE, SIG_IGN, 0);
    EXPECT_FALSE(guarded([] { std::raise(SIGFPE); }));
}

TEST(HostHandlersDeathTest, DefaultsEndTheProcessAsWithoutUs) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const unguardedFault = [] { guarded([] { std::thread(readNull).join(); }); };
    EXPECT_EXIT(unguardedFault(), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(guarded([] { std::raise(SIGBUS); }), testing::KilledBySignal(SIGBUS), "");
    auto const ignoredFault = [] {
        HostAction const host(SIGSEGV, SIG_IGN, 0);
        guarded([] { std::thread(readNull).join(); });
    };
    EXPECT_EXIT(ignoredFault(), testing::KilledBySignal(SIGSEGV), "");
}

struct sigaction beneath;  ///< what passAlong found when it was installed
int passed = 0;

/// A handler of the kind that counts and calls the one it has replaced.
void passAlong(int signal, siginfo_t* info, void* context) {
    ++passed;
    if ((beneath.sa_flags & SA_SIGINFO) != 0) {
        beneath.sa_sigaction(signal, info, context);
    }
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR2), 0) << "the mask of the handler below is in force after it";
}

/// The ways in which a SIGSEGV that somebody sent can meet a guard.
void sendInEveryWay() {
    std::raise(SIGSEGV);
    EXPECT_FALSE(guarded([] { std::raise(SIGSEGV); }));
    guarded([] { std::thread([] { std::raise(SIGSEGV); }).join(); });
}

TEST(HostHandlers, MayCoverOursAndCallItForEver) {
    HostAction const host(SIGSEGV, note, 0);
    for (int round = 0; round < 6; ++round) {
        guarded([] {
            struct sigaction cover = {};
            cover.sa_sigaction = passAlong;
            cover.sa_flags = SA_SIGINFO | SA_ONSTACK;
            sigaction(SIGSEGV, &cover, &beneath);
            EXPECT_TRUE(guarded(readNull)) << "a covered guard still gets what the cover passes on";
        });
        passed = 0;
        handlerLog = {};
        sendInEveryWay();
        EXPECT_EQ(passed, 3) << "the cover";
        EXPECT_EQ(handlerLog.calls, 3) << "the handler below both";
        sigaction(SIGSEGV, &beneath, nullptr);  // the cover leaves and puts back what it had found: ours
        sendInEveryWay();
        EXPECT_TRUE(guarded(readNull));
        EXPECT_EQ(passed, 3);
        EXPECT_EQ(handlerLog.calls, 6);
        EXPECT_TRUE(currentAction(SIGSEGV).sa_sigaction == note);
    }
}

TEST(HostHandlers, StillGetSignalsThatFindOurHandlerTooLate) {
    HostAction const host(SIGSEGV, note, 0);
    struct sigaction ours = {};
    guarded([&ours] { ours = currentAction(SIGSEGV); });
    HostAction const laterHost(SIGSEGV, notePlainly, 0);
    siginfo_t info = {};
    info.si_signo = SIGSEGV;
    info.si_code = SI_TKILL;
    handlerLog = {};
    ours.sa_sigaction(SIGSEGV, &info, &info);  // on its way while the last guard left
    EXPECT_EQ(handlerLog.calls, 1);
    EXPECT_FALSE(handlerLog.withInfo) << "the handler that stands now";
    sigaction(SIGSEGV, &ours, nullptr);  // somebody had saved the dispositions inside a guard
    std::raise(SIGSEGV);
    EXPECT_EQ(handlerLog.calls, 2);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Platform
