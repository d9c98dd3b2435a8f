// SPDX-License-Identifier: Apache-2.0
// Filters alone and stacked, through the conformance script.

#include "dravik/adt/testing/filter_stacks.h"
#include "dravik/adt/testing/region_law.h"

#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

TEST(FilterStacks, Conform) {
    Testing::BrickOptions const kinds[] = {
        {},
        {.fastestAxis = 2, .padding = 3, .backwards = true, .grantedForRead = AdtEnums::ReadWrite},
        {.givesOwner = false},
        {.locksOwner = true},
        {.hasMemory = false},
        {.invalidatesEvery = 3}};
    for (Testing::Stack const& stack : Testing::kStacks) {
        for (Testing::BrickOptions const& options : kinds) {
            Testing::Subject<float> subject{stack.name, [&](Testing::PlainArray<float> const& shown) {
                                                return stack.over(Testing::bricks(shown, stack.converts, options));
                                            }};
            subject.writes = stack.writes;
            subject.grantedForRead = stack.converts ? AdtEnums::Read : options.grantedForRead;
            subject.hasMemory = options.hasMemory;
            subject.loansOutliveIt = stack.converts || options.givesOwner;
            Testing::expectConforms(subject);
            Testing::PlainArray<float> const data({6, 5, 11, 3});
            auto const accessor = subject.make(data);
            Testing::expectRegionsAreItsSamples<float>(
                *accessor, options.hasMemory &&
                               (stack.writes == Testing::Writes::kAtOnce || stack.writes == Testing::Writes::kLate));
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
