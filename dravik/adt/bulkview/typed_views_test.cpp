#include "dravik/adt/bulkview/typed_2d_views.h"
#include "dravik/adt/bulkview/typed_3d_views.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"

#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

TEST(TypedViews, ReadBackWhatTheyWrote) {
    Typed2dRwView<float> view(
        std::make_unique<Accessors::MemoryAccessor>(SharedArray<2>::Make<float>({{0, 0}, {3, 4}})));
    view.set(2, 3, 7.5f);
    EXPECT_EQ(view(2, 3), 7.5f);
    EXPECT_EQ(view(2, 2), 0.0f);
    float sum = 0;
    for (float const sample : view.samples()) {
        sum += sample;
    }
    EXPECT_EQ(sum, 7.5f);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
