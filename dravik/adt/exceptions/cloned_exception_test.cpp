#include "dravik/adt/exceptions/cloned_exception.h"

#include "dravik/adt/exceptions/cloned_str_exception.h"
#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/exceptions/not_supported_exception.h"
#include "dravik/adt/exceptions/unknown_exception.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <stdexcept>
#include <thread>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

static_assert(std::is_copy_constructible_v<ClonedStdException> && !std::is_copy_assignable_v<ClonedStdException>);

using ConstPtr = ICloneableException::ConstPtr;

/// The dynamic type.
std::type_info const& typeOf(ICloneableException const& exception) {
    return typeid(exception);
}

template <class Thrown>
ConstPtr captured(Thrown const& thrown) {
    try {
        throw thrown;
    } catch (...) {
        return ClonedException::catchException();
    }
}

struct OwnError : std::out_of_range {
    OwnError() : std::out_of_range("T") {}
};

TEST(CatchException, TakesTheFirstKindThatFits) {
    struct Row {
        char const* name;
        ConstPtr clone;
        std::type_info const& type;
        std::type_info const& source;
        char const* message;
    };
    char text[] = "text";
    Row const rows[] = {
        {"String", captured<char const*>("text"), typeid(ClonedStrException), typeid(char*), "text"},
        {"WritableString", captured<char*>(text), typeid(ClonedStrException), typeid(char*), "text"},
        {"NullString", captured<char const*>(nullptr), typeid(ClonedStrException), typeid(char*), ""},
        {"BadAllocBeforeStandard", captured(std::bad_alloc()), typeid(MemoryException), typeid(std::bad_alloc),
         "Failed to allocate memory: std::bad_alloc exception"},
        {"DerivedBadAlloc", captured(std::bad_array_new_length()), typeid(MemoryException),
         typeid(std::bad_array_new_length), "Failed to allocate memory: std::bad_array_new_length exception"},
        {"Standard", captured(std::runtime_error("T")), typeid(ClonedStdException), typeid(std::runtime_error),
         "std::runtime_error: T"},
        {"DynamicTypeOfTheClient", captured(OwnError()), typeid(ClonedStdException), typeid(OwnError),
         "Quorvel::Dravik::Adt::Exceptions::(anonymous namespace)::OwnError: T"},
        {"Int", captured(42), typeid(UnknownException), typeid(void), "Caught exception of unknown type."},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(typeOf(*row.clone) == row.type) << typeOf(*row.clone).name();
        EXPECT_EQ(row.clone->msg(), row.message);
        auto const& cloned = dynamic_cast<ClonedException const&>(*row.clone);
        EXPECT_TRUE(cloned.exceptionType() == row.source) << cloned.exceptionType().name();
        EXPECT_THROW(row.clone->throwClone(), ICloneableException);
    }
}

TEST(CatchException, KeepsMembersOfTheTreeWhole) {
    ConstPtr const clone = captured(MemoryException(std::bad_alloc(), "SharedBuffer", 3000000));
    auto const* const memory = dynamic_cast<MemoryException const*>(clone.get());
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory->getAllocationAmount(), 3000000u);
    EXPECT_EQ(memory->msg(), "Failed to allocate 3 MiB memory: std::bad_alloc exception in SharedBuffer");
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

TEST(CatchException, AsksHandlersInOrderUntilOneKnowsTheException) {
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

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions
