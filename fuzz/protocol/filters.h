// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rules of filters once more, step by step over plain records: who asks whom, who holds what, who is told first,
// and when what was written arrives. Nothing is shared between threads.

#include "dravik/adt/core/extent.h"
#include "dravik/adt/testing/slow_cache.h"

#include "host.h"

#include <memory>
#include <set>
#include <utility>

namespace Quorvel::Dravik::Adt::Fuzz {

/// What every filter is: the owner of a target. Relays nothing and everything: those that are clients say what.
class ModelFilter : public ModelAccessor {
  public:
    explicit ModelFilter(std::unique_ptr<ModelAccessor> target) : target_(std::move(target)) {}
    Index size() const override { return target_->size(); }
    void setClient(ModelClient* client) override { target_->setClient(client); }
    void dispose() override { target_->dispose(); }
    int hostNumber() const override { return target_->hostNumber(); }

  protected:
    std::unique_ptr<ModelAccessor> target_;
};

class ModelSubset final : public ModelFilter {
  public:
    ModelSubset(std::unique_ptr<ModelAccessor> target, ExtentK<4, int> const& subset)
        : ModelFilter(std::move(target)), subset_(subset) {}

    Index size() const override { return {subset_[0].count, subset_[1].count, subset_[2].count, subset_[3].count}; }
    std::unique_ptr<ModelAccessor> clone() const override {
        return std::make_unique<ModelSubset>(target_->clone(), subset_);
    }
    void getBuffer(Index position, Access access, ModelLoan& loan) override {
        for (int axis = 0; axis < 4; ++axis) {
            position[axis] = below(axis, position[axis]);
        }
        target_->getBuffer(position, access, loan);
        for (int axis = 0; axis < 4 && !loan.isEmptied(); ++axis) {
            relabel(axis, loan.info);
        }
    }

  private:
    int below(int axis, int index) const { return subset_[axis].origin + index * subset_[axis].step; }

    // The indices here whose index below lies in the block, counted one by one.
    void relabel(int axis, ArrayInfo& info) const {
        int const low = info.range.min[axis];
        int const high = info.range.max[axis];
        auto const isInside = [&](int index) { return low <= below(axis, index) && below(axis, index) < high; };
        int first = 0;
        while (first < subset_[axis].count && !isInside(first)) {
            ++first;
        }
        int end = first;
        while (end < subset_[axis].count && isInside(end)) {
            ++end;
        }
        info.offset += (below(axis, first) - low) * info.strides[axis];
        info.strides[axis] *= subset_[axis].step;
        info.range.min[axis] = first;
        info.range.max[axis] = end;
    }

    ExtentK<4, int> subset_;
};

/// A filter between its client and its target.
class ModelStatefulFilter : public ModelFilter, public ModelClient {
  public:
    using ModelFilter::ModelFilter;

    void setClient(ModelClient* client) override {
        client_ = client;
        target_->setClient(client == nullptr ? nullptr : this);
    }
    void dispose() override {
        target_->dispose();
        client_ = nullptr;
    }
    void accessorUpdated() override { client_ != nullptr ? client_->accessorUpdated() : void(); }
    void bufferInvalidated(ModelOwner const* owner) override {
        client_ != nullptr ? client_->bufferInvalidated(owner) : void();
    }
    bool prepareBufferRelease(Memory const* buffer, int& value) override {
        return client_ != nullptr && client_->prepareBufferRelease(buffer, value);
    }
    void releaseBuffer(Memory const* buffer, std::shared_ptr<ModelOwner> owner) override {
        client_ != nullptr ? client_->releaseBuffer(buffer, std::move(owner)) : void();
    }
    std::unique_ptr<ModelAccessor> releaseAccessor() override {
        return client_ != nullptr ? client_->releaseAccessor() : nullptr;
    }

  protected:
    ModelClient* client_ = nullptr;
};

class ModelProxy final : public ModelStatefulFilter {
  public:
    using Proxies = std::shared_ptr<std::set<ModelProxy*>>;

    ModelProxy(std::unique_ptr<ModelAccessor> target, Proxies proxies)
        : ModelStatefulFilter(std::move(target)), proxies_(std::move(proxies)) {
        proxies_->insert(this);
    }
    ~ModelProxy() override { proxies_->erase(this); }

    std::unique_ptr<ModelAccessor> clone() const override {
        return std::make_unique<ModelProxy>(target_->clone(), proxies_);
    }
    void getBuffer(Index position, Access access, ModelLoan& loan) override {
        target_->getBuffer(position, access, loan);
    }
    void setTarget(std::unique_ptr<ModelAccessor> target) {
        target_->dispose();
        target_.swap(target);
        if (client_ != nullptr) {
            target_->setClient(this);
        }
        accessorUpdated();
    }

  private:
    Proxies proxies_;
};

class ModelCache final : public ModelStatefulFilter {
  public:
    ModelCache(std::unique_ptr<ModelAccessor> target, int axes, Testing::CacheLimits const& limits)
        : ModelStatefulFilter(std::move(target)), axes_(axes), limits_(limits) {}
    ~ModelCache() override { forgetAll(); }

    /// The cache that a target of this size gets; the target itself where it gets none.
    static std::unique_ptr<ModelAccessor> apply(
        std::unique_ptr<ModelAccessor> target, Testing::CacheLimits const& limits) {
        Index const size = target->size();
        int const axes = size[3] >= 2 ? 4 : size[2] >= 2 ? 3 : size[1] >= 2 ? 2 : 0;
        return axes == 0 ? std::move(target) : std::make_unique<ModelCache>(std::move(target), axes, limits);
    }

    std::unique_ptr<ModelAccessor> clone() const override {
        return std::make_unique<ModelCache>(target_->clone(), axes_, limits_);
    }
    void getBuffer(Index position, Access access, ModelLoan& loan) override {
        if (auto found = entries_.lookUp(position, access)) {
            loan = std::move(*found);
            return;
        }
        target_->getBuffer(position, access, loan);
        entries_.store(loan);
    }
    void dispose() override {
        forgetAll();
        ModelStatefulFilter::dispose();
    }
    void accessorUpdated() override {
        ModelStatefulFilter::accessorUpdated();
        forgetAll();
    }
    void bufferInvalidated(ModelOwner const* owner) override {
        ModelStatefulFilter::bufferInvalidated(owner);
        entries_.forget([=](ModelLoan const& loan) { return loan.owner.get() == owner; });
    }
    bool prepareBufferRelease(Memory const* buffer, int& value) override {
        bool const isHeldAbove = ModelStatefulFilter::prepareBufferRelease(buffer, value);
        return forget(buffer) || isHeldAbove;
    }
    void releaseBuffer(Memory const* buffer, std::shared_ptr<ModelOwner> owner) override {
        forget(buffer);
        ModelStatefulFilter::releaseBuffer(buffer, std::move(owner));
    }

  private:
    bool forget(Memory const* buffer) {
        return entries_.forget([=](ModelLoan const& loan) { return loan.buffer == buffer; });
    }
    void forgetAll() {
        entries_.forget([](ModelLoan const&) { return true; });
    }

    int axes_;
    Testing::CacheLimits limits_;
    Testing::SlowCacheOf<ModelLoan> entries_{axes_, limits_};
};

}  // namespace Quorvel::Dravik::Adt::Fuzz
