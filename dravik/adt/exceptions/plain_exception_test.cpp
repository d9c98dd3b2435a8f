#include "dravik/adt/exceptions/plain_exception.h"

#include "dravik/adt/exceptions/cloned_exception.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

static_assert(std::is_nothrow_copy_constructible_v<PlainException>);
static_assert(!std::is_base_of_v<std::runtime_error, PlainException>);

TEST(PlainException, IsClonedUnderItsOwnName) {
    try {
        throw PlainException("Why.");
    } catch (...) {
        EXPECT_EQ(ClonedException::catchException()->msg(), "Quorvel::Dravik::Adt::Exceptions::PlainException: Why.");
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions
