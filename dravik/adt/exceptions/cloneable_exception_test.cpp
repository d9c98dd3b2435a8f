#include "dravik/adt/exceptions/cloneable_exception.h"

#include "dravik/adt/exceptions/cloned_str_exception.h"
#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/exceptions/nested_exception.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"
#include "dravik/adt/exceptions/not_supported_exception.h"
#include "dravik/adt/exceptions/object_disposed_exception.h"
#include "dravik/adt/exceptions/unknown_exception.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

constexpr char const* kFixedText =
    "<Exception message is stored in derived class. std::exception must be caught by reference to preserve exception "
    "info.>";

static_assert(std::is_abstract_v<SimpleException> && std::is_abstract_v<NestedException>);
static_assert(std::is_abstract_v<ClonedException> && std::is_base_of_v<ClonedStdException, MemoryException>);
static_assert(std::is_base_of_v<SimpleException, ObjectDisposedException>);
static_assert(std::is_copy_assignable_v<NotSupportedException>);

/// The dynamic type.
std::type_info const& typeOf(ICloneableException const& exception) {
    return typeid(exception);
}

class Nested : public NestedException {
  public:
    Nested() = default;
    template <class... Inner>
    explicit Nested(std::string const& outerMsg, Inner const&... inner) : NestedException(outerMsg, inner...) {}

    ConstPtr clone() const override { return boost::make_shared<Nested>(*this); }
    [[noreturn]] void throwClone() const override { throw Nested(*this); }
};

TEST(CloneableExceptions, CloneAndThrowKeepTypeAndMessage) {
    struct Row {
        ICloneableException::ConstPtr exception;
        char const* message;
    };
    auto const of = [](auto const& exception) { return exception.clone(); };
    Row const rows[] = {
        {of(NotImplementedException("T")), "Not implemented: T"},
        {of(NotSupportedException("T")), "Unsupported: T"},
        {of(NotSupportedException("W", "T")), "[W] Unsupported: T"},
        {of(ObjectDisposedException("T")), "Use of disposed object: T"},
        {of(ClonedStdException(std::runtime_error("T"))), "std::runtime_error: T"},
        {of(ClonedStrException("T")), "T"},
        {of(UnknownException()), "Caught exception of unknown type."},
        {of(MemoryException(std::bad_alloc())), "Failed to allocate memory: std::bad_alloc exception"},
        {of(MemoryException(std::bad_array_new_length(), "C", 0)),
         "Failed to allocate memory: std::bad_array_new_length exception in C"},
        {of(Nested("A", ClonedStrException("B"))), "A: B"},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(row.exception->msg(), row.message);
        EXPECT_STREQ(row.exception->what(), row.message);
        auto const clone = row.exception->clone();
        EXPECT_EQ(clone->msg(), row.message);
        EXPECT_TRUE(typeOf(*clone) == typeOf(*row.exception)) << row.message;
        try {
            clone->throwClone();
        } catch (std::exception const& thrown) {
            EXPECT_TRUE(typeid(thrown) == typeOf(*row.exception)) << row.message;
            EXPECT_STREQ(thrown.what(), row.message);
            EXPECT_NE(&thrown, clone.get());
        }
    }
}

TEST(CloneableExceptions, SlicedCopyReportsTheFixedText) {
    Detail::StdExceptionText const sliced = NotImplementedException("gone");
    EXPECT_STREQ(sliced.what(), kFixedText);
}

TEST(MemoryException, WritesAmountsInTheFirstUnitBelowAThousand) {
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
    EXPECT_EQ(Nested("A").msg(), "A");
    EXPECT_EQ(Nested("A", ICloneableException::ConstPtr()).msg(), "A");
    EXPECT_EQ(Nested().msg(), "");
}

TEST(NestedException, KeepsTheTypeOfACloneableInnerException) {
    Nested nested("A", std::runtime_error("B"));
    EXPECT_EQ(nested.msg(), "A: std::runtime_error: B");
    nested.setInnerException(static_cast<std::exception const&>(MemoryException(std::bad_alloc(), "C", 7)));
    auto const inner = nested.innerException();
    auto const* const memory = dynamic_cast<MemoryException const*>(inner.get());
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory->getAllocationAmount(), 7u);
    EXPECT_EQ(nested.msg(), "A: Failed to allocate 7 bytes memory: std::bad_alloc exception in C");
}

TEST(NestedException, CopiesChangeApartAndShareTheirInnerException) {
    Nested const source("A", ClonedStrException("B"));
    Nested copy = source;
    EXPECT_EQ(copy.innerException(), source.innerException());
    copy.setOuterMsg("X");
    EXPECT_EQ(copy.msg(), "X: B");
    EXPECT_EQ(copy.outerMsg(), "X");
    EXPECT_EQ(source.msg(), "A: B");
    copy.setInnerException(ICloneableException::ConstPtr());
    EXPECT_EQ(copy.msg(), "X");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions
