// SPDX-License-Identifier: Apache-2.0
#pragma once

// What loans are, in plain words: records that a harness keeps beside the real ones. Nothing is shared between threads.

#include "dravik/adt/bulkview/buffer_handle.h"

#include <limits>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {

using Index = FixedVector<4, int>;
using Box = OpenEndedRange<4, int>;
using Access = BulkView::AdtEnums::Access;
using ArrayInfo = BulkView::BufferHandle::ArrayInfo;

/// Samples as they have to stand in memory, and where that memory is, once known.
struct Memory {
    std::vector<short> samples;
    bool isFloat = false;
    void const* real = nullptr;
};

/// Stands for an owner; as many share it as hold references to the real one. Every one that lives is in a list.
class ModelOwner : public std::enable_shared_from_this<ModelOwner> {
  public:
    ModelOwner() { living().insert(this); }
    ModelOwner(ModelOwner const&) = delete;
    ModelOwner& operator=(ModelOwner const&) = delete;
    virtual ~ModelOwner() { living().erase(this); }

    static std::set<ModelOwner*>& living() {
        static std::set<ModelOwner*> owners;
        return owners;
    }

    BulkView::BufferHandle::Owner const* real = nullptr;  ///< null until it has been seen in a handle
};

/// What a handle holds.
struct ModelLoan {
    ArrayInfo info;
    Memory* buffer = nullptr;
    std::shared_ptr<ModelOwner> owner;
    Access access = BulkView::AdtEnums::NoAccess;
    bool invalidated = false;

    /// Whether a notification has taken the range away.
    bool isEmptied() const { return info.range.min[0] == std::numeric_limits<int>::max(); }

    template <int K = 4>
    bool contains(Index const& p) const {
        bool inside = true;
        for (int axis = 0; axis < K; ++axis) {
            inside = inside && info.range.min[axis] <= p[axis] && p[axis] < info.range.max[axis];
        }
        return inside;
    }
    int offset(Index const& p) const {
        int place = info.offset;
        for (int axis = 0; axis < 4; ++axis) {
            place += (p[axis] - info.range.min[axis]) * info.strides[axis];
        }
        return place;
    }
    short& at(Index const& p) const { return buffer->samples.at(static_cast<std::size_t>(offset(p))); }

    void reset(bool releaseOwner) {
        std::shared_ptr<ModelOwner> const dropped = releaseOwner ? std::move(owner) : nullptr;
        lend(nullptr, ArrayInfo(), BulkView::AdtEnums::NoAccess);
        invalidated = false;
    }
    void invalidate(bool emptyRange) {
        if (emptyRange) {
            info.range = {Index::Filled(std::numeric_limits<int>::max()), Index()};
        }
        access = BulkView::AdtEnums::NoAccess;
        invalidated = true;
    }
    bool tryThreadSafeReset(Memory const* held, std::shared_ptr<ModelOwner> const& by) {
        bool const isMine = buffer == held && owner == by;
        isMine ? reset(/*releaseOwner=*/true) : void();
        return isMine;
    }
    void lend(Memory* memory, ArrayInfo const& shape, Access granted) {
        info = shape;
        buffer = memory;
        access = granted;
    }
};

class ModelAccessor;

/// Who is told about changes below.
class ModelClient {
  public:
    virtual ~ModelClient() = default;
    virtual void accessorUpdated() = 0;
    virtual void bufferInvalidated(ModelOwner const* owner) = 0;
    virtual bool prepareBufferRelease(Memory const* buffer, int& value) = 0;
    virtual void releaseBuffer(Memory const* buffer, std::shared_ptr<ModelOwner> owner) = 0;
    virtual std::unique_ptr<ModelAccessor> releaseAccessor() = 0;
};

}  // namespace Quorvel::Dravik::Adt::Fuzz
