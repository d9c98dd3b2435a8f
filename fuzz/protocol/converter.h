// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rules of the filter that shows samples of another type, once more over plain records: runs, and when what was
// written into them arrives. Nothing is shared between threads.

#include "filters.h"

#include <algorithm>
#include <list>
#include <memory>
#include <utility>

namespace Quorvel::Dravik::Adt::Fuzz {

/// Between short and float, and the other way: whole numbers, which lose nothing on the way.
class ModelConverter final : public ModelStatefulFilter {
  public:
    ModelConverter(std::unique_ptr<ModelAccessor> target, bool isFloat, bool carriesBack)
        : ModelStatefulFilter(std::move(target)), isFloat_(isFloat), carriesBack_(carriesBack) {}
    ~ModelConverter() override { detachRuns(); }

    std::unique_ptr<ModelAccessor> clone() const override {
        return std::make_unique<ModelConverter>(target_->clone(), isFloat_, carriesBack_);
    }
    void getBuffer(Index position, Access access, ModelLoan& loan) override {
        auto* run = dynamic_cast<Run*>(loan.owner.get());
        if (run != nullptr && run->filter == this && loan.owner.use_count() == 1) {
            run->carryBack();
            loan.lend(nullptr, ArrayInfo(), BulkView::AdtEnums::NoAccess);
        } else {
            auto const made = std::make_shared<Run>(*this);
            run = made.get();
            loan.lend(nullptr, ArrayInfo(), BulkView::AdtEnums::NoAccess);
            loan.owner = made;
        }
        run->lend(position, access, loan);
    }
    void dispose() override {
        detachRuns();
        ModelStatefulFilter::dispose();
    }
    void accessorUpdated() override {
        for (Run* const run : runs_) {
            run->isFresh = false;
            run->isStale = true;
            run->pending = run->block.owner == nullptr ? 0 : run->pending;
        }
        ModelStatefulFilter::accessorUpdated();
    }
    void bufferInvalidated(ModelOwner const*) override {}
    bool prepareBufferRelease(Memory const*, int&) override { return false; }
    void releaseBuffer(Memory const*, std::shared_ptr<ModelOwner>) override {}

  private:
    struct Run : ModelOwner {
        explicit Run(ModelConverter& madeBy) : filter(&madeBy) {
            filter->runs_.push_front(this);
            memory.isFloat = filter->isFloat_;
        }
        ~Run() override { detach(); }

        void lend(Index const& position, Access access, ModelLoan& loan) {
            bool const isForWriting = BulkView::AdtEnums::isWriteAccess(block.access);
            if (!isFresh || !block.contains(position) || block.invalidated ||
                (access != BulkView::AdtEnums::Read && !isForWriting)) {
                fetch(position, access);
            }
            ArrayInfo const info = rowAround(position);
            loan.lend(block.buffer == nullptr ? nullptr : &memory, info, access);
            if (block.buffer == nullptr) {
                return;
            }
            first = info.range.min;
            memory.samples.clear();
            for (Index p = first; p[axis] < info.range.max[axis]; ++p[axis]) {
                memory.samples.push_back(block.at(p));
            }
            pending = BulkView::AdtEnums::isWriteAccess(access) ? info.range.max[axis] - first[axis] : 0;
        }
        void fetch(Index const& position, Access access) {
            isFresh = false;
            std::exchange(isStale, false) ? block.reset(/*releaseOwner=*/true) : void();
            filter->target_->getBuffer(position, access, block);
            while (block.invalidated) {
                block.reset(/*releaseOwner=*/true);
                filter->target_->getBuffer(position, access, block);
            }
            auto const& box = block.info.range;
            axis = box.size(2) > 1 ? 2 : box.size(1) > 1 ? 1 : 0;
            length = box.max[axis] - box.min[axis];
            length = length > 100 && position[axis] != box.min[axis] ? 64 : length;
            isFresh = block.buffer != nullptr;
        }
        ArrayInfo rowAround(Index const& position) const {
            ArrayInfo info{{position, position + Index::Filled(1)}, {}, 0};
            info.range.max[axis] = std::min(position[axis] + length, block.info.range.max[axis]);
            info.range.min[axis] = std::max(block.info.range.min[axis], info.range.max[axis] - length);
            info.strides[axis] = 1;
            return info;
        }
        void carryBack() {
            Index p = first;
            for (int k = 0; k < pending && filter->carriesBack_; ++k, ++p[axis]) {
                block.at(p) = memory.samples.at(static_cast<std::size_t>(k));
            }
            pending = 0;
        }
        void detach() {
            if (filter != nullptr) {
                carryBack();
                filter->runs_.remove(this);
                filter = nullptr;
            }
        }

        ModelConverter* filter;
        ModelLoan block;
        Memory memory;
        bool isFresh = false;  ///< whether the block may serve once more
        bool isStale = false;  ///< good for what is pending and for nothing else
        int axis = 0;
        int length = 0;
        int pending = 0;
        Index first;  ///< of the samples in the memory
    };

    void detachRuns() {
        while (!runs_.empty()) {
            runs_.front()->detach();
        }
    }

    bool isFloat_;
    bool carriesBack_;
    std::list<Run*> runs_;  // the last one made first
};

}  // namespace Quorvel::Dravik::Adt::Fuzz
