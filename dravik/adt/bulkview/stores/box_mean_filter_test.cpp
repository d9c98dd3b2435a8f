// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/box_mean_filter.h"

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/constant_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/memory_store.h"
#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::PlainArray;
using Index = FixedVector<4, int>;
using Box = OpenEndedRange<4, int>;

std::unique_ptr<IBufferAccessor> accessorOf(PlainArray<float> const& samples) {
    return StoreAccessor::Make(
        std::make_shared<Testing::MemoryStore<float>>(samples, Index(3, 5, 8, 2)),
        std::make_shared<BrickPool>(1 << 16));
}

std::unique_ptr<IBufferAccessor> meansOf(PlainArray<float> const& samples, int factor) {
    return BoxMeanFilter::Apply(accessorOf(samples), factor, std::make_shared<BrickPool>(1 << 16));
}

TEST(BoxMeanFilter, ShowsTheMeansOfAPlainLoop) {
    Testing::Random random;
    for (int round = 0; round < 30; ++round) {
        PlainArray<float> samples(
            {random.between(1, 9), random.between(1, 12), random.between(1, 25), random.between(1, 4)});
        for (float& sample : samples.samples()) {
            sample = random.chance(20) ? NAN : static_cast<float>(random.between(-50, 50));
        }
        int const factor = random.between(1, 5);
        auto const means = meansOf(samples, factor);
        auto const array = SharedArray<4>::Make<float>(Box::OfSize(means->getSize()));
        readRegion(*means, ExtentK<4, int>(array.range()), array);
        Testing::forEachIndex(array.range(), [&](Index const& index) {
            double sum = 0;
            int count = 0;
            Testing::forEachIndex(samples.box(), [&](Index const& at) {
                bool isIn = !std::isnan(samples.at(at));
                for (int axis = 0; axis < 4; ++axis) {
                    isIn = isIn && at[axis] / factor == index[axis];
                }
                return sum += isIn ? double{samples.at(at)} : 0.0, count += isIn ? 1 : 0, true;
            });
            float const mean = reinterpret_cast<float const*>(array.constData())[array.position(index)];
            EXPECT_THAT(mean, testing::NanSensitiveFloatEq(static_cast<float>(sum / count)))
                << index << " by " << factor;
            return !testing::Test::HasFailure();
        });
    }
}

TEST(BoxMeanFilter, ComputesTransformsOfDefinitions) {
    using BulkDef::Transform::MultiresDef;
    BulkDef::Entity::SourceEntityDef const constant(BulkDef::Source::ConstantDef({10, 7, 1, 1}, "int16", 3));
    auto const open = [&](std::string const& method) {
        return Openers().open(BulkDef::Entity::DerivedEntityDef(MultiresDef(4, method), constant));
    };
    EXPECT_EQ(open(MultiresDef::BasicAverage).chain->getSize(), (Index{3, 2, 1, 1}));
    EXPECT_EQ(open(MultiresDef::Decimation).chain->getSize(), (Index{3, 2, 1, 1}));
    EXPECT_THROW(open(MultiresDef::FirstValid), Exceptions::NotSupportedException);
    auto const mean = open(MultiresDef::BasicAverage);
    short sample = 0;
    readRegion(
        *mean.chain, ExtentK<4, int>(Box{{2, 1, 0, 0}, {3, 2, 1, 1}}),
        ArrayRef<4>(Box::OfSize({1, 1, 1, 1}), {}, reinterpret_cast<char*>(&sample), 0, typeid(short), 16));
    EXPECT_EQ(sample, 3);
}

TEST(BoxMeanFilter, RefusesWhatHasNoMean) {
    PlainArray<float> const samples({4, 4, 4, 1});
    auto const pool = std::make_shared<BrickPool>(1);
    EXPECT_THROW(meansOf(samples, 0), std::invalid_argument);
    EXPECT_THROW(BoxMeanFilter::Apply(nullptr, 2, pool), std::invalid_argument);
    EXPECT_THROW(BoxMeanFilter::Apply(accessorOf(samples), 2, nullptr), std::invalid_argument);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
