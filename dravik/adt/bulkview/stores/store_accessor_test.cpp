// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/store_accessor.h"

#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/check_filter.h"
#include "dravik/adt/bulkview/filters/concat_filter.h"
#include "dravik/adt/bulkview/filters/permute_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/memory_store.h"
#include "dravik/adt/testing/store_conformance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::MemoryStore;
using Testing::PlainArray;
using Index = FixedVector<4, int>;

template <class T>
std::shared_ptr<MemoryStore<T>> storeOf(PlainArray<T> const& shown, Index const& brick = {4, 3, 5, 2}) {
    return std::make_shared<MemoryStore<T>>(shown, brick);
}

TEST(StoreAccessor, Conforms) {
    struct Row {
        char const* name;
        Index brick;
        Index origin;
        int byteBudget;
    };
    constexpr Row kRows[] = {
        {"bricks that fit", {4, 3, 5, 2}, {}, 1 << 20},
        {"bricks out of step, in a tiny pool", {4, 3, 5, 2}, {-3, 1, 2, -7}, 2000},
        {"bricks beyond the budget", {9, 9, 9, 9}, {}, 10},
        {"open bricks", {0, 0, 0, 0}, {}, 1 << 20},
    };
    for (Row const& row : kRows) {
        Testing::expectConforms(Testing::Subject<float>{
            row.name, [&row](PlainArray<float> const& shown) {
                auto store = storeOf(shown, row.brick);
                store->traits_.blockOrigin = row.origin;
                return StoreAccessor::Make(std::move(store), std::make_shared<BrickPool>(row.byteBudget));
            }});
    }
}

TEST(StoreAccessor, TakesStoresThroughTheScript) {
    struct Row {
        char const* name;
        Index size;
        Index brick;
        Index origin;
        bool writable;
        bool servesParts;
        bool servesSteps = false;
    };
    constexpr Row kRows[] = {
        {"volume of bricks", {13, 9, 20, 1}, {4, 4, 8, 1}, {}, true, false},
        {"four axes, bricks out of step", {5, 7, 6, 3}, {2, 3, 4, 2}, {1, -1, 2, 1}, true, false},
        {"inlines, read-only", {12, 10, 15, 1}, {1, 0, 0, 0}, {}, false, false},
        {"parts of inlines", {12, 10, 15, 1}, {1, 10, 15, 1}, {}, true, true},
        {"steps of inlines", {12, 10, 15, 1}, {1, 10, 15, 1}, {}, true, true, true},
        {"steps in memory", {7, 10, 15, 3}, {}, {}, false, true, true},
        {"one row", {40, 1, 1, 1}, {7, 1, 1, 1}, {}, true, false},
    };
    Testing::Random random;
    for (Row const& row : kRows) {
        PlainArray<short> samples(row.size);
        samples.fill(random, 98);
        auto store = storeOf(samples, row.brick);
        store->traits_.blockOrigin = row.origin;
        store->traits_.writable = row.writable;
        store->hasCheapParts = row.servesParts;
        store->hasCheapSteps = row.servesSteps;
        Testing::expectStoreConforms<short>({row.name, [&] { return store; }, samples});
    }
}

TEST(StoreAccessor, IsFlushedThroughEveryFilter) {
    using Accessor = std::unique_ptr<IBufferAccessor>;
    struct Row {
        char const* name;
        Accessor (*over)(Accessor below);
    };
    constexpr Row kRows[] = {
        {"nothing", [](Accessor below) { return below; }},
        {"box",
         [](Accessor below) {
             return Filters::SubsetFilter::MakeSubset(
                 std::move(below), ExtentK<4, int>(OpenEndedRange<4, int>{{}, {3, 3, 5, 1}}));
         }},
        {"order of axes",
         [](Accessor below) {
             return Filters::PermuteFilter::Apply(std::move(below), {2, 0, 1, 3});
         }},
        {"proxy", [](Accessor below) { return Filters::ProxyFilter::MakeProxy(std::move(below), nullptr); }},
        {"cache", [](Accessor below) { return Filters::CacheFilter::Apply(std::move(below), 100, -1, -1); }},
        {"check", [](Accessor below) { return Filters::CheckFilter::Apply(std::move(below)); }},
        {"converter",
         [](Accessor below) {
             auto const copy = Converters::ValueConverterFactory::getCopyConverter(32);
             return Filters::ValueConvertFilter::Apply(std::move(below), 4, copy, copy);
         }},
        {"join",
         [](Accessor below) {
             std::vector<Accessor> parts;
             parts.push_back(below->createClone());
             parts.push_back(std::move(below));
             return Filters::ConcatFilter::Apply(std::move(parts), 0);
         }},
    };
    for (Row const& row : kRows) {
        auto const store = storeOf(PlainArray<float>({8, 3, 5, 1}), {4, 3, 5, 1});
        auto const chain = row.over(StoreAccessor::Make(store, std::make_shared<BrickPool>(10000)));
        BufferHandle handle;
        chain->getBuffer({}, AdtEnums::ReadWrite, handle);
        static_cast<float*>(handle.buffer())[handle.offset({})] = 7;
        handle.reset(/*releaseOwner=*/true);
        flush(*chain);
        EXPECT_EQ(store->data.at({}), 7) << row.name;
        EXPECT_GE(store->flushes, 1) << row.name;
    }
}

TEST(StoreAccessor, RefusesWhatItCannotServe) {
    auto const pool = std::make_shared<BrickPool>(1000);
    auto store = storeOf(PlainArray<float>({2, 3, 4, 1}));
    EXPECT_THROW(StoreAccessor::Make(nullptr, pool), std::invalid_argument);
    EXPECT_THROW(StoreAccessor::Make(store, nullptr), std::invalid_argument);
    EXPECT_THROW(StoreAccessor::Make(storeOf(PlainArray<float>({2, 0, 4, 1})), pool), std::invalid_argument);
    store->traits_.writable = false;
    auto const accessor = StoreAccessor::Make(store, pool);
    BufferHandle handle;
    EXPECT_THROW(accessor->getBuffer({0, 3, 0, 0}, AdtEnums::Read, handle), std::out_of_range);
    EXPECT_THROW(accessor->getBuffer({}, AdtEnums::ReadWrite, handle), Exceptions::NotSupportedException);
    accessor->dispose(false);
    EXPECT_THROW(accessor->getBuffer({}, AdtEnums::Read, handle), Exceptions::ObjectDisposedException);
    EXPECT_EQ(handle.buffer(), nullptr);
}

TEST(StoreAccessor, LendsHolesWithMemoryOnlyForWriting) {
    PlainArray<float> const shown({8, 3, 5, 1});
    for (bool const writable : {false, true}) {
        auto const store = storeOf(shown, {4, 3, 5, 1});
        store->holes = OpenEndedRange<4, int>::OfSize({1, 1, 1, 1});
        store->traits_.writable = writable;
        Typed3dRwView<float> view(StoreAccessor::Make(store, std::make_shared<BrickPool>(10000)));
        EXPECT_EQ(std::isnan(view(0, 0, 0)), !writable);
        EXPECT_EQ(store->reads, writable ? 1 : 0);
        view.set(1, 1, 1, 5);
        EXPECT_EQ(view(1, 1, 1) == 5, writable);
    }
}

TEST(StoreAccessor, ReadsAheadIntoHalfThePool) {
    auto const store = storeOf(PlainArray<float>({40, 1, 1, 1}), {4, 1, 1, 1});  // 10 bricks of 16 bytes
    std::vector<std::function<void()>> queue;
    auto const pool = std::make_shared<BrickPool>(96);
    auto const accessor = StoreAccessor::Make(store, pool, [&](auto task) { queue.push_back(std::move(task)); });
    accessor->setHint(IBufferAccessor::Prefetch, {{6, 0, 0, 0}, {40, 1, 1, 1}}, 1);
    ASSERT_EQ(queue.size(), 3u);
    queue[0]();
    accessor->setHint(IBufferAccessor::CancelPrefetch, {}, 1);
    queue[1]();
    EXPECT_EQ(store->reads, 1);
    EXPECT_EQ(pool->counters().bytesKept, 16);
    BufferHandle handle;
    accessor->getBuffer({6, 0, 0, 0}, AdtEnums::Read, handle);
    EXPECT_EQ(store->reads, 1);
}

TEST(StoreAccessor, DisposesOnceTheStoreHasEverything) {
    auto const store = storeOf(PlainArray<float>({8, 3, 5, 1}));
    auto const accessor = StoreAccessor::Make(store, std::make_shared<BrickPool>(10000));
    {
        BufferHandle handle;
        accessor->getBuffer({}, AdtEnums::ReadWrite, handle);
        *static_cast<float*>(handle.buffer()) = 7;
    }
    store->onWrite = [] { throw std::runtime_error("disk full"); };
    EXPECT_THROW(accessor->dispose(false), std::runtime_error);
    EXPECT_THROW(flush(*accessor), std::runtime_error);
    store->onWrite = nullptr;
    accessor->dispose(false);
    EXPECT_EQ(store->data.at({}), 7);
    EXPECT_EQ(store->flushes, 3);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
