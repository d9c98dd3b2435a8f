#include "dravik/adt/exceptions/plain_exception.h"

#include "dravik/adt/exceptions/cloned_exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

static_assert(std::is_nothrow_copy_constructible_v<PlainException>);
static_assert(!std::is_base_of_v<std::runtime_error, PlainException>);

TEST(PlainException, CarriesItsMessageAsTheStandardBase) {
    EXPECT_THAT(
        [] { throw PlainException("[Where] Why."); },
        testing::Throws<std::exception>(testing::Property(&std::exception::what, testing::StrEq("[Where] Why."))));
}

TEST(PlainException, IsClonedUnderItsOwnName) {
    try {
        throw PlainException("Why.");
    } catch (...) {
        EXPECT_EQ(ClonedException::catchException()->msg(), "Quorvel::Dravik::Adt::Exceptions::PlainException: Why.");
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions
