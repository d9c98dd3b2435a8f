// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/testing/live_objects.h"

#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::Testing {
namespace {

struct NothingIsLeft : testing::Environment {
    void TearDown() override { EXPECT_EQ(liveObjects(), "") << "left at the end of the program"; }
};

[[maybe_unused]] auto const* const kCheck = testing::AddGlobalTestEnvironment(new NothingIsLeft);

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Testing
