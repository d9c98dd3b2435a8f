// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/check_filter.h"

#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Testing::BrickAccessor;
using Testing::PlainArray;

TEST(CheckFilter, ConformsOverWhateverConforms) {
    for (bool const hasMemory : {true, false}) {
        Testing::Subject<float> subject{
            "checked bricks", [&](PlainArray<float> const& shown) {
                return CheckFilter::Apply(std::make_unique<BrickAccessor<float>>(
                    shown, Testing::BrickOptions{.hasMemory = hasMemory, .invalidatesEvery = 3}));
            }};
        subject.hasMemory = hasMemory;
        expectConforms(subject);
    }
    EXPECT_THROW(CheckFilter::Apply(nullptr), std::invalid_argument);
}

// Bricks of 4 x 3 samples on 7 x 5, with one fault.
struct Faulty : BrickAccessor<float> {
    explicit Faulty(int number)
        : BrickAccessor(PlainArray<float>({7, 5, 1, 1}), {.brickSize = {4, 3, 1, 1}}), fault(number) {}

    FixedVector<4, int> getSize() override {
        ++sizes;
        return {fault == 0 ? 0 : fault == 1 ? sizes : 7, 5, 1, 1};
    }
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override {
        if (fault == 2) {
            return;
        }
        BrickAccessor::getBuffer(position, access, handle);
        auto info = handle.infoSnapshot();
        switch (fault) {
        case 3:
            info.range.min[1] = info.range.max[1];
            break;
        case 4:
            handle.update(handle.buffer(), info, AdtEnums::Write);
            break;
        case 5:
            info.range.min[0] = INT_MIN, info.range.max[0] = INT_MAX, info.strides[0] = INT_MAX;
            info.range.min[1] = INT_MIN, info.range.max[1] = INT_MAX, info.strides[1] = INT_MAX;
            break;
        default:
            break;
        }
        handle.relabel(info);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return nullptr; }

    int const fault;
    int sizes = 0;
};

TEST(CheckFilter, NamesTheRuleThatIsBroken) {
    struct Row {
        int fault;
        char const* text;
    };
    constexpr Row kRows[] = {
        {0, "the size (0,5,1,1) is not positive on every axis"},
        {1, "the size went from (1,5,1,1) to (2,5,1,1) without accessorUpdated"},
        {2, "the request for (5,1,0,0) left the handle empty"},
        {3, "the block [4,7)x[3,3)x[0,1)x[0,1) does not contain the position asked for, (5,1,0,0)"},
        {4, "the access granted, Write, does not cover Read"},
        {5, "lies beyond 64 bits"},
        {6, "The clone is null"},
    };
    for (Row const& row : kRows) {
        auto const checked = CheckFilter::Apply(std::make_unique<Faulty>(row.fault));
        auto const use = [&] {
            BufferHandle handle;
            checked->getSize();
            checked->getSize();
            checked->getBuffer({5, 1, 0, 0}, AdtEnums::Read, handle);
            checked->createClone();
        };
        EXPECT_THAT(use, testing::ThrowsMessage<std::logic_error>(testing::HasSubstr(row.text)));
    }
}

TEST(CheckFilter, TakesANewSizeAfterAnUpdate) {
    auto target = std::make_unique<Faulty>(1);
    Faulty& faulty = *target;
    Testing::Borrower client;
    auto const checked = CheckFilter::Apply(std::move(target));
    checked->setClient(&client);
    EXPECT_EQ(checked->getSize()[0], 1);
    faulty.client()->accessorUpdated();
    EXPECT_EQ(checked->getSize()[0], 2);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
