// Filters that keep or pass on blocks, alone and stacked, through the conformance script.

#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/converters/value_converter_factory.h"

#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <gtest/gtest.h>

#include <algorithm>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Accessor = std::unique_ptr<IBufferAccessor>;
using Testing::BrickOptions;

constexpr int kNever = CacheFilter::kNever;

Accessor cached(Accessor target, int budget = kNever, int half = kNever, int full = kNever) {
    return CacheFilter::Apply(std::move(target), budget, half, full);
}

Accessor proxied(Accessor target) {
    return ProxyFilter::MakeProxy(std::move(target), boost::make_shared<ProxyFilter::ProxyTargetController>());
}

Accessor reversed(Accessor target) {
    ExtentK<4, int> whole(OpenEndedRange<4, int>::OfSize(target->getSize()));
    for (int axis = 0; axis < 4; ++axis) {
        whole[axis] = whole[axis].reversed();
    }
    return SubsetFilter::MakeSubset(std::move(target), whole);
}

TEST(FilterStacks, Conform) {
    struct Stack {
        char const* name;
        Accessor (*over)(Accessor bricks);
    };
    Stack const stacks[] = {
        {"cache", [](Accessor a) { return cached(std::move(a)); }},
        {"cache with a small budget", [](Accessor a) { return cached(std::move(a), 200); }},
        {"cache of half density", [](Accessor a) { return cached(std::move(a), kNever, 2, kNever); }},
        {"cache of full density", [](Accessor a) { return cached(std::move(a), kNever, kNever, 3); }},
        {"cache over cache", [](Accessor a) { return cached(cached(std::move(a), 100)); }},
        {"proxy", [](Accessor a) { return proxied(std::move(a)); }},
        {"proxy over cache over proxy", [](Accessor a) { return proxied(cached(proxied(std::move(a)))); }},
        {"subset over cache over subset", [](Accessor a) { return reversed(cached(reversed(std::move(a)))); }},
        {"cache over subsets over a proxy",
         [](Accessor a) { return cached(reversed(proxied(reversed(std::move(a)))), 500, 4, 8); }},
    };
    BrickOptions const bricks[] = {
        {},
        {.padding = 3, .grantedForRead = AdtEnums::ReadWrite},
        {.givesOwner = false},
        {.locksOwner = true},
        {.hasMemory = false},
        {.invalidatesEvery = 3}};
    for (Stack const& stack : stacks) {
        for (BrickOptions const& options : bricks) {
            Testing::Subject<float> subject{stack.name, [&](Testing::PlainArray<float> const& shown) {
                                                return stack.over(
                                                    std::make_unique<Testing::BrickAccessor<float>>(shown, options));
                                            }};
            subject.grantedForRead = options.grantedForRead;
            subject.hasMemory = options.hasMemory;
            subject.loansOutliveIt = options.givesOwner;
            Testing::expectConforms(subject);
        }
    }
}

// A cache in the wrong place, above a converter: good for reading what nobody changes.
TEST(FilterStacks, ReadConstantDataThroughACacheAboveAConverter) {
    using Converters::ValueConverterFactory;
    auto const forward = ValueConverterFactory::getTypeConverter(typeid(unsigned char), typeid(float));
    Testing::Subject<float> subject{
        "cache over converter", [&](Testing::PlainArray<float> const& shown) {
            Testing::PlainArray<unsigned char> bytes(shown.size());
            std::transform(shown.samples().begin(), shown.samples().end(), bytes.samples().begin(), [](float sample) {
                return static_cast<unsigned char>(sample);
            });
            return cached(
                ValueConvertFilter::Apply(
                    std::make_unique<Testing::BrickAccessor<unsigned char>>(bytes), sizeof(float), forward, nullptr),
                300, 2, 5);
        }};
    subject.writes = Testing::Writes::kUntold;
    Testing::expectConforms(subject);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
