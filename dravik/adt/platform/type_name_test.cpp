#include "dravik/adt/platform/type_name.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

class Local {};

TEST(ReadableTypeName, KeepsNamespacesAndDropsNothingElse) {
    EXPECT_EQ(readableTypeName(typeid(int)), "int");
    EXPECT_EQ(readableTypeName(typeid(std::bad_alloc)), "std::bad_alloc");
    EXPECT_EQ(readableTypeName(typeid(std::runtime_error)), "std::runtime_error");
    EXPECT_EQ(readableTypeName(typeid(Local)), "Quorvel::Dravik::Adt::Platform::(anonymous namespace)::Local");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Platform
