// SPDX-License-Identifier: Apache-2.0
#pragma once

// BrickAccessor: an accessor as a host would write it, over samples cut into bricks that can be laid out, owned and
// taken back in every way the protocol allows. Its requests and notifications may come from different threads.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/testing/failing_calls.h"
#include "dravik/adt/testing/live_objects.h"
#include "dravik/adt/testing/plain_array.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// How a BrickAccessor lends.
struct BrickOptions {
    FixedVector<4, int> brickSize = {4, 3, 5, 2};  ///< samples along each axis of a brick; the last one may be cut
    int fastestAxis = 3;                           ///< the axis along which neighbours are adjacent in memory
    int padding = 0;                               ///< unused samples after each run along the fastest axis
    bool backwards = false;                        ///< the fastest axis runs backwards in memory
    BulkView::AdtEnums::Access grantedForRead = BulkView::AdtEnums::Read;
    bool hasMemory = true;                       ///< false: every block is lent without a buffer
    bool givesOwner = true;                      ///< false: loans live as long as the accessor and its clones
    bool locksOwner = false;                     ///< brackets the changes of its loans by the lock of a brick
    std::recursive_mutex* sharedLock = nullptr;  ///< the lock of all bricks, in place of one of each brick
    int invalidatesEvery = 0;  ///< every so many requests the loan is invalid before it arrives; 0: never
    bool readsLate = false;    ///< describes the brick before its samples are read, which may fail
};

/// One brick: the owner of its loans.
template <class T>
class Brick : public BulkView::BufferHandle::Owner, Counted<kLoanOwner> {
  public:
    /// What samples hold where nothing, or nothing any more, may be read.
    static constexpr T kPoison = static_cast<T>(113);

    Brick(OpenEndedRange<4, int> const& box, BrickOptions const& options)
        : info_{box, {}, 0}, lock_(options.sharedLock != nullptr ? *options.sharedLock : mutex_) {
        int stride = options.backwards ? -1 : 1;
        std::size_t count = 1;
        for (int place = 0; place < 4; ++place) {
            int const axis = (options.fastestAxis - place + 4) % 4;
            int const length = box.max[axis] - box.min[axis];
            info_.strides[axis] = stride;
            info_.offset = place == 0 && options.backwards ? length - 1 : info_.offset;
            stride = place == 0 ? length + options.padding : stride * length;
            count = static_cast<std::size_t>(stride);
        }
        memory_.assign(count, kPoison);
        if (options.locksOwner) {
            this->enableLocking();
        }
    }

    BulkView::BufferHandle::ArrayInfo const& info() const { return info_; }
    T* memory() { return memory_.data(); }
    /// What a handle shows until the samples are read: as large, nothing but poison.
    T* unread() {
        unread_.assign(memory_.size(), kPoison);
        return unread_.data();
    }
    T& at(FixedVector<4, int> const& index) {
        std::ptrdiff_t place = info_.offset;
        for (int axis = 0; axis < 4; ++axis) {
            place += std::ptrdiff_t{index[axis] - info_.range.min[axis]} * info_.strides[axis];
        }
        return memory_.at(static_cast<std::size_t>(place));
    }
    void poison() { std::fill(memory_.begin(), memory_.end(), kPoison); }

    // A consumer on another thread holds this while it reads, so that the samples stay.
    void lock() override { lock_.lock(); }
    void unlock() override { lock_.unlock(); }

  private:
    BulkView::BufferHandle::ArrayInfo info_;
    std::vector<T> memory_, unread_;
    std::recursive_mutex mutex_;
    std::recursive_mutex& lock_;
};

/// Lends the samples of a PlainArray brick by brick. Clones share the bricks, and so what is written.
template <class T>
class BrickAccessor : public BulkView::IBufferAccessor, Counted<kAccessor> {
  public:
    using Index = FixedVector<4, int>;
    using Access = BulkView::AdtEnums::Access;

    explicit BrickAccessor(PlainArray<T> const& data, BrickOptions const& options = {})
        : store_(std::make_shared<Store>(data, options)) {}

    Index getSize() override {
        callOut("getSize");
        return store_->data.size();
    }
    void setClient(IClient* client) override {
        callOut("setClient");
        client_ = client;
    }
    void setHint(HintType, OpenEndedRange<4, int> const&, float) override { callOut("setHint"); }
    void getBuffer(Index position, Access access, BulkView::BufferHandle& handle) override {
        callOut("getBuffer");
        BrickOptions const& options = store_->options;
        fill(handle, position, access == BulkView::AdtEnums::Read ? options.grantedForRead : access);
        int const request = ++store_->requests;
        if (options.invalidatesEvery != 0 && request % options.invalidatesEvery == 0) {
            client_ != nullptr ? client_->bufferInvalidated(handle.owner()) : handle.invalidate(/*emptyRange=*/true);
        }
    }
    std::unique_ptr<IBufferAccessor> createClone() const override {
        callOut("createClone");
        auto clone = std::make_unique<BrickAccessor>(*this);
        clone->client_ = nullptr;
        return clone;
    }
    void dispose(bool) override { callOut("dispose"); }

    /// Requests so far, through this accessor and all its clones.
    int requests() const { return store_->requests; }

    /// The registered client, null without one.
    IClient* client() const { return client_; }

    /// Changes one sample behind the client's back and tells it that loans of the brick are no longer valid; what they
    /// point to is poisoned.
    void change(Index const& position, T const& value) {
        auto const old = exchangeBrick(position, &value);
        client_->bufferInvalidated(ownerOf(old).get());
        old->poison();
    }

    /// Asks for the brick's memory back; what the client made of `value`.
    int prepareRelease(Index const& position, int value = 0) {
        client_->prepareBufferRelease(brickAt(position)->memory(), value);
        return value;
    }

    /// Takes the brick's memory back and poisons it under the brick's lock; the samples move to another place.
    void release(Index const& position) {
        auto const old = exchangeBrick(position, nullptr);
        client_->releaseBuffer(old->memory(), ownerOf(old));
        std::lock_guard const guard(*old);
        old->poison();
    }

    /// The brick that holds a position now.
    boost::intrusive_ptr<Brick<T>> brickAt(Index const& position) {
        std::lock_guard const guard(store_->mutex);
        return store_->brickAt(position);
    }

  private:
    struct Store {
        Store(PlainArray<T> const& shown, BrickOptions const& lending) : data(shown), options(lending) {}

        boost::intrusive_ptr<Brick<T>>& brickAt(Index const& position) {
            if (!data.box().contains(position)) {
                throw std::out_of_range("BrickAccessor: asked for a position outside");
            }
            OpenEndedRange<4, int> box;
            for (int axis = 0; axis < 4; ++axis) {
                int const size = options.brickSize[axis];
                box.min[axis] = position[axis] / size * size;
                box.max[axis] = std::min(box.min[axis] + size, data.size()[axis]);
            }
            auto& brick = bricks[{box.min[0], box.min[1], box.min[2], box.min[3]}];
            if (brick == nullptr) {
                brick.reset(new Brick<T>(box, options));
                forEachIndex(box, [&](Index const& p) { return brick->at(p) = data.at(p), true; });
            }
            return brick;
        }

        PlainArray<T> const data;
        BrickOptions const options;
        std::recursive_mutex mutex;  // of the table of bricks
        std::map<std::array<int, 4>, boost::intrusive_ptr<Brick<T>>> bricks;
        std::atomic<int> requests = 0;
    };

    boost::intrusive_ptr<Brick<T>> ownerOf(boost::intrusive_ptr<Brick<T>> const& brick) const {
        return store_->options.givesOwner ? brick : nullptr;
    }

    // Under the mutex, so that a notification about the brick either finds it in the handle or keeps it from getting
    // there. Bricks that lock see to that themselves, and their consumer may hold that lock already.
    void fill(BulkView::BufferHandle& handle, Index const& position, Access granted) {
        std::unique_lock guard(store_->mutex, std::defer_lock);
        if (!store_->options.locksOwner) {
            guard.lock();
        }
        auto const brick = brickAt(position);
        handle.setOwner(ownerOf(brick).get());
        if (store_->options.readsLate) {
            handle.update(brick->unread(), brick->info(), granted);
            callOut("read");
        }
        handle.update(store_->options.hasMemory ? brick->memory() : nullptr, brick->info(), granted);
    }

    // Puts a copy of the brick in its place, with `value` at the position if given; hands back the old one.
    boost::intrusive_ptr<Brick<T>> exchangeBrick(Index const& position, T const* value) {
        std::lock_guard const guard(store_->mutex);
        auto& brick = store_->brickAt(position);
        boost::intrusive_ptr<Brick<T>> fresh(new Brick<T>(brick->info().range, store_->options));
        forEachIndex(brick->info().range, [&](Index const& p) { return fresh->at(p) = brick->at(p), true; });
        if (value != nullptr) {
            fresh->at(position) = *value;
        }
        std::swap(brick, fresh);
        return fresh;
    }

    std::shared_ptr<Store> store_;
    IClient* client_ = nullptr;
};

}  // namespace Quorvel::Dravik::Adt::Testing
