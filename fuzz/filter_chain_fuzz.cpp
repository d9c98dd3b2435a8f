// SPDX-License-Identifier: Apache-2.0
// Chains of up to five filters over bricks, in any order, read, written, swapped, cloned and notified at will, against
// a plain array addressed by arithmetic of its own. When the chain has gone, every sample below is what was written.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/plain_array.h"

#include "input.h"

#include <boost/make_shared.hpp>

#include <array>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

using BulkView::AdtEnums;
using BulkView::BufferHandle;
using BulkView::IBufferAccessor;
using namespace BulkView::Filters;
using Converters::ValueConverterFactory;
using Bricks = Testing::BrickAccessor<short>;
using Model = Testing::PlainArray<short>;
using Index = FixedVector<4, int>;

/// What a consumer does about notifications.
class Client : public IBufferAccessor::IClient {
  public:
    void accessorUpdated() override { handle.invalidate(/*emptyRange=*/true); }
    void bufferInvalidated(BufferHandle::Owner const* owner) override {
        if (owner == handle.owner()) {
            handle.invalidate(/*emptyRange=*/true);
        }
    }
    bool prepareBufferRelease(void const* buffer, int&) override {
        bool const isMine = buffer == handle.buffer();
        if (isMine) {
            handle.invalidate(/*emptyRange=*/true);
        }
        return isMine;
    }
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override {
        handle.tryThreadSafeReset(buffer, owner);
    }
    std::unique_ptr<IBufferAccessor> releaseAccessor() override { return nullptr; }

    BufferHandle handle;
};

/// The chain, its client and the model that both are held against.
class Script {
  public:
    explicit Script(Input& input) : input_(input), model_(anySize()) {
        fillModel();
        chain_ = makeBricks();
        for (int axis = 0; axis < 4; ++axis) {
            shown_[axis] = {0, 1, model_.size()[axis]};
        }
        for (int layers = input_.between(0, 5); layers > 0; --layers) {
            addLayer();
        }
        chain_->setClient(&client_);
    }

    void run() {
        for (int steps = 0; steps < 200 && !input_.isEmpty(); ++steps) {
            step();
        }
        client_.handle.reset(/*releaseOwner=*/true);
        chain_.reset();
        Testing::forEachIndex(model_.box(), [&](Index const& index) {
            short const held = bricks_->brickAt(index)->at(index);
            require(held == model_.at(index), "a write was lost or strayed", index, held, model_.at(index));
            return true;
        });
    }

  private:
    Index anySize() { return {input_.between(1, 9), input_.between(1, 9), input_.between(1, 9), input_.between(1, 3)}; }

    void fillModel() {
        int value = input_.between(0, 255);
        for (short& sample : model_.samples()) {
            sample = static_cast<short>(value++ % 1000);
        }
    }

    /// Bricks over the model; bricks_ looks at the same ones from beside the chain.
    std::unique_ptr<IBufferAccessor> makeBricks() {
        Testing::BrickOptions options;
        options.brickSize = {input_.between(1, 5), input_.between(1, 5), input_.between(1, 5), input_.between(1, 3)};
        options.fastestAxis = input_.between(0, 3);
        options.padding = input_.between(0, 2);
        options.backwards = input_.flag();
        options.invalidatesEvery = input_.flag() ? 0 : input_.between(2, 4);
        options.grantedForRead = input_.flag() ? AdtEnums::Read : AdtEnums::ReadWrite;
        bricks_ = std::make_unique<Bricks>(model_, options);
        notifier_ = new Bricks(*bricks_);
        return std::unique_ptr<IBufferAccessor>(notifier_);
    }

    void addLayer() {
        switch (input_.between(0, 3)) {
        case 0:
            return addSubset();
        case 1:
            // Above a converter a cache would keep what nobody tells it about.
            if (!converts_) {
                chain_ = CacheFilter::Apply(
                    std::move(chain_), input_.between(-1, 100), input_.between(-1, 5), input_.between(-1, 5));
            }
            return;
        case 2:
            controller_ = boost::make_shared<ProxyFilter::ProxyTargetController>();
            chain_ = ProxyFilter::MakeProxy(std::move(chain_), controller_);
            // Only what stands right above the bricks can be swapped for other bricks.
            controller_ = isBare_ ? controller_ : nullptr;
            isBare_ = false;
            swappable_ = controller_ != nullptr ? controller_ : swappable_;
            return;
        default:
            return addConverter();
        }
    }

    void addSubset() {
        ExtentK<4, int> subset;
        for (int axis = 0; axis < 4; ++axis) {
            int const size = shown_[axis].count;
            int const first = input_.between(0, size - 1);
            int const step = input_.between(1, 3);
            bool const reversed = input_.flag();
            int const room = reversed ? first : size - 1 - first;
            subset[axis] = {first, reversed ? -step : step, input_.between(1, room / step + 1)};
            shown_[axis] = {
                shown_[axis].origin + first * shown_[axis].step, shown_[axis].step * subset[axis].step,
                subset[axis].count};
        }
        chain_ = SubsetFilter::MakeSubset(std::move(chain_), subset);
        isBare_ = false;
    }

    void addConverter() {
        auto const& from = isFloat_ ? typeid(float) : typeid(short);
        auto const& to = isFloat_ ? typeid(short) : typeid(float);
        isFloat_ = !isFloat_;
        chain_ = ValueConvertFilter::Apply(
            std::move(chain_), isFloat_ ? 4 : 2, ValueConverterFactory::getTypeConverter(from, to),
            ValueConverterFactory::getTypeConverter(to, from));
        converts_ = true;
        isBare_ = false;
    }

    Index anyIndex() {
        Index index;
        for (int axis = 0; axis < 4; ++axis) {
            index[axis] = input_.between(0, shown_[axis].count - 1);
        }
        return index;
    }

    Index below(Index const& index) const {
        Index place;
        for (int axis = 0; axis < 4; ++axis) {
            place[axis] = shown_[axis].origin + index[axis] * shown_[axis].step;
        }
        return place;
    }

    /// As a view does: the block at hand if it serves, else a request, and another one if the loan came back marked.
    void obtain(Index const& index, AdtEnums::Access access) {
        BufferHandle& handle = client_.handle;
        if (handle.contains(index) && !handle.isNull() && handle.isCompatibleAccess(access)) {
            return;
        }
        for (int attempt = 0; attempt < 8; ++attempt) {
            chain_->getBuffer(index, access, handle);
            if (!handle.isInvalidated()) {
                return;
            }
            handle.reset(/*releaseOwner=*/true);
        }
        require(false, "invalid at every attempt");
    }

    void expectSampleAt(Index const& index) {
        BufferHandle const& handle = client_.handle;
        auto const* const bytes = static_cast<char const*>(handle.buffer()) + handle.offset(index) * (isFloat_ ? 4 : 2);
        float value = 0;
        if (isFloat_) {
            std::memcpy(&value, bytes, 4);
        } else {
            short sample = 0;
            std::memcpy(&sample, bytes, 2);
            value = sample;
        }
        require(
            value == static_cast<float>(model_.at(below(index))), "wrong sample", index, value,
            model_.at(below(index)));
    }

    void read() {
        Index const index = anyIndex();
        obtain(index, AdtEnums::Read);
        auto const range = client_.handle.range4();
        require(range.contains(index), "block without the position", index, range);
        for (int axis = 0; axis < 4; ++axis) {
            require(range.min[axis] >= 0 && range.max[axis] <= shown_[axis].count, "block beyond the accessor", range);
        }
        Testing::forEachIndex(range, [&](Index const& each) { return expectSampleAt(each), true; });
    }

    void write() {
        Index const index = anyIndex();
        obtain(index, AdtEnums::ReadWrite);
        auto const value = static_cast<short>(input_.between(-1000, 1000));
        auto* const bytes = static_cast<char*>(client_.handle.buffer());
        auto const position = client_.handle.offset(index);
        if (isFloat_) {
            auto const sample = static_cast<float>(value);
            std::memcpy(bytes + position * 4, &sample, 4);
        } else {
            std::memcpy(bytes + position * 2, &value, 2);
        }
        model_.at(below(index)) = value;
    }

    /// The bricks below are exchanged, or taken back, under whatever holds their samples.
    void notify() {
        if (converts_) {
            return;  // its runs answer for themselves, and what it holds below is not given back
        }
        Index index;
        for (int axis = 0; axis < 4; ++axis) {
            index[axis] = input_.between(0, model_.size()[axis] - 1);
        }
        if (input_.flag()) {
            auto const value = static_cast<short>(input_.between(0, 1000));
            notifier_->change(index, value);
            model_.at(index) = value;
        } else {
            notifier_->prepareRelease(index);
            notifier_->release(index);
        }
    }

    void swap() {
        if (swappable_ == nullptr) {
            return;
        }
        // A run that is still pending belongs to the bricks that go.
        client_.handle.reset(/*releaseOwner=*/true);
        fillModel();
        swappable_->setTarget(makeBricks());
    }

    void clone() {
        client_.handle.reset(/*releaseOwner=*/true);
        auto copy = chain_->createClone();
        copy->setClient(&client_);
        chain_ = std::move(copy);
        notifier_ = nullptr;
    }

    void step() {
        switch (input_.between(0, 9)) {
        case 0:
            return notifier_ != nullptr ? notify() : void();
        case 1:
            return swap();
        case 2:
            return clone();
        case 3:
            return client_.handle.reset(input_.flag());
        case 4:
        case 5:
        case 6:
            return write();
        default:
            return read();
        }
    }

    Input& input_;
    Model model_;
    Client client_;
    std::unique_ptr<Bricks> bricks_;
    Bricks* notifier_ = nullptr;  ///< the accessor at the bottom of the chain; null once the chain is a clone
    std::unique_ptr<IBufferAccessor> chain_;
    boost::shared_ptr<ProxyFilter::ProxyTargetController> controller_;
    boost::shared_ptr<ProxyFilter::ProxyTargetController> swappable_;
    ExtentK<4, int> shown_;  ///< the chain's indices in those of the bricks
    bool isFloat_ = false;
    bool converts_ = false;
    bool isBare_ = true;
};

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    Script(input).run();
    return 0;
}
