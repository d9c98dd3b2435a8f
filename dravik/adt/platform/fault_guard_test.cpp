// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/fault_guard.h"

#include "dravik/adt/platform/fault_signals.h"
#include "dravik/adt/testing/fault_situations.h"

#include <fenv.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

using Testing::FaultSituation;
using Testing::readNull;

/// Should a fault come back for ever, the kernel ends this program or its child of a death test.
int const limited = [] {
    rlimit const seconds{120, 120};
    return setrlimit(RLIMIT_CPU, &seconds);
}();

std::optional<Fault> guarded(std::function<void()> body) {
    return runGuarded([](void* function) { (*static_cast<std::function<void()>*>(function))(); }, &body);
}

/// Runs on another thread, whose stack ends in a guard that no large frame can skip.
void onThread(std::function<void()> body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setguardsize(&attributes, 8 << 20);
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

bool isBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

/// What a guarded call must leave as it was, as one text: a difference shows itself.
std::string threadState() {
    constexpr int kRestorer = 0x04000000;  // set by the C library, not by anybody who installs a handler
    std::ostringstream text;
    for (int const signal : kFaultSignals) {
        struct sigaction const action = currentAction(signal);
        text << "\naction " << reinterpret_cast<void*>(action.sa_sigaction) << ' ' << (action.sa_flags & ~kRestorer);
    }
    stack_t stack = {};
    sigaltstack(nullptr, &stack);
    text << "\nstack " << ((stack.ss_flags & SS_DISABLE) != 0 ? nullptr : stack.ss_sp) << "\nblocked";
    for (int signal = 1; signal < 32; ++signal) {
        text << (isBlocked(signal) ? '1' : '0');
    }
    unsigned short x87 = 0;
    asm volatile("fnstcw %0" : "=m"(x87));
    text << "\nfloating point " << (_mm_getcsr() & 0xFFC0) << ' ' << x87;
    text << "\nin flight " << std::uncaught_exceptions() << " handling " << !!std::current_exception();
    return text.str();
}

void expectAllFaults() {
    for (FaultSituation const& situation : Testing::faultSituations()) {
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
}

struct RunsAtTheEnd {
    std::function<void()> body;
    ~RunsAtTheEnd() { body(); }
};

template <class Handler>
struct sigaction actionOf(Handler handler, unsigned flags, int blocked = SIGUSR2) {
    struct sigaction action = {};
    if constexpr (std::is_convertible_v<Handler, FaultSignals::Handler>) {
        action.sa_sigaction = handler;
        flags |= SA_SIGINFO;
    } else {
        action.sa_handler = handler;
    }
    action.sa_flags = static_cast<int>(flags);
    sigaddset(&action.sa_mask, blocked);
    return action;
}

/// Installs a disposition for one test.
struct HostAction {
    HostAction(int number, struct sigaction const& action) : signal(number) { sigaction(signal, &action, &before); }
    ~HostAction() { sigaction(signal, &before, nullptr); }

    int signal;
    struct sigaction before = {};
};

/// A thread that enters and leaves guards until this is destroyed.
struct GuardingThread {
    ~GuardingThread() {
        isOver = true;
        thread.join();
    }
    std::atomic<long> calls = 0;
    std::atomic<bool> isOver = false;
    std::thread thread{[this] {
        for (; !isOver; ++calls) {
            guarded([] {});
        }
    }};
};

/// Takes the stack of the caller, in frames of some hundred bytes.
[[gnu::noinline]] void useStack(long byteSize) {
    char volatile frame[512] = {};
    if (byteSize > 0) {
        useStack(byteSize - 512);
    }
    frame[0] = frame[1];
}

/// Gives the thread an alternate stack for one test.
struct HostStack {
    explicit HostStack(std::size_t byteSize, int flags = 0) : memory(byteSize) {
        set({memory.data(), flags, byteSize});
    }
    ~HostStack() { set({nullptr, SS_DISABLE, 0}); }

    static void set(stack_t const& stack) { sigaltstack(&stack, nullptr); }
    bool isInstalled() const {
        stack_t now = {};
        sigaltstack(nullptr, &now);
        return now.ss_sp == memory.data();
    }

    std::vector<char> memory;
};

void inACatchBlock(void (*body)()) {
    try {
        throw 42;
    } catch (int number) {
        body();
        EXPECT_EQ(number, 42);
    }
    EXPECT_FALSE(std::current_exception()) << "an exception counts as handled although its catch block has ended";
}

void whileUnwinding(void (*body)()) {
    auto const unwind = [body] {
        RunsAtTheEnd const destructor{body};
        throw std::runtime_error("in flight");
    };
    EXPECT_THROW(unwind(), std::runtime_error);
}

void insideAnotherGuard(void (*body)()) {
    bool hasResumed = false;
    EXPECT_TRUE(guarded([&] {
        body();
        hasResumed = true;
        readNull();
    }));
    EXPECT_TRUE(hasResumed);
}

void withUnusualSettings(void (*body)()) {
    sigset_t mask;
    sigfillset(&mask);
    sigdelset(&mask, SIGUSR1);  // one situation lives in its handler
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, &mask, &before);
    fesetround(FE_DOWNWARD);
    body();
    fesetround(FE_TONEAREST);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(FaultGuard, ReturnsEveryFaultAndRestoresTheThread) {
    expectAllFaults();
    onThread(expectAllFaults);
    for (auto const surround : {inACatchBlock, whileUnwinding, insideAnotherGuard, withUnusualSettings}) {
        surround(expectAllFaults);
    }
}

TEST(FaultGuard, KeepsWhatTheBodyChanged) {
    onThread([] {
        EXPECT_FALSE(guarded([] {
            fesetround(FE_UPWARD);
            sigset_t user;
            sigemptyset(&user);
            sigaddset(&user, SIGUSR2);
            pthread_sigmask(SIG_BLOCK, &user, nullptr);
        }));
        EXPECT_EQ(fegetround(), FE_UPWARD);
        EXPECT_TRUE(isBlocked(SIGUSR2));
        std::string const before = threadState();
        EXPECT_THROW(guarded([] { throw std::out_of_range("T"); }), std::out_of_range);
        EXPECT_EQ(threadState(), before);
    });
}

TEST(FaultGuard, UsesALargeAlternateStack) {
    struct Row {
        char const* name;
        std::size_t byteSize;
        int flags;
        bool isUsed;
    };
    constexpr int kSelfDisarming = INT32_MIN;
    auto const enough = (64 << 10) + static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ));
    Row const rows[] = {
        {"JustLargeEnough", enough, 0, true},
        {"OneByteShort", enough - 1, 0, false},
        {"Fickle", enough, kSelfDisarming, false}};
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        HostStack const host(row.byteSize, row.flags);
        guarded([&] { EXPECT_EQ(host.isInstalled(), row.isUsed); });
        expectAllFaults();
        EXPECT_TRUE(host.isInstalled());
    }
}

TEST(FaultGuard, LeavesAnAlternateStackInUse) {
    {
        HostStack const host(40 << 10);
        HostAction const action(SIGUSR2, actionOf([](int) { EXPECT_TRUE(guarded(readNull)); }, SA_ONSTACK));
        std::raise(SIGUSR2);
        EXPECT_TRUE(host.isInstalled());
    }
    std::optional<HostStack> fresh;
    EXPECT_TRUE(guarded([&fresh] {
        fresh.emplace(40 << 10);
        readNull();
    }));
    EXPECT_TRUE(fresh->isInstalled());
}

/// Pages of the process that are resident, and how many mappings it has.
std::pair<long, long> memoryInUse() {
    std::ifstream maps("/proc/self/maps");
    long const mappings = std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {pages, mappings};
}

TEST(FaultGuard, DoesNotGrow) {
    auto const faultOften = [](int times, int threads) {
        for (int i = 0; i < times; ++i) {
            runGuarded([](void*) { readNull(); }, nullptr);
        }
        for (int i = 0; i < threads; ++i) {
            onThread([] {
                // Built before the thread's first guarded call, so destroyed after whatever that call keeps.
                static thread_local RunsAtTheEnd const late{[] { EXPECT_TRUE(guarded(readNull)); }};
                EXPECT_TRUE(late.body);
                EXPECT_TRUE(guarded(readNull));
            });
        }
    };
    faultOften(1000, 1);
    auto const before = memoryInUse();
    faultOften(100'000, 20);
    auto const after = memoryInUse();
    EXPECT_LT(after.first - before.first, 256);
    EXPECT_LE(after.second, before.second + 2);
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

/// What a handler of the host has seen since this was cleared.
struct HandlerLog {
    int calls = 0, signal = 0, code = 0;
    bool hasInfo = false, isUserSignalBlocked = false, isOwnSignalBlocked = false;
    friend bool operator==(HandlerLog const&, HandlerLog const&) = default;
};
HandlerLog handlerLog;
void* lastContext = nullptr;

void note(int signal, siginfo_t* info, void* context) {
    bool const hasInfo = info != nullptr && info->si_signo == signal;
    int const code = hasInfo ? info->si_code : 0;
    handlerLog = {handlerLog.calls + 1, signal, code, hasInfo, isBlocked(SIGUSR2), isBlocked(signal)};
    lastContext = context;
}
template <int times>
void noteOften(int signal, siginfo_t* info, void* context) {
    for (int i = 0; i < times; ++i) {
        note(signal, info, context);
    }
}
void notePlainly(int signal) {
    note(signal, nullptr, nullptr);
}

sigjmp_buf escape;
void escapeByJump(int) {
    siglongjmp(escape, 1);
}
void escapeFromAFault() {
    if (sigsetjmp(escape, 1) == 0) {
        readNull();
        ADD_FAILURE() << "the fault went unnoticed";
    }
}

TEST(HostHandlers, GetSentSignalsInTheirOwnStyle) {
    for (int const signal : kFaultSignals) {
        struct Row {
            char const* name;
            struct sigaction action;
            HandlerLog log;
            bool restarts;  ///< system calls that the signal interrupts
        };
        Row const rows[] = {
            {"WithInfo", actionOf(note, SA_RESTART), {1, signal, SI_TKILL, true, true, true}, true},
            {"OtherFlags", actionOf(note, SA_RESTART | SA_NODEFER), {1, signal, SI_TKILL, true, true, false}, true},
            {"OtherMask", actionOf(note, SA_RESTART, SIGUSR1), {1, signal, SI_TKILL, true, false, true}, true},
            {"OtherHandler", actionOf(noteOften<2>, SA_RESTART), {2, signal, SI_TKILL, true, true, true}, true},
            {"ForOneTime", actionOf(notePlainly, SA_NODEFER | SA_RESETHAND), {1, signal, 0, false, true, false}, false},
            {"Ignored", actionOf(SIG_IGN, 0), {}, true},
        };
        for (Row const& row : rows) {
            SCOPED_TRACE(testing::Message() << row.name << signal);
            HostAction const host(signal, row.action);
            handlerLog = {};
            EXPECT_FALSE(guarded([&] {
                EXPECT_EQ((currentAction(signal).sa_flags & SA_RESTART) != 0, row.restarts);
                std::raise(signal);
            }));
            EXPECT_TRUE(handlerLog == row.log);
            bool const isUsedUp = (row.action.sa_flags & static_cast<int>(SA_RESETHAND)) != 0;
            EXPECT_EQ(currentAction(signal).sa_handler, isUsedUp ? SIG_DFL : row.action.sa_handler);
        }
    }
}

TEST(HostHandlers, GetMemoryErrorsOfTheMachine) {
    HostAction const host(SIGBUS, actionOf(note, 0));
    for (int const code : {BUS_MCEERR_AR, BUS_MCEERR_AO}) {
        handlerLog = {};
        siginfo_t info = {};
        info.si_signo = SIGBUS;
        info.si_code = code;
        EXPECT_FALSE(guarded([&info] { syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGBUS, &info); }));
        EXPECT_EQ(handlerLog.calls, 1);
    }
}

TEST(HostHandlers, SeeOnlyFaultsOfUnguardedThreads) {
    HostAction const host(SIGSEGV, actionOf(escapeByJump, SA_NODEFER));
    guarded([] {
        expectAllFaults();
        onThread([] {
            escapeFromAFault();
            escapeFromAFault();
        });
        HostAction const late(SIGSEGV, actionOf([](int) { std::abort(); }, 0));
        onThread([] { EXPECT_TRUE(guarded(readNull)) << "the next outermost guard is on top again"; });
    });
    expectAllFaults();
}

TEST(HostHandlers, SeeTheContextAfterTheLastGuard) {
    HostAction const host(SIGSEGV, actionOf(note, 0));
    struct sigaction ours = {};
    guarded([&ours] { ours = currentAction(SIGSEGV); });
    siginfo_t info = {};
    ucontext_t context = {};
    info.si_signo = SIGSEGV;
    for (int const code : {int{SEGV_MAPERR}, int{SI_QUEUE}}) {
        handlerLog = {};
        info.si_code = code;
        ours.sa_sigaction(SIGSEGV, &info, &context);  // on its way while the last guard left
        EXPECT_EQ(handlerLog.code, code);
        EXPECT_EQ(lastContext, &context);
    }
    ours.sa_sigaction(SIGSEGV, nullptr, nullptr);
    EXPECT_EQ(handlerLog.calls, 2) << "nobody tells where it came from";
    sigaction(SIGSEGV, &ours, nullptr);  // somebody had saved the dispositions inside a guard
    std::raise(SIGSEGV);
    EXPECT_EQ(handlerLog.calls, 3);
    EXPECT_TRUE(guarded(readNull));
}

/// Handlers of the kind that counts and calls the one it has replaced.
struct Cover {
    struct sigaction beneath;
    int calls;
    bool isInstalled;
};
constexpr int kCovers = 7;
Cover covers[kCovers];

template <int n>
void cover(int signal, siginfo_t* info, void* context) {
    ++covers[n].calls;
    if ((covers[n].beneath.sa_flags & SA_SIGINFO) != 0) {
        covers[n].beneath.sa_sigaction(signal, info, context);
    }
    EXPECT_FALSE(isBlocked(SIGUSR2)) << "the mask of the handler below is in force after it";
}
constexpr FaultSignals::Handler kCoverHandlers[] = {cover<0>, cover<1>, cover<2>, cover<3>,
                                                    cover<4>, cover<5>, cover<6>};

void install(int n) {
    struct sigaction const action = actionOf(kCoverHandlers[n], SA_ONSTACK | (n % 2 == 0 ? SA_RESTART : 0), SIGUSR1);
    sigaction(SIGSEGV, &action, &covers[n].beneath);
    covers[n].isInstalled = true;
}

void uninstall(int n) {
    sigaction(SIGSEGV, &covers[n].beneath, nullptr);
    covers[n].isInstalled = false;
}

/// Each way in which a SIGSEGV that somebody sent can meet a guard: every handler sees it once.
void expectAllReached() {
    void (*const ways[])() = {
        [] { std::raise(SIGSEGV); },
        [] { EXPECT_FALSE(guarded([] { std::raise(SIGSEGV); })); },
        [] { guarded([] { std::thread([] { std::raise(SIGSEGV); }).join(); }); },
    };
    for (auto const send : ways) {
        handlerLog = {};
        std::for_each(std::begin(covers), std::end(covers), [](Cover& c) { c.calls = 0; });
        send();
        EXPECT_EQ(handlerLog.calls, 1);
        for (Cover const& c : covers) {
            EXPECT_EQ(c.calls, c.isInstalled ? 1 : 0) << "cover " << &c - covers;
        }
    }
}

TEST(HostHandlers, AreAllReachedWhoeverCoversUs) {
    HostAction const host(SIGSEGV, actionOf(note, 0));
    std::mt19937 random(17);
    int count = 0;
    for (int step = 0; step < 400 && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(testing::Message() << "step " << step << " from " << count << " covers");
        auto const action = random() % 4;
        if (action == 0 && count < kCovers) {
            install(count++);
        } else if (action == 1 && count < kCovers) {
            guarded([&count] {
                install(count++);
                EXPECT_TRUE(guarded(readNull)) << "a covered guard gets what the cover passes on";
            });
        } else if (action == 2 && count > 0) {
            guarded([] {});  // takes ours away, so that the cover is on top and can leave
            uninstall(--count);
        } else {
            expectAllReached();
        }
        EXPECT_TRUE(guarded(readNull));
    }
}

TEST(HostHandlers, MayCoverUsForEver) {
    HostAction const host(SIGSEGV, actionOf(note, 0));
    for (int call = 0; call < 100; ++call) {
        guarded([] { install(0); });
        handlerLog = {};
        EXPECT_FALSE(guarded([] { std::raise(SIGSEGV); }));
        EXPECT_EQ(handlerLog.calls, 1) << "reached although the cover calls itself through us";
        EXPECT_TRUE(guarded(readNull));
    }
}

TEST(HostHandlers, AreAskedAgainAfterAJump) {
    HostAction const host(SIGSEGV, actionOf(escapeByJump, SA_NODEFER));
    HostStack const stack(128 << 10);  // where every signal has its context at the same place
    struct sigaction ours = {};
    guarded([&ours] { ours = currentAction(SIGSEGV); });
    HostAction const above(SIGSEGV, ours);
    escapeFromAFault();
    install(0);
    escapeFromAFault();
    uninstall(0);
}

TEST(HostHandlers, AreNeverLostBetweenGuards) {
    HostAction const before(SIGSEGV, actionOf(note, 0));
    GuardingThread const other;
    int lost = 0;
    for (int round = 0; round < 200; ++round) {
        HostAction const late(SIGSEGV, actionOf(round % 2 == 0 ? noteOften<2> : noteOften<3>, 0));
        for (long const start = other.calls; other.calls < start + 2;) {
            std::this_thread::yield();
        }
        handlerLog = {};
        std::raise(SIGSEGV);
        lost += handlerLog.calls != 2 + round % 2;
    }
    EXPECT_EQ(lost, 0);
}

TEST(HostHandlers, HaveRoomOnAGuardedThread) {
    HostAction const host(SIGUSR2, actionOf([](int) { useStack(150 << 10); }, SA_ONSTACK));
    onThread([] { EXPECT_FALSE(guarded([] { std::raise(SIGUSR2); })); });
}

void unguardedFault() {
    guarded([] { std::thread(readNull).join(); });
}

TEST(HostHandlersDeathTest, DefaultsEndTheProcessAsWithoutUs) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Row {
        char const* name;
        int signal;
        void (*end)();
    };
    Row const rows[] = {
        {"UnguardedFault", SIGSEGV, unguardedFault},
        {"SentSignal", SIGBUS, [] { guarded([] { std::raise(SIGBUS); }); }},
        {"IgnoredFault", SIGSEGV,
         [] {
             HostAction const host(SIGSEGV, actionOf(SIG_IGN, 0));
             unguardedFault();
         }},
        {"Circle", SIGSEGV,  // between ours and one that has saved ours
         [] {
             guarded([] { install(0); });
             install(0);
             guarded([] { std::raise(SIGSEGV); });
         }},
        {"HandlerAtTheEndOfItsStack", SIGSEGV,
         [] {
             HostAction const host(SIGUSR2, actionOf([](int) { useStack(8 << 20); }, SA_ONSTACK));
             onThread([] { guarded([] { std::raise(SIGUSR2); }); });
         }},
    };
    for (Row const& row : rows) {
        EXPECT_EXIT(row.end(), testing::KilledBySignal(row.signal), "") << row.name;
    }
}

TEST(FaultGuard, WorksInAForkedChild) {
    std::string const before = threadState();
    GuardingThread const other;
    for (int i = 0; i < 100 && !testing::Test::HasFailure(); ++i) {
        pid_t const child = fork();
        if (child == 0) {
            alarm(20);  // ends a child that hangs
            bool const asBefore = threadState() == before;
            _exit(asBefore && runGuarded([](void*) { readNull(); }, nullptr) && threadState() == before ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Platform
