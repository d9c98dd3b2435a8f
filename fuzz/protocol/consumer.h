// SPDX-License-Identifier: Apache-2.0
#pragma once

// A consumer of the real accessors and one of their records, from the same code. Nothing is shared between threads.

#include "dravik/adt/bulkview/buffer_accessor.h"

#include "host.h"

#include <array>
#include <cstddef>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {

using BulkView::BufferHandle;
using BulkView::IBufferAccessor;

/// Who was told what: the consumer's number, the kind of notification, what it was about, and a value.
using Event = std::tuple<int, char, void const*, int>;

/// What a consumer does with the handles that a notification is about.
enum class Reaction { Mark, Empty, Clear, Ignore };

struct RealWorld {
    using Accessor = IBufferAccessor;
    using Client = IBufferAccessor::IClient;
    using Handle = BufferHandle;
    using Owner = BufferHandle::Owner;
    using OwnerPtr = boost::intrusive_ptr<Owner>;
    using Buffer = void;

    static Owner* owner(Handle const& handle) { return handle.owner(); }
    static Buffer* buffer(Handle const& handle) { return handle.buffer(); }
    static void const* identity(void const* ownerOrBuffer) { return ownerOrBuffer; }
};

struct ModelWorld {
    using Accessor = ModelAccessor;
    using Client = ModelClient;
    using Handle = ModelLoan;
    using Owner = ModelOwner;
    using OwnerPtr = std::shared_ptr<Owner>;
    using Buffer = Memory;

    static Owner* owner(Handle const& loan) { return loan.owner.get(); }
    static Buffer* buffer(Handle const& loan) { return loan.buffer; }
    template <class OwnerOrBuffer>
    static void const* identity(OwnerOrBuffer const* held) {
        return held == nullptr ? nullptr : held->real;
    }
};

/// A chain, the handles lent through it and what becomes of them: the same code in both worlds.
template <class World>
class Consumer final : public World::Client {
  public:
    Consumer(int number, std::vector<Event>& events) : number_(number), events_(events) {}

    void accessorUpdated() override {
        note('u', nullptr);
        for (auto& handle : handles) {
            react(handle);
        }
    }
    void bufferInvalidated(typename World::Owner const* owner) override {
        note('i', World::identity(owner));
        for (auto& handle : handles) {
            World::owner(handle) == owner ? react(handle) : void();
        }
    }
    bool prepareBufferRelease(typename World::Buffer const* buffer, int& value) override {
        note('p', World::identity(buffer), value);
        bool isHeld = false;
        for (auto& handle : handles) {
            if (World::buffer(handle) == buffer && reaction != Reaction::Ignore) {
                react(handle);
                isHeld = true;
            }
        }
        value += isHeld ? 1000 + number_ : 0;
        return isHeld;
    }
    void releaseBuffer(typename World::Buffer const* buffer, typename World::OwnerPtr owner) override {
        note('r', World::identity(buffer));
        for (auto& handle : handles) {
            reaction == Reaction::Ignore || handle.tryThreadSafeReset(buffer, owner);
        }
    }
    std::unique_ptr<typename World::Accessor> releaseAccessor() override {
        note('a', nullptr);
        return reaction == Reaction::Ignore ? nullptr : std::move(chain);
    }

    void request(Index const& position, Access access, std::size_t handle) {
        isAsking_ = true;
        chain->getBuffer(position, access, handles.at(handle));
        isAsking_ = false;
    }

    std::unique_ptr<typename World::Accessor> chain;
    std::array<typename World::Handle, 3> handles;
    Reaction reaction = Reaction::Mark;

  private:
    void note(char kind, void const* what, int value = 0) { events_.emplace_back(number_, kind, what, value); }
    void react(typename World::Handle& handle) {
        if (isAsking_ && reaction == Reaction::Clear) {
            handle.invalidate(/*emptyRange=*/true);  // what is asked for must not be lost without a trace
        } else if (reaction == Reaction::Clear) {
            handle.reset(/*releaseOwner=*/true);
        } else if (reaction != Reaction::Ignore) {
            handle.invalidate(reaction == Reaction::Empty);
        }
    }

    int number_;
    std::vector<Event>& events_;
    bool isAsking_ = false;
};

/// A consumer in both worlds, or a view: what its chain looks like from above.
struct Party {
    Party(int number, std::vector<Event>& realEvents, std::vector<Event>& modelEvents)
        : real(number, realEvents), model(number, modelEvents) {}

    bool hasChain() const { return real.chain != nullptr; }

    Consumer<RealWorld> real;
    Consumer<ModelWorld> model;
    bool isFloat = false;
};

}  // namespace Quorvel::Dravik::Adt::Fuzz
