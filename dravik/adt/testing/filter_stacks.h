// SPDX-License-Identifier: Apache-2.0
#pragma once

// The conformance subjects among filters: each kind alone and in stacks over bricks, all of which show the samples of
// the bricks, or shorts that stand for them. Nothing is shared between threads.

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/check_filter.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/bulkview/filters/permute_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <utility>

namespace Quorvel::Dravik::Adt::Testing {

using namespace BulkView::Filters;
using BulkView::AdtEnums;
using Accessor = std::unique_ptr<BulkView::IBufferAccessor>;

inline constexpr int kNever = CacheFilter::kNever;
inline constexpr float kScale = 0.25f, kOffset = -3;

inline Accessor cached(Accessor target, int budget = kNever, int half = kNever, int full = kNever) {
    return CacheFilter::Apply(std::move(target), budget, half, full);
}

/// Of the uppermost proxy that was made last.
inline boost::shared_ptr<ProxyFilter::ProxyTargetController> lastController;

inline Accessor proxied(Accessor target) {
    lastController = boost::make_shared<ProxyFilter::ProxyTargetController>();
    return ProxyFilter::MakeProxy(std::move(target), lastController);
}

inline Accessor reversed(Accessor target) {
    ExtentK<4, int> whole(OpenEndedRange<4, int>::OfSize(target->getSize()));
    for (int axis = 0; axis < 4; ++axis) {
        whole[axis] = whole[axis].reversed();
    }
    return FilterFactory::MakeView(std::move(target), BulkDef::View::ArraySubsetDef<4>(whole));
}

template <class T, class S>
inline Accessor shownAs(Accessor target, ScaleOffset const& transform = ScaleOffset(), bool writes = true) {
    using Factory = Converters::ValueConverterFactory;
    auto const forward = Factory::getTypeConverter(typeid(T), typeid(S), transform, /*copyIfSame=*/false);
    auto const inverse = Factory::getTypeConverter(typeid(S), typeid(T), transform.getInverse(), /*copyIfSame=*/false);
    return ValueConvertFilter::Apply(std::move(target), sizeof(S), forward, writes ? inverse : nullptr);
}

// Shorts that stand for scaled floats.
inline Accessor converted(Accessor target, bool writes = true) {
    return shownAs<short, float>(std::move(target), ScaleOffset(kScale, kOffset), writes);
}

// As a host would write it: may fail in whatever it is asked.
struct HostConverter : IValueConverter {
    explicit HostConverter(ConstPtr doing) : inner(std::move(doing)) {}
    std::type_info const& getInputType() const override { return inner->getInputType(); }
    std::type_info const& getOutputType() const override { return inner->getOutputType(); }
    void convert(void const* in, void* out) const override { callOut("convert"), inner->convert(in, out); }
    void convertStrided(void const* in, int i, int iStride, void* out, int o, int oStride, int count) const override {
        callOut("convertStrided"), inner->convertStrided(in, i, iStride, out, o, oStride, count);
    }
    void convertContiguous(void const* in, int i, void* out, int o, int count) const override {
        callOut("convertContiguous"), inner->convertContiguous(in, i, out, o, count);
    }
    ConstPtr inner;
};

inline Accessor hostConverted(Accessor target) {
    auto const made = [](auto const& from, auto const& to, ScaleOffset const& transform) {
        auto const inner =
            Converters::ValueConverterFactory::getTypeConverter(from, to, transform, /*copyIfSame=*/true);
        return boost::make_shared<HostConverter>(inner);
    };
    ScaleOffset const transform(kScale, kOffset);
    return ValueConvertFilter::Apply(
        std::move(target), sizeof(float), made(typeid(short), typeid(float), transform),
        made(typeid(float), typeid(short), transform.getInverse()));
}

inline Accessor convertedTwiceMore(Accessor target) {
    return shownAs<unsigned char, float>(shownAs<float, unsigned char>(converted(std::move(target))));
}

// Turned and turned back, with `between` in between.
inline Accessor turned(Accessor target, Accessor (*between)(Accessor)) {
    return PermuteFilter::Apply(between(PermuteFilter::Apply(std::move(target), {2, 0, 3, 1})), {1, 3, 0, 2});
}

struct Stack {
    char const* name;
    Accessor (*over)(Accessor bricks);
    bool converts = false;  // its bricks are of shorts
    Writes writes = converts ? Writes::kLate : Writes::kAtOnce;
};
inline constexpr Stack kStacks[] = {
    {"cache", [](Accessor a) { return cached(std::move(a)); }},
    {"cache with a small budget", [](Accessor a) { return cached(std::move(a), 200); }},
    {"cache of half density", [](Accessor a) { return cached(std::move(a), kNever, 2, kNever); }},
    {"cache of full density", [](Accessor a) { return cached(std::move(a), kNever, kNever, 3); }},
    {"cache over cache", [](Accessor a) { return cached(cached(std::move(a), 100)); }},
    {"proxy over cache over proxy", [](Accessor a) { return proxied(cached(proxied(std::move(a)))); }},
    {"subset over cache over subset", [](Accessor a) { return reversed(cached(reversed(std::move(a)))); }},
    {"cache over subsets over a proxy",
     [](Accessor a) { return cached(reversed(reversed(proxied(std::move(a)))), 500, 4, 8); }},
    {"cache between permutations",
     [](Accessor a) { return turned(std::move(a), [](Accessor b) { return cached(std::move(b), 300); }); }},
    {"reversal between permutations", [](Accessor a) { return reversed(turned(std::move(a), reversed)); }},
    {"converter between permutations",
     [](Accessor a) { return turned(std::move(a), [](Accessor b) { return converted(std::move(b)); }); }, true},
    {"checks around a cache", [](Accessor a) { return CheckFilter::Apply(cached(CheckFilter::Apply(std::move(a)))); }},
    {"check over converter over check",
     [](Accessor a) { return CheckFilter::Apply(converted(CheckFilter::Apply(std::move(a)))); }, true},
    {"converter", [](Accessor a) { return converted(std::move(a)); }, true},
    {"a host's converter over a cache", [](Accessor a) { return hostConverted(cached(std::move(a), 300)); }, true},
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
inline Accessor bricks(PlainArray<float> const& shown, bool converts, BrickOptions const& options) {
    if (!converts) {
        return std::make_unique<BrickAccessor<float>>(shown, options);
    }
    PlainArray<short> stored(shown.size());
    std::transform(shown.samples().begin(), shown.samples().end(), stored.samples().begin(), [](float sample) {
        return static_cast<short>((sample - kOffset) / kScale);
    });
    return std::make_unique<BrickAccessor<short>>(stored, options);
}

}  // namespace Quorvel::Dravik::Adt::Testing
