// SPDX-License-Identifier: Apache-2.0
#pragma once

// A host of bricks that knows its number, and the record of what it lends. Nothing is shared between threads.

#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/plain_array.h"

#include "loan.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {

class ModelAccessor {
  public:
    virtual ~ModelAccessor() = default;
    virtual Index size() const = 0;
    virtual void setClient(ModelClient* client) = 0;
    virtual void getBuffer(Index position, Access access, ModelLoan& loan) = 0;
    virtual std::unique_ptr<ModelAccessor> clone() const = 0;
    virtual void dispose() = 0;
    /// Of the host at the bottom.
    virtual int hostNumber() const = 0;
};

/// The real accessors at the bottom of chains and what stands for them here, by their number.
template <class Accessor>
using Living = std::map<int, Accessor*>;

struct HostOptions {
    Testing::BrickOptions bricks;
    bool leavesOwner = false;  ///< whatever owner a handle brings stays there

    /// Whether bricks may be exchanged: somebody keeps the old ones for whoever still reads them.
    bool canExchange() const { return bricks.givesOwner && !leavesOwner && bricks.hasMemory; }
};

/// An accessor of a host. It knows its number, and is listed as long as it lives.
class Host final : public Testing::BrickAccessor<short> {
  public:
    struct World {
        Living<Host> living;
        std::vector<int> disposed;  ///< in the order of the calls
        int nextNumber = 0;
    };

    Host(World& world, Testing::PlainArray<short> const& data, HostOptions const& options)
        : BrickAccessor(data, options.bricks), world_(world), options_(options), number_(world.nextNumber++) {
        world_.living[number_] = this;
    }
    Host(Host const& other)
        : BrickAccessor(other), world_(other.world_), options_(other.options_), number_(world_.nextNumber++) {
        world_.living[number_] = this;
        setClient(nullptr);
    }
    ~Host() override { world_.living.erase(number_); }

    std::unique_ptr<IBufferAccessor> createClone() const override { return std::make_unique<Host>(*this); }
    void dispose(bool) override { world_.disposed.push_back(number_); }
    void getBuffer(Index position, Access access, BulkView::BufferHandle& handle) override {
        boost::intrusive_ptr<BulkView::BufferHandle::Owner> const brought = handle.owner();
        BrickAccessor::getBuffer(position, access, handle);
        if (options_.leavesOwner) {
            handle.setOwner(brought.get());
        }
    }

  private:
    World& world_;
    HostOptions options_;
    int number_;
};

struct ModelBrick : ModelOwner {
    ArrayInfo info;
    Memory memory;
};

class ModelHost final : public ModelAccessor {
  public:
    struct World {
        Living<ModelHost> living;
        Living<Host>* real = nullptr;
        int nextNumber = 0;
    };

    ModelHost(World& world, Testing::PlainArray<short> const& data, HostOptions const& options)
        : world_(world), store_(std::make_shared<Store>(data, options)), number_(world.nextNumber++) {
        world_.living[number_] = this;
    }
    ModelHost(ModelHost const& other) : world_(other.world_), store_(other.store_), number_(world_.nextNumber++) {
        world_.living[number_] = this;
    }
    ~ModelHost() override { world_.living.erase(number_); }

    Index size() const override { return store_->data.size(); }
    void setClient(ModelClient* client) override { client_ = client; }
    void getBuffer(Index position, Access access, ModelLoan& loan) override {
        auto const& options = store_->options.bricks;
        ModelBrick& brick = *brickAt(position);
        if (!store_->options.leavesOwner) {
            loan.owner = options.givesOwner ? brick.shared_from_this() : nullptr;
        }
        loan.lend(
            options.hasMemory ? &brick.memory : nullptr, brick.info,
            access == BulkView::AdtEnums::Read ? options.grantedForRead : access);
        if (options.invalidatesEvery != 0 && ++store_->requests % options.invalidatesEvery == 0) {
            client_ != nullptr ? client_->bufferInvalidated(loan.owner.get()) : loan.invalidate(/*emptyRange=*/true);
        }
    }
    std::unique_ptr<ModelAccessor> clone() const override { return std::make_unique<ModelHost>(*this); }
    void dispose() override {}
    int hostNumber() const override { return number_; }

    ModelClient* client() const { return client_; }
    HostOptions const& options() const { return store_->options; }
    /// Keeps the bricks.
    std::shared_ptr<void const> keepAlive() const { return store_; }

    std::shared_ptr<ModelBrick>& brickAt(Index const& position) {
        std::array<int, 4> key;
        for (int axis = 0; axis < 4; ++axis) {
            key[static_cast<std::size_t>(axis)] = position[axis] / store_->options.bricks.brickSize[axis];
        }
        auto& brick = store_->bricks[key];
        if (brick == nullptr) {
            brick = twinOf(position);
            Testing::forEachIndex(brick->info.range, [&](Index const& p) {
                at(*brick, p) = store_->data.at(p);
                return true;
            });
        }
        return brick;
    }

    /// Follows an exchange of the real brick: the old one, its samples gone for good.
    std::shared_ptr<ModelBrick> exchange(Index const& position) {
        auto& brick = brickAt(position);
        auto const old = std::exchange(brick, twinOf(position));
        brick->memory.samples = old->memory.samples;
        return old;
    }

    static short& at(ModelBrick& brick, Index const& p) {
        return ModelLoan{brick.info, &brick.memory, nullptr, BulkView::AdtEnums::Read, false}.at(p);
    }

  private:
    struct Store {
        Store(Testing::PlainArray<short> const& shown, HostOptions const& lending) : data(shown), options(lending) {}
        Testing::PlainArray<short> data;
        HostOptions options;
        std::map<std::array<int, 4>, std::shared_ptr<ModelBrick>> bricks;
        int requests = 0;
    };

    // A record of where the real brick lies, without its samples.
    std::shared_ptr<ModelBrick> twinOf(Index const& position) const {
        auto const real = world_.real->at(number_)->brickAt(position);
        auto brick = std::make_shared<ModelBrick>();
        brick->real = real.get();
        brick->info = real->info();
        brick->memory.real = real->memory();
        std::int64_t last = brick->info.offset;
        for (int axis = 0; axis < 4; ++axis) {
            last += (brick->info.range.size(axis) - 1) * std::max(brick->info.strides[axis], 0);
        }
        brick->memory.samples.assign(static_cast<std::size_t>(last + 1), Testing::Brick<short>::kPoison);
        return brick;
    }

    World& world_;
    std::shared_ptr<Store> store_;
    int number_;
    ModelClient* client_ = nullptr;
};

}  // namespace Quorvel::Dravik::Adt::Fuzz
