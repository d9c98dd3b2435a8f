// SPDX-License-Identifier: Apache-2.0
// Regions, traces and sums through views of one to four axes.

#include "dravik/adt/bulkview/views/view_regions.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/accessors/read_only_accessor.h"
#include "dravik/adt/bulkview/views/typed_1d_views.h"
#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/bulkview/views/typed_4d_views.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/brick_accessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <ranges>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::PlainArray;
using Index4 = FixedVector<4, int>;
using Box4 = OpenEndedRange<4, int>;

static_assert(std::ranges::common_range<TypedViewBox<2, float>>);

PlainArray<float> counted(Index4 const& size) {
    PlainArray<float> samples(size);
    std::iota(samples.samples().begin(), samples.samples().end(), 0.0f);
    return samples;
}

TEST(Views, TraceAlongAnyAxis) {
    auto const samples = counted({5, 6, 7, 8});
    Typed4dRoView<float> const view(std::make_unique<Testing::BrickAccessor<float>>(samples));
    for (int axis = 0; axis < 4; ++axis) {
        for (int first : {0, 1, 4}) {
            Index4 from{2, 3, 1, 5};
            from[axis] = first;
            std::vector<float> traced(static_cast<std::size_t>(samples.size()[axis] - first), -1);
            view.trace(from, axis, traced.data(), static_cast<int>(traced.size()));
            for (float const sample : traced) {
                EXPECT_EQ(sample, samples.at(from)) << from;
                ++from[axis];
            }
            view.trace(from, axis, nullptr, 0);
        }
    }
    float one = -1;
    EXPECT_THROW(view.trace({0, 0, 0, 7}, 3, &one, 2), ViewBoundsException);
    EXPECT_EQ(one, samples.at({0, 0, 0, 7}));
}

TEST(Views, OfOneAndFourAxesWork) {
    auto const row = SharedArray<4>::Make<float>(Box4::OfSize({9, 1, 1, 1}));
    Typed1dRwView<float> line(std::make_unique<Accessors::MemoryAccessor>(row));
    line.set(3, 1.5f);
    EXPECT_EQ(line(3) + line.get(FixedVector<1, int>(2)), 1.5f);
    EXPECT_THROW(line(9), ViewBoundsException);
    auto const block = SharedArray<4>::Make<float>(Box4::OfSize({2, 3, 4, 5}));
    Typed4dRwView<float> cube(std::make_unique<Accessors::MemoryAccessor>(block));
    cube.set(1, 2, 3, 4, 7.0f);
    auto const all = cube.samples();
    EXPECT_EQ(std::accumulate(all.begin(), all.end(), 0.0), 7.0);
    EXPECT_EQ(std::ranges::count(cube.samples(), 7.0f), 1);
}

TEST(Views, ReadAndWriteRegions) {
    auto samples = counted({6, 7, 8, 1});
    Typed3dRwView<float> view(std::make_unique<Testing::BrickAccessor<float>>(samples));
    view.set(5, 6, 7, -1);
    ExtentK<3, int> region;
    region[0] = {5, -2, 3};
    region[1] = {0, 3, 3};
    region[2] = {7, 1, 1};
    auto const read = readRegion(view, region);
    auto const* const first = reinterpret_cast<float const*>(read.constData());
    EXPECT_EQ(first[2], -1) << "what the view has written";
    EXPECT_EQ(first[3], samples.at({3, 0, 7, 0}));
    std::vector<float> const written(9, 4.0f);
    writeRegion(
        view, region,
        ArrayConstRef<3>(
            OpenEndedRange<3, int>::OfSize({3, 3, 1}), {3, 1, 1}, reinterpret_cast<char const*>(written.data()), 0,
            typeid(float), 32));
    EXPECT_EQ(view(1, 6, 7) + view(3, 3, 7), 8) << "the view asks again";
    region[0].count = 4;
    EXPECT_THROW(readRegion(view, region), std::out_of_range);
    EXPECT_EQ(view(5, 0, 0), samples.at({5, 0, 0, 0})) << "still the client";
    EXPECT_THROW(readRegion(Typed3dRoView<float>(), region), ViewException);
}

// The least that a host writes.
class Ramp final : public Accessors::ReadOnlyAccessor {
  public:
    FixedVector<4, int> getSize() override { return {10, 1, 1, 1}; }
    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<Ramp>(); }

  private:
    void lend(FixedVector<4, int> const& /*position*/, BufferHandle& handle) override {
        static constexpr float kSamples[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
        handle.updateRO(ArrayConstRef<4>(
            Box4::OfSize({10, 1, 1, 1}), {1, 0, 0, 0}, reinterpret_cast<char const*>(kSamples), 0, typeid(float), 32));
    }
};

TEST(Views, TellWhatCannotBeWritten) {
    Typed1dRwView<float> unknown(std::make_unique<Ramp>());
    EXPECT_EQ(unknown(4), 4);
    EXPECT_TRUE(unknown.isWritable()) << "an accessor that tells nothing";
    EXPECT_THROW(unknown.set(4, 1), Exceptions::NotSupportedException);
    EXPECT_EQ(unknown(4), 4);
    std::vector<float> const fixed(6);
    auto const wrapped = SharedArray<4>::Wrap(std::span(fixed), Box4::OfSize({6, 1, 1, 1}));
    EXPECT_FALSE(Typed1dRwView<float>(std::make_unique<Accessors::MemoryAccessor>(wrapped)).isWritable());
    BufferHandle handle;
    EXPECT_THROW(Ramp().getBuffer({10, 0, 0, 0}, AdtEnums::Read, handle), std::out_of_range);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
