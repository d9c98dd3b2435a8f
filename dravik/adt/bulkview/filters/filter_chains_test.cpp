// SPDX-License-Identifier: Apache-2.0
// Chains of up to five filters over bricks, in any order, read, written, swapped, cloned and notified at random,
// against a plain array addressed by arithmetic of its own.

#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/converters/value_converter_factory.h"

#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Bricks = Testing::BrickAccessor<short>;
using Index = FixedVector<4, int>;
using Testing::Random;

class Chain {
  public:
    explicit Chain(Random& random) : random_(random) {
        chain_ = makeBricks();
        for (int layers = random.between(0, 5); layers > 0; --layers) {
            addLayer();
        }
        chain_->setClient(&client_);
    }

    void run() {
        constexpr void (Chain::*kSteps[])() = {
            &Chain::notify, &Chain::swap, &Chain::clone, &Chain::reset, &Chain::write, &Chain::read,
        };
        for (int steps = random_.between(10, 60); steps > 0 && !testing::Test::HasFatalFailure(); --steps) {
            (this->*kSteps[random_.oneOf({0, 1, 2, 3, 4, 4, 4, 5, 5, 5})])();
        }
        client_.handle.reset(/*releaseOwner=*/true);
        chain_.reset();
        Testing::forEachIndex(model_.box(), [&](Index const& index) {
            short const held = bricks_->brickAt(index)->at(index);
            EXPECT_EQ(held, model_.at(index)) << "a write was lost or strayed at " << index;
            return held == model_.at(index);
        });
    }

  private:
    int upTo(int most) { return random_.between(1, most); }
    Index indexBelow(auto const& lengthOf) {
        Index index;
        for (int axis = 0; axis < 4; ++axis) {
            index[axis] = random_.between(0, lengthOf(axis) - 1);
        }
        return index;
    }

    // Bricks over the model; bricks_ looks at the same ones from beside the chain.
    std::unique_ptr<IBufferAccessor> makeBricks() {
        model_.fill(random_.chance(50) ? random_ : seeded_, 1000);
        Testing::BrickOptions options;
        options.brickSize = {upTo(5), upTo(5), upTo(5), upTo(3)};
        options.fastestAxis = random_.between(0, 3);
        options.padding = random_.between(0, 2);
        options.backwards = random_.chance(50);
        options.invalidatesEvery = random_.oneOf({0, 0, 0, 2, 3, 4});
        options.grantedForRead = random_.oneOf({AdtEnums::Read, AdtEnums::ReadWrite});
        bricks_ = std::make_unique<Bricks>(model_, options);
        notifier_ = new Bricks(*bricks_);
        return std::unique_ptr<IBufferAccessor>(notifier_);
    }

    void addLayer() {
        bool const wasBare = std::exchange(isBare_, false);
        switch (random_.between(0, 3)) {
        case 0:
            return addSubset();
        case 1:
            // Above a converter a cache would keep what nobody tells it about.
            if (!converts_) {
                chain_ = CacheFilter::Apply(
                    std::move(chain_), random_.between(-1, 100), random_.between(-1, 5), random_.between(-1, 5));
            }
            return;
        case 2: {
            auto const controller = boost::make_shared<ProxyFilter::ProxyTargetController>();
            chain_ = ProxyFilter::MakeProxy(std::move(chain_), controller);
            // Only what stands right above the bricks can be swapped for other bricks.
            swappable_ = wasBare ? controller : swappable_;
            return;
        }
        default:
            return addConverter();
        }
    }

    void addSubset() {
        ExtentK<4, int> subset;
        for (int axis = 0; axis < 4; ++axis) {
            auto& shown = shown_[axis];
            int const first = random_.between(0, shown.count - 1);
            int const step = random_.oneOf({-3, -2, -1, 1, 2, 3});
            int const room = step < 0 ? first : shown.count - 1 - first;
            subset[axis] = {first, step, upTo(room / std::abs(step) + 1)};
            shown = {shown.origin + first * shown.step, shown.step * step, subset[axis].count};
        }
        chain_ = SubsetFilter::MakeSubset(std::move(chain_), subset);
    }

    void addConverter() {
        using Factory = Converters::ValueConverterFactory;
        auto const& from = isFloat_ ? typeid(float) : typeid(short);
        auto const& to = isFloat_ ? typeid(short) : typeid(float);
        isFloat_ = !isFloat_;
        converts_ = true;
        chain_ = ValueConvertFilter::Apply(
            std::move(chain_), isFloat_ ? 4 : 2, Factory::getTypeConverter(from, to),
            Factory::getTypeConverter(to, from));
    }

    short& modelAt(Index const& index) {
        Index place;
        for (int axis = 0; axis < 4; ++axis) {
            place[axis] = shown_[axis].origin + index[axis] * shown_[axis].step;
        }
        return model_.at(place);
    }

    // As a view does: the block at hand if it serves, else a request.
    Index obtain(AdtEnums::Access access) {
        Index const index = indexBelow([&](int axis) { return shown_[axis].count; });
        BufferHandle const& handle = client_.handle;
        if (!handle.contains(index) || handle.isNull() || !handle.isCompatibleAccess(access)) {
            client_.request(*chain_, index, access);
        }
        return index;
    }

    template <class T>
    T& sampleAt(Index const& index) {
        return static_cast<T*>(client_.handle.buffer())[client_.handle.offset(index)];
    }

    void read() {
        Index const asked = obtain(AdtEnums::Read);
        auto const range = client_.handle.range4();
        ASSERT_TRUE(range.contains(asked)) << asked << range;
        Testing::forEachIndex(range, [&](Index const& index) {
            float const sample = isFloat_ ? sampleAt<float>(index) : sampleAt<short>(index);
            EXPECT_EQ(sample, modelAt(index)) << "at " << index;
            return sample == modelAt(index);
        });
    }

    void write() {
        Index const index = obtain(AdtEnums::ReadWrite);
        short const value = modelAt(index) = random_.between<short>(-1000, 1000);
        isFloat_ ? void(sampleAt<float>(index) = value) : void(sampleAt<short>(index) = value);
    }

    // The bricks below are exchanged, or taken back, under whatever holds their samples. A converter's runs answer for
    // themselves, and what it holds below is not given back.
    void notify() {
        if (notifier_ == nullptr || converts_) {
            return;
        }
        Index const index = indexBelow([&](int axis) { return model_.size()[axis]; });
        if (random_.chance(50)) {
            notifier_->change(index, model_.at(index) = random_.between<short>(0, 1000));
        } else {
            notifier_->prepareRelease(index);
            notifier_->release(index);
        }
    }

    void swap() {
        if (swappable_ != nullptr) {
            reset();  // a run that is still pending belongs to the bricks that go
            swappable_->setTarget(makeBricks());
        }
    }

    void clone() {
        reset();
        chain_ = chain_->createClone();
        chain_->setClient(&client_);
        notifier_ = nullptr;
    }

    void reset() { client_.handle.reset(/*releaseOwner=*/true); }

    Random& random_;
    Random seeded_{1};
    Testing::PlainArray<short> model_{{upTo(9), upTo(9), upTo(9), upTo(3)}};
    Testing::Borrower client_;
    std::unique_ptr<Bricks> bricks_;
    Bricks* notifier_ = nullptr;  // at the bottom of the chain; null once the chain is a clone
    std::unique_ptr<IBufferAccessor> chain_;
    boost::shared_ptr<ProxyFilter::ProxyTargetController> swappable_;
    ExtentK<4, int> shown_{model_.box()};  // the chain's indices in those of the bricks
    bool isFloat_ = false, converts_ = false, isBare_ = true;
};

TEST(FilterChains, ShowAndCarryEverySample) {
    Random random;
    for (int round = 0; round < 5000 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        Chain(random).run();
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
