// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/constant_accessor.h"
#include "dravik/adt/bulkview/accessors/function_accessor.h"

#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/region_law.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {
namespace {

using Index = FixedVector<4, int>;
using Shown = Testing::PlainArray<float>;

void expectConforms(char const* name, int highest, std::unique_ptr<IBufferAccessor> (*make)(Shown const&)) {
    Testing::Subject<float> subject{name, make};
    subject.writes = Testing::Writes::kRefused;
    subject.highestSample = highest;
    Testing::expectConforms(subject);
    Shown data({6, 5, 11, 3});
    for (float& sample : data.samples()) {
        sample = highest == 0 ? 0 : static_cast<float>(&sample - data.samples().data());
    }
    Testing::expectRegionsAreItsSamples<float>(*make(data), /*writes=*/false);
    EXPECT_THROW(
        writeRegion(*make(data), ExtentK<4, int>(data.box()), SharedArray<4>::Make<float>(data.box())),
        Exceptions::NotSupportedException);
}

TEST(ConstantAccessor, Conforms) {
    expectConforms("constant", 0, [](Shown const& shown) -> std::unique_ptr<IBufferAccessor> {
        return ConstantAccessor::Make<float>(shown.size(), 0);
    });
}

TEST(FunctionAccessor, Conforms) {
    expectConforms("function", 100, [](Shown const& shown) -> std::unique_ptr<IBufferAccessor> {
        return std::make_unique<FunctionAccessor<float>>(
            shown.size(), Index(4, 3, 5, 2), [shown](Index const& index) { return shown.at(index); });
    });
}

TEST(FunctionAccessor, ComputesOnlyTheSamplesOfARegion) {
    int calls = 0;
    FunctionAccessor<int> accessor({1, 400, 900, 1}, {1, 64, 64, 1}, [&](Index const& index) {
        ++calls;
        return index[1] * 1000 + index[2];
    });
    ExtentK<4, int> region(OpenEndedRange<4, int>::OfSize(accessor.getSize()));
    region[1] = {399, -2, 200};
    auto const array = SharedArray<4>::Make<short>(OpenEndedRange<4, int>::OfSize({1, 200, 900, 1}));
    readRegion(accessor, region, array);
    EXPECT_EQ(calls, 200 * 900);
    auto const at = [&](Index const& place) {
        return reinterpret_cast<short const*>(array.data())[array.position(place)];
    };
    EXPECT_EQ(at({0, 199, 899, 0}), 1899);
    EXPECT_EQ(at({0, 190, 5, 0}), 19005);
}

TEST(ComputedAccessors, TellWhatTheyRefuse) {
    using testing::HasSubstr;
    using testing::ThrowsMessage;
    EXPECT_THAT(
        [] {
            ConstantAccessor::Make<float>({2, 0, 1, 1}, 1);
        },
        ThrowsMessage<std::invalid_argument>(HasSubstr("(2,0,1,1)")));
    EXPECT_THAT(
        [] {
            ConstantAccessor({2, 2, 1, 1}, typeid(int), 12, "ab");
        },
        ThrowsMessage<std::invalid_argument>(HasSubstr("12 bits")));
    FunctionAccessor<float> accessor({2, 2, 1, 1}, {2, 2, 1, 1}, [](Index const&) { return 1.0f; });
    BufferHandle handle;
    EXPECT_THAT(
        [&] {
            accessor.getBuffer({2, 0, 0, 0}, AdtEnums::Read, handle);
        },
        ThrowsMessage<std::out_of_range>(HasSubstr("(2,0,0,0) is outside the size (2,2,1,1)")));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
