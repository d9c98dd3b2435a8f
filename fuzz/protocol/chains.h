// SPDX-License-Identifier: Apache-2.0
#pragma once

// Chains of accessors built together with their records, and what is known of all of them. Nothing is shared between
// threads.

#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/converters/value_converter_factory.h"

#include "../input.h"
#include "converter.h"
#include "filters.h"
#include "host.h"

#include <boost/make_shared.hpp>

#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {

/// A chain while it is built, in both worlds.
struct Chain {
    std::unique_ptr<BulkView::IBufferAccessor> real;
    std::unique_ptr<ModelAccessor> model;
    bool isFloat = false;
};

/// What can be put in the place of the targets of some proxies, and how.
struct Exchange {
    boost::shared_ptr<BulkView::Filters::ProxyFilter::ProxyTargetController> controller;
    ModelProxy::Proxies proxies;
    Index size;
    bool isFloat;
};

/// Makes chains of up to so many layers as its input says. Lives longer than they do.
class Builder {
  public:
    explicit Builder(Input& input) : input_(input), data_(anySize()) { modelHosts_.real = &hosts_.living; }

    Host::World& hosts() { return hosts_; }
    ModelHost::World& modelHosts() { return modelHosts_; }
    std::vector<Exchange> const& exchanges() const { return exchanges_; }
    Box const& box() const { return data_.box(); }

    Chain makeChain() {
        Chain chain = makeHosts();
        for (int layers = input_.between(0, 4); layers > 0; --layers) {
            addLayer(chain);
        }
        return chain;
    }

    /// Bricks that look from above like the target of a proxy.
    Chain makeTarget(Exchange const& exchange) {
        Chain chain = makeHosts();
        ExtentK<4, int> subset;
        for (int axis = 0; axis < 4; ++axis) {
            subset[axis] = {0, 1, exchange.size[axis]};
        }
        cut(chain, subset);
        exchange.isFloat ? addConverter(chain) : void();
        return chain;
    }

    /// Lets go of the samples that were kept for whoever holds loans without an owner.
    void letGo() {
        kept_.clear();
        keptModels_.clear();
    }

  private:
    Index anySize() {
        int const longest = input_.between(0, 7) == 0 ? 130 : input_.between(1, 6);
        return {input_.between(1, 4), input_.between(1, 4), longest, input_.between(1, 2)};
    }

    HostOptions anyOptions() {
        HostOptions options;
        auto& bricks = options.bricks;
        bricks.brickSize = {input_.between(1, 3), input_.between(1, 3), input_.between(1, 4), input_.between(1, 2)};
        bricks.brickSize[2] = data_.size()[2] == 130 ? input_.between(60, 130) : bricks.brickSize[2];
        bricks.fastestAxis = input_.between(0, 3);
        bricks.padding = input_.between(0, 2);
        bricks.backwards = input_.flag();
        bricks.grantedForRead = input_.flag() ? BulkView::AdtEnums::Read : BulkView::AdtEnums::ReadWrite;
        bricks.hasMemory = input_.between(0, 7) != 0;
        bricks.givesOwner = input_.between(0, 3) != 0;
        bricks.locksOwner = input_.flag();
        options.leavesOwner = input_.between(0, 7) == 0;
        bricks.invalidatesEvery = options.leavesOwner || input_.flag() ? 0 : input_.between(2, 4);
        return options;
    }

    Chain makeHosts() {
        short value = input_.take<unsigned char>();
        for (short& sample : data_.samples()) {
            sample = value++;
        }
        HostOptions const options = anyOptions();
        auto real = std::make_unique<Host>(hosts_, data_, options);
        auto model = std::make_unique<ModelHost>(modelHosts_, data_, options);
        if (!options.canExchange()) {
            // Their samples stay as long as the host itself, which loans may outlive here.
            kept_.push_back(std::make_unique<Testing::BrickAccessor<short>>(*real));
            keptModels_.push_back(model->keepAlive());
        }
        return {std::move(real), std::move(model), /*isFloat=*/false};
    }

    void addLayer(Chain& chain) {
        switch (input_.between(0, 3)) {
        case 0:
            return addSubset(chain);
        case 1:
            return addCache(chain);
        case 2:
            return addProxy(chain);
        default:
            return addConverter(chain);
        }
    }

    void addSubset(Chain& chain) {
        ExtentK<4, int> subset;
        Index const size = chain.model->size();
        for (int axis = 0; axis < 4; ++axis) {
            int const first = input_.between(0, size[axis] - 1);
            int const step = input_.between(1, 3);
            bool const isReversed = input_.flag();
            int const room = isReversed ? first : size[axis] - 1 - first;
            subset[axis] = {first, isReversed ? -step : step, input_.between(1, room / step + 1)};
        }
        cut(chain, subset);
    }

    static void cut(Chain& chain, ExtentK<4, int> const& subset) {
        chain.real = BulkView::Filters::SubsetFilter::MakeSubset(std::move(chain.real), subset);
        chain.model = std::make_unique<ModelSubset>(std::move(chain.model), subset);
    }

    void addCache(Chain& chain) {
        Testing::CacheLimits const limits{input_.between(-1, 100), input_.between(-1, 5), input_.between(-1, 5)};
        chain.real = BulkView::Filters::CacheFilter::Apply(
            std::move(chain.real), limits.sampleBudget, limits.halfDensityThreshold, limits.fullDensityThreshold);
        chain.model = ModelCache::apply(std::move(chain.model), limits);
    }

    void addProxy(Chain& chain) {
        Exchange const& added = exchanges_.emplace_back(Exchange{
            boost::make_shared<BulkView::Filters::ProxyFilter::ProxyTargetController>(),
            std::make_shared<std::set<ModelProxy*>>(), chain.model->size(), chain.isFloat});
        chain.real = BulkView::Filters::ProxyFilter::MakeProxy(std::move(chain.real), added.controller);
        chain.model = std::make_unique<ModelProxy>(std::move(chain.model), added.proxies);
    }

    void addConverter(Chain& chain) {
        auto const& from = chain.isFloat ? typeid(float) : typeid(short);
        auto const& to = chain.isFloat ? typeid(short) : typeid(float);
        chain.isFloat = !chain.isFloat;
        bool const carriesBack = input_.between(0, 7) != 0;
        chain.real = BulkView::Filters::ValueConvertFilter::Apply(
            std::move(chain.real), chain.isFloat ? 4 : 2, Converters::ValueConverterFactory::getTypeConverter(from, to),
            carriesBack ? Converters::ValueConverterFactory::getTypeConverter(to, from) : nullptr);
        chain.model = std::make_unique<ModelConverter>(std::move(chain.model), chain.isFloat, carriesBack);
    }

    Input& input_;
    Testing::PlainArray<short> data_;
    Host::World hosts_;
    ModelHost::World modelHosts_;
    std::vector<std::unique_ptr<BulkView::IBufferAccessor>> kept_;
    std::vector<std::shared_ptr<void const>> keptModels_;
    std::vector<Exchange> exchanges_;
};

}  // namespace Quorvel::Dravik::Adt::Fuzz
