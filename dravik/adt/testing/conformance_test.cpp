// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/testing/conformance.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/views/view_exceptions.h"
#include "dravik/adt/testing/brick_accessor.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::Testing {
namespace {

using BulkView::AdtEnums;
using BulkView::BufferHandle;
using BulkView::Accessors::MemoryAccessor;

template <class T>
std::unique_ptr<BulkView::IBufferAccessor> inMemory(PlainArray<T> const& shown, FixedVector<4, int> const& strides) {
    auto const array = SharedArray<4>::Make<T>(shown.box(), strides);
    auto* const samples = reinterpret_cast<T*>(array.data());
    forEachIndex(
        shown.box(), [&](FixedVector<4, int> const& p) { return samples[array.position(p)] = shown.at(p), true; });
    return std::make_unique<MemoryAccessor>(array);
}

TEST(Conformance, OfTheMemoryAccessor) {
    auto const dense = [](auto const& shown) { return inMemory(shown, SharedArray<4>::DenseStrides(shown.box())); };
    auto const padded = [](auto const& shown) { return inMemory(shown, {-1, 2 * shown.size()[0], 500, -9000}); };
    expectConforms(Subject<float>{.name = "dense floats", .make = dense, .loansOutliveIt = false});
    expectConforms(Subject<unsigned char>{.name = "dense bytes", .make = dense, .loansOutliveIt = false});
    expectConforms(Subject<char>{.name = "padded chars", .make = padded, .loansOutliveIt = false});
}

TEST(Conformance, OfBricks) {
    struct Row {
        char const* name;
        BrickOptions options;
    };
    Row const rows[] = {
        {"plain", {}},
        {"runs along the first axis", {.fastestAxis = 0, .padding = 3}},
        {"backwards", {.fastestAxis = 2, .padding = 1, .backwards = true}},
        {"for writing at once", {.grantedForRead = AdtEnums::ReadWrite}},
        {"without memory", {.fastestAxis = 2, .backwards = true, .hasMemory = false}},
        {"without owner", {.givesOwner = false}},
        {"locked", {.locksOwner = true}},
        {"often invalid", {.invalidatesEvery = 3}},
        {"reading late", {.readsLate = true}},
    };
    for (Row const& row : rows) {
        Subject<float> subject{
            row.name, [&row](auto const& shown) { return std::make_unique<BrickAccessor<float>>(shown, row.options); }};
        subject.grantedForRead = row.options.grantedForRead;
        subject.hasMemory = row.options.hasMemory;
        subject.loansOutliveIt = row.options.givesOwner;
        expectConforms(subject);
    }
}

// An accessor with one fault.
struct Faulty : BrickAccessor<float> {
    using Break = void (*)(BufferHandle&, AdtEnums::Access asked);
    Faulty(PlainArray<float> const& shown, Break fault) : BrickAccessor(shown, {.padding = 64}), fault_(fault) {}
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override {
        BrickAccessor::getBuffer(position, access, handle);
        fault_(handle, access);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<Faulty>(*this); }

  private:
    Break fault_;
};

TEST(Conformance, FindsEachFault) {
    static std::vector<float> nowhere(10000);
    static int requests = 0;
    struct Row {
        char const* name;
        Faulty::Break fault;
    };
    static constexpr Row kRows[] = {
        {"one sample off", [](BufferHandle& h, auto) { ++h.info().offset; }},
        {"a wrong stride", [](BufferHandle& h, auto) { h.info().strides[2] += 1; }},
        {"a block beyond the data", [](BufferHandle& h, auto) { h.info().range.max[3] += 1; }},
        {"a block beside it", [](BufferHandle& h, auto) { h.info().range.max[1] = h.info().range.min[1]; }},
        {"no memory", [](BufferHandle& h, auto) { h.update(nullptr, h.info(), h.access()); }},
        {"too little access", [](BufferHandle& h, auto) { h.update(h.buffer(), h.info(), AdtEnums::NoAccess); }},
        {"invalid often", [](BufferHandle& h, auto) { ++requests % 60 < 50 ? h.invalidate(false) : void(); }},
        {"writes into nowhere",
         [](BufferHandle& h, auto asked) {
             asked != AdtEnums::Read ? h.update(nowhere.data(), h.info(), asked) : void();
         }},
    };
    for (Row const& row : kRows) {
        testing::TestPartResultArray failures;
        {
            testing::ScopedFakeTestPartResultReporter const reporter(
                testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
            try {
                expectConforms(Subject<float>{
                    row.name, [&row](auto const& shown) { return std::make_unique<Faulty>(shown, row.fault); }});
            } catch (BulkView::ViewBoundsException const& refused) {
                ADD_FAILURE() << refused.what();
            }
        }
        EXPECT_GT(failures.size(), 0) << row.name;
    }
}

TEST(LiveObjects, AreCountedUntilTheyAreGone) {
    {
        Borrower const borrower;
        BrickAccessor<float> accessor(PlainArray<float>({1, 1, 1, 1}));
        auto const clone = accessor.createClone();
        BufferHandle handle;
        clone->getBuffer({}, AdtEnums::Read, handle);
        EXPECT_EQ(liveObjects(), "2 accessors, 1 clients, 1 owners of loans, ");
    }
    EXPECT_EQ(liveObjects(), "");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Testing
