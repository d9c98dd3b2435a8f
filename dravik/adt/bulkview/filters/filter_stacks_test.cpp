// SPDX-License-Identifier: Apache-2.0
// Filters alone and stacked, through the conformance script.

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
using Testing::BrickAccessor;
using Testing::BrickOptions;
using Testing::Writes;

constexpr int kNever = CacheFilter::kNever;
constexpr float kScale = 0.25f, kOffset = -3;

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

template <class T, class S>
Accessor shownAs(Accessor target, ScaleOffset const& transform = ScaleOffset(), bool writes = true) {
    using Factory = Converters::ValueConverterFactory;
    auto const forward = Factory::getTypeConverter(typeid(T), typeid(S), transform, /*copyIfSame=*/false);
    auto const inverse = Factory::getTypeConverter(typeid(S), typeid(T), transform.getInverse(), /*copyIfSame=*/false);
    return ValueConvertFilter::Apply(std::move(target), sizeof(S), forward, writes ? inverse : nullptr);
}

// Shorts that stand for scaled floats.
Accessor converted(Accessor target, bool writes = true) {
    return shownAs<short, float>(std::move(target), ScaleOffset(kScale, kOffset), writes);
}

Accessor convertedTwiceMore(Accessor target) {
    return shownAs<unsigned char, float>(shownAs<float, unsigned char>(converted(std::move(target))));
}

struct Stack {
    char const* name;
    Accessor (*over)(Accessor bricks);
    bool converts = false;  // its bricks are of shorts
    Writes writes = converts ? Writes::kLate : Writes::kAtOnce;
};
constexpr Stack kStacks[] = {
    {"cache", [](Accessor a) { return cached(std::move(a)); }},
    {"cache with a small budget", [](Accessor a) { return cached(std::move(a), 200); }},
    {"cache of half density", [](Accessor a) { return cached(std::move(a), kNever, 2, kNever); }},
    {"cache of full density", [](Accessor a) { return cached(std::move(a), kNever, kNever, 3); }},
    {"cache over cache", [](Accessor a) { return cached(cached(std::move(a), 100)); }},
    {"proxy over cache over proxy", [](Accessor a) { return proxied(cached(proxied(std::move(a)))); }},
    {"subset over cache over subset", [](Accessor a) { return reversed(cached(reversed(std::move(a)))); }},
    {"cache over subsets over a proxy",
     [](Accessor a) { return cached(reversed(proxied(reversed(std::move(a)))), 500, 4, 8); }},
    {"converter", [](Accessor a) { return converted(std::move(a)); }, true},
    {"converter between subsets", [](Accessor a) { return reversed(converted(reversed(std::move(a)))); }, true},
    {"converter over a cache", [](Accessor a) { return converted(cached(std::move(a), 300)); }, true},
    {"converter between proxies", [](Accessor a) { return proxied(converted(proxied(std::move(a)))); }, true},
    {"three converters", [](Accessor a) { return convertedTwiceMore(std::move(a)); }, true},
    {"converter one way",
     [](Accessor a) {
         return shownAs<short, float>(std::move(a), {kScale, kOffset}, /*writes=*/false);
     },
     true, Writes::kLost},
    // In the wrong place: good for reading what nobody changes.
    {"cache over converter", [](Accessor a) { return cached(converted(std::move(a)), 300, 2, 5); }, true,
     Writes::kUntold},
};

// `shown` in bricks, or what stands for it.
Accessor bricks(Testing::PlainArray<float> const& shown, bool converts, BrickOptions const& options) {
    if (!converts) {
        return std::make_unique<BrickAccessor<float>>(shown, options);
    }
    Testing::PlainArray<short> stored(shown.size());
    std::transform(shown.samples().begin(), shown.samples().end(), stored.samples().begin(), [](float sample) {
        return static_cast<short>((sample - kOffset) / kScale);
    });
    return std::make_unique<BrickAccessor<short>>(stored, options);
}

TEST(FilterStacks, Conform) {
    BrickOptions const kinds[] = {
        {},
        {.fastestAxis = 2, .padding = 3, .backwards = true, .grantedForRead = AdtEnums::ReadWrite},
        {.givesOwner = false},
        {.locksOwner = true},
        {.hasMemory = false},
        {.invalidatesEvery = 3}};
    for (Stack const& stack : kStacks) {
        for (BrickOptions const& options : kinds) {
            Testing::Subject<float> subject{stack.name, [&](Testing::PlainArray<float> const& shown) {
                                                return stack.over(bricks(shown, stack.converts, options));
                                            }};
            subject.writes = stack.writes;
            subject.grantedForRead = stack.converts ? AdtEnums::Read : options.grantedForRead;
            subject.hasMemory = options.hasMemory;
            subject.loansOutliveIt = stack.converts || options.givesOwner;
            Testing::expectConforms(subject);
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
