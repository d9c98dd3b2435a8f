// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a typed view does with its one handle, step by step over plain records.

#include "host.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

namespace Quorvel::Dravik::Adt::Fuzz {

/// A view of three axes that reads and writes.
class ModelView final : public ModelClient {
  public:
    ~ModelView() override { loan_.reset(/*releaseOwner=*/true); }

    void init(std::unique_ptr<ModelAccessor> accessor) {
        chain = std::move(accessor);
        chain->setClient(this);
    }

    /// Nothing where there is no memory.
    std::optional<short> get(Index const& p) {
        if (!isFetched_ || !loan_.contains<3>(p)) {
            do {
                fetch(p, BulkView::AdtEnums::Read);
            } while (resetIfInvalidated());
        }
        return loan_.buffer == nullptr ? std::nullopt : std::optional(loan_.at(p));
    }

    void set(Index const& p, short value) {
        if (!isFetched_ || !isForWriting_ || !loan_.contains<3>(p)) {
            do {
                bool const mayBeWritten = isFetched_ && !isForWriting_ && loan_.contains<3>(p) &&
                                          loan_.access == BulkView::AdtEnums::ReadWrite;
                mayBeWritten ? void() : fetch(p, BulkView::AdtEnums::ReadWrite);
                isForWriting_ = true;
            } while (resetIfInvalidated());
        }
        if (loan_.buffer != nullptr) {
            loan_.at(p) = value;
        }
    }

    void accessorUpdated() override { bufferInvalidated(loan_.owner.get()); }
    void bufferInvalidated(ModelOwner const* owner) override {
        if (owner == loan_.owner.get()) {
            loan_.invalidate(/*emptyRange=*/!(isFetched_ && loan_.buffer == nullptr));
        }
    }
    bool prepareBufferRelease(Memory const* buffer, int& value) override {
        bool const isHeld = buffer == loan_.buffer;
        if (isHeld) {
            value = std::max(value, 10000);
            loan_.invalidate(/*emptyRange=*/true);
        }
        return isHeld;
    }
    void releaseBuffer(Memory const* buffer, std::shared_ptr<ModelOwner> owner) override {
        loan_.tryThreadSafeReset(buffer, owner);
    }
    std::unique_ptr<ModelAccessor> releaseAccessor() override {
        loan_.reset(/*releaseOwner=*/true);
        isFetched_ = isForWriting_ = false;
        chain.reset();
        return nullptr;
    }

    std::unique_ptr<ModelAccessor> chain;

  private:
    void fetch(Index const& p, Access access) {
        chain->getBuffer(p, access, loan_);
        isFetched_ = true;
        isForWriting_ = loan_.buffer == nullptr || access != BulkView::AdtEnums::Read;
    }
    bool resetIfInvalidated() {
        if (!loan_.invalidated) {
            return false;
        }
        isFetched_ = false;
        loan_.reset(/*releaseOwner=*/true);
        return true;
    }

    ModelLoan loan_;
    bool isFetched_ = false;
    bool isForWriting_ = false;
};

}  // namespace Quorvel::Dravik::Adt::Fuzz
