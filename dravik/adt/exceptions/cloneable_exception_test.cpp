// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/cloneable_exception.h"

#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/exceptions/nested_exception.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/exceptions/system_error.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/fault_situations.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

using ConstPtr = ICloneableException::ConstPtr;

static_assert(std::is_abstract_v<SimpleException> && std::is_abstract_v<NestedException>);
static_assert(std::is_abstract_v<ClonedException> && std::is_base_of_v<ClonedStdException, MemoryException>);
static_assert(std::is_base_of_v<SimpleException, ObjectDisposedException>);
static_assert(std::is_copy_assignable_v<NotSupportedException> && !std::is_copy_assignable_v<ClonedStdException>);
static_assert(std::is_nothrow_copy_constructible_v<PlainException>);
static_assert(!std::is_base_of_v<std::runtime_error, PlainException>);

struct Nested : Cloneable<Nested, NestedException> {
    template <class... Arguments>
    explicit Nested(Arguments const&... arguments) : Cloneable(arguments...) {}
    Nested(Nested const&) = default;
    Nested& operator=(Nested const&) = default;
};

struct OwnError : std::out_of_range {
    OwnError() : std::out_of_range("T") {}
};

struct Wordless : std::exception {
    char const* what() const noexcept override { return nullptr; }
};

/// Capturing finds no memory from this allocation on.
constexpr int kNever = INT_MAX;
int shortFrom = kNever;

template <class Thrown>
ConstPtr captured(Thrown const& thrown) {
    try {
        throw thrown;
    } catch (...) {
        std::optional<Testing::ArmedFailure> armed;
        if (shortFrom != kNever) {
            armed.emplace(Testing::AllocationFailure::plan(), shortFrom, Testing::Failing::kFromThereOn);
        }
        return ClonedException::catchException();
    }
}

/// What a thrown exception becomes when it is captured.
struct Kind {
    ConstPtr exception;
    std::type_info const& type;
    char const* message;
    std::type_info const* source = nullptr;
};

std::vector<Kind> everyKind() {
    static char text[] = "text";
    std::bad_alloc const noMemory;
    return {
        {captured(NotImplementedException("T")), typeid(NotImplementedException), "Not implemented: T"},
        {captured(NotSupportedException("T")), typeid(NotSupportedException), "Unsupported: T"},
        {captured(NotSupportedException("W", "T")), typeid(NotSupportedException), "[W] Unsupported: T"},
        {captured(ObjectDisposedException("T")), typeid(ObjectDisposedException), "Use of disposed object: T"},
        {captured(SystemError(2)), typeid(SystemError), "[SystemError] No such file or directory"},
        {captured(Nested("A", ClonedStrException("B"))), typeid(Nested), "A: B"},
        {captured(MemoryException(noMemory, "C", 3000000)), typeid(MemoryException),
         "Failed to allocate 3 MiB memory: std::bad_alloc exception in C", &typeid(std::bad_alloc)},
        {captured(MemoryException(std::bad_array_new_length(), "C", 0)), typeid(MemoryException),
         "Failed to allocate memory: std::bad_array_new_length exception in C", &typeid(std::bad_array_new_length)},
        {captured<char const*>("text"), typeid(ClonedStrException), "text", &typeid(char*)},
        {captured<char*>(text), typeid(ClonedStrException), "text", &typeid(char*)},
        {captured<char const*>(nullptr), typeid(ClonedStrException), "", &typeid(char*)},
        {captured(noMemory), typeid(MemoryException), "Failed to allocate memory: std::bad_alloc exception",
         &typeid(std::bad_alloc)},
        {captured(std::runtime_error("T")), typeid(ClonedStdException), "std::runtime_error: T",
         &typeid(std::runtime_error)},
        {captured(Wordless()), typeid(ClonedStdException),
         "Quorvel::Dravik::Adt::Exceptions::(anonymous namespace)::Wordless: ", &typeid(Wordless)},
        {captured(OwnError()), typeid(ClonedStdException),
         "Quorvel::Dravik::Adt::Exceptions::(anonymous namespace)::OwnError: T", &typeid(OwnError)},
        {captured(PlainException("Why.")), typeid(ClonedStdException),
         "Quorvel::Dravik::Adt::Exceptions::PlainException: Why.", &typeid(PlainException)},
        {captured(42), typeid(UnknownException), "Caught exception of unknown type.", &typeid(void)},
    };
}

TEST(CloneableExceptions, AreOfTheFirstKindThatFits) {
    for (Kind const& row : everyKind()) {
        SCOPED_TRACE(row.type.name());
        ASSERT_TRUE(row.exception);
        auto const* const cloned = dynamic_cast<ClonedException const*>(row.exception.get());
        EXPECT_EQ(cloned != nullptr ? &cloned->exceptionType() : nullptr, row.source);
        try {
            row.exception->clone()->throwClone();
        } catch (ICloneableException const& thrown) {
            EXPECT_TRUE(typeid(thrown) == row.type) << typeid(thrown).name();
            EXPECT_EQ(thrown.msg(), row.message);
            EXPECT_STREQ(thrown.what(), row.message);
        }
    }
}

TEST(CloneableExceptions, SlicedCopyReportsTheFixedText) {
    Detail::StdExceptionText const sliced = NotImplementedException("gone");
    EXPECT_STREQ(
        sliced.what(), "<Exception message is stored in derived class. std::exception must be caught by reference to "
                       "preserve exception info.>");
}

TEST(CatchException, NeedsNoMemoryForItsLastResort) {
    bool areWhole = false;
    for (shortFrom = 0; !areWhole && !testing::Test::HasFailure(); ++shortFrom) {
        areWhole = true;
        for (Kind const& row : everyKind()) {
            ASSERT_TRUE(row.exception);
            ICloneableException const& clone = *row.exception;
            areWhole = areWhole && clone.msg() == row.message;
            EXPECT_TRUE(typeid(clone) == row.type || typeid(clone) == typeid(MemoryException)) << clone.msg();
        }
    }
    EXPECT_GT(std::exchange(shortFrom, kNever), 1);
}

struct NeverCloned : Nested {
    explicit NeverCloned(bool fails) : throws(fails) {}
    ConstPtr clone() const override { return throws ? throw 1 : ConstPtr(); }
    bool throws;
};

TEST(CatchException, TakesAFailureToCloneForUnknown) {
    EXPECT_EQ(captured(NeverCloned(false))->msg(), "Caught exception of unknown type.");
    EXPECT_EQ(captured(NeverCloned(true))->msg(), "Caught exception of unknown type.");
}

struct Known {};
struct Both {};

/// Knows what it can rethrow as T.
template <class T>
ConstPtr recognise(char const* name) {
    try {
        throw;
    } catch (T const&) {
        return ClonedStrException(name).clone();
    } catch (...) {
        return {};
    }
}

TEST(CatchException, AsksHandlersInOrder) {
    static int laterCalls = 0;
    ClonedException::registerExceptionHandler({});
    ClonedException::registerExceptionHandler([]() -> ConstPtr { throw std::runtime_error("handler failed"); });
    ClonedException::registerExceptionHandler([]() -> ConstPtr { throw; });
    ClonedException::registerExceptionHandler([] { return recognise<Known>("known"); });
    ClonedException::registerExceptionHandler([] { return recognise<Both>("first"); });
    ClonedException::registerExceptionHandler([] {
        ++laterCalls;
        return recognise<Both>("second");
    });

    EXPECT_EQ(captured(Known())->msg(), "known");
    EXPECT_EQ(captured(Both())->msg(), "first");
    EXPECT_EQ(laterCalls, 0) << "a handler was asked although an earlier one knew the exception";
    EXPECT_EQ(captured(42)->msg(), "Caught exception of unknown type.");
    EXPECT_EQ(captured(std::runtime_error("T"))->msg(), "std::runtime_error: T");
    EXPECT_EQ(laterCalls, 1) << "handlers are for what the library does not know itself";
}

TEST(CatchException, LetsThreadCancellationPass) {
    bool hasReturned = false;
    std::thread([&hasReturned] {
        try {
            pthread_exit(nullptr);
        } catch (...) {
            ClonedException::catchException();
        }
        hasReturned = true;
    }).join();
    EXPECT_FALSE(hasReturned);
}

TEST(MemoryException, WritesAmountsBelowAThousand) {
    struct Row {
        unsigned int bytes;
        char const* amount;
    };
    constexpr Row kRows[] = {
        {1, "1 bytes"},     {999, "999 bytes"},   {1000, "1 KiB"},        {1024, "1 KiB"},
        {1025, "2 KiB"},    {1022976, "999 KiB"}, {1022977, "1 MiB"},     {1048576, "1 MiB"},
        {1048577, "2 MiB"}, {3000000, "3 MiB"},   {4294967295u, "4 GiB"},
    };
    for (Row const& row : kRows) {
        MemoryException const exception(std::bad_alloc(), "SharedBuffer", row.bytes);
        EXPECT_EQ(
            exception.msg(),
            std::string("Failed to allocate ") + row.amount + " memory: std::bad_alloc exception in SharedBuffer");
        EXPECT_TRUE(exception.hasAllocationAmount());
        EXPECT_EQ(exception.getAllocationAmount(), row.bytes);
    }
    EXPECT_FALSE(MemoryException(std::bad_alloc()).hasAllocationAmount());
}

TEST(NestedException, ChainsTheMessagesOfOuterAndInner) {
    EXPECT_EQ(Nested("A", Nested("B", NotImplementedException("C"))).msg(), "A: B: Not implemented: C");
    EXPECT_EQ(Nested("", ClonedStrException("B")).msg(), ": B") << "the separator stands after an empty outer message";
    EXPECT_EQ(Nested("A", ConstPtr()).msg() + Nested("B").msg() + Nested().msg(), "AB");
    Nested nested("A", std::runtime_error("B"));
    EXPECT_EQ(nested.msg(), "A: std::runtime_error: B");
    nested.setInnerException(static_cast<std::exception const&>(MemoryException(std::bad_alloc(), "C", 7)));
    EXPECT_TRUE(dynamic_cast<MemoryException const*>(nested.innerException().get())) << "keeps its type";
    EXPECT_EQ(nested.msg(), "A: Failed to allocate 7 bytes memory: std::bad_alloc exception in C");
}

TEST(NestedException, CopiesShareTheirInnerException) {
    Nested const source("A", ClonedStrException("B"));
    Nested copy = source;
    EXPECT_EQ(copy.innerException(), source.innerException());
    copy.setOuterMsg("X");
    EXPECT_EQ(copy.msg(), "X: B");
    EXPECT_EQ(copy.outerMsg(), "X");
    EXPECT_EQ(source.msg(), "A: B");
    copy.setInnerException(ConstPtr());
    EXPECT_EQ(copy.msg(), "X");
}

/// Runs what returns 1.
void run(int (*fn)(void*)) {
    ConstPtr failure;
    int result = -1;
    EXPECT_NO_THROW(result = ClonedException::runAndCatchException(fn, nullptr, &failure));
    EXPECT_EQ(result, failure ? 0 : 1);
}

bool isUsedAtExit = false;
bool isKept = true;

/// Registered before the loader registers its own end, and so called when every destructor of every library has run, as
/// happens to a host's static beside a plug-in.
void useAtExit(int, void*) {
    if (isUsedAtExit) {
        ConstPtr failure;
        ClonedException::runAndCatchException([](void*) { return Testing::readNull(), 1; }, nullptr, &failure);
        bool const isNamed = failure->msg().find(" in module cloneable_exception_test (") != std::string::npos;
        std::_Exit(isNamed && isKept && captured(Known())->msg() == "at exit" && captured(42) ? 0 : 1);
    }
}
[[gnu::used, gnu::section(".preinit_array")]] void (*const registerFirst)() = [] { on_exit(&useAtExit, nullptr); };

TEST(ExceptionsDeathTest, ServeUntilTheVeryEnd) {
    auto const end = [] {
        boost::shared_ptr<bool> const handlerState(&isKept, [](bool* kept) { *kept = false; });
        ClonedException::registerExceptionHandler([handlerState] { return recognise<Known>("at exit"); });
        run([](void*) { return Testing::readNull(), 1; });
        isUsedAtExit = true;
        std::exit(2);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "");
}

struct Scene {
    Nested nested{"a text of more than fifteen characters", std::runtime_error("T")};
};

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"capturing, cloning and throwing each kind", Testing::Fails::kBoth,
     [](Scene&) {
         for (Kind const& kind : everyKind()) {
             Testing::refused<ICloneableException>([&] { kind.exception->clone()->throwClone(); });
         }
     }},
    {"capturing what becomes of a call", Testing::Fails::kBoth,
     [](Scene&) { run([](void*) { return Testing::callOut("fn"), int(std::vector<char>(1).size()); }); }},
    {"capturing a fault", Testing::Fails::kAllocations,
     [](Scene&) { run([](void*) { return Testing::readNull(), 1; }); }},
    {"changing a nested exception", Testing::Fails::kAllocations,
     [](Scene& s) {
         s.nested.setOuterMsg("another text of more than fifteen characters");
         s.nested.setInnerException(std::logic_error("T"));
         s.nested = Nested(std::string(100, 'x'), s.nested);
     },
     [](Scene& s, bool) { EXPECT_EQ(s.nested.msg(), s.nested.outerMsg() + ": " + s.nested.innerException()->msg()); }},
};

TEST(Exceptions, SurviveEveryFailure) {
    Testing::failUntilMade("registering a handler", [] {
        ClonedException::registerExceptionHandler([large = std::array<char, 100>()] {
            Testing::callOut("handler");
            return large[0] == 0 ? ConstPtr() : UnknownException().clone();
        });
    });
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions
