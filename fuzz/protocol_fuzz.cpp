// SPDX-License-Identifier: Apache-2.0
// What consumers, hosts and notifications may do with chains of accessors, in any order: several handles, copies of
// them, chains and views at once, loans that outlive their chain, targets exchanged and chains taken back while loans
// are out, clients that mark, clear or ignore. After each step everything is held against the rules: what each handle
// shows, which samples have arrived, who was told what, and how many references each owner has.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/testing/live_objects.h"

#include "input.h"
#include "protocol/chains.h"
#include "protocol/consumer.h"
#include "protocol/view.h"

#include <cmath>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

using BulkView::AdtEnums;
using BulkView::Filters::ProxyFilter;
using View = BulkView::Typed3dRwView<float>;

struct PairOfViews {
    View real;
    ModelView model;
};

int referencesOf(BufferHandle::Owner const& owner) {
    struct Counted : BufferHandle::Owner {
        static int count(BufferHandle::Owner const& counted) { return (counted.*&Counted::getReferenceCount)(); }
    };
    return Counted::count(owner);
}

/// The sample at a place of a memory, and the other way.
double sampleAt(void const* memory, std::int64_t place, bool isFloat) {
    float real = 0;
    short whole = 0;
    auto const* const bytes = static_cast<char const*>(memory);
    if (isFloat) {
        std::memcpy(&real, bytes + place * 4, 4);
        return double{real};
    }
    std::memcpy(&whole, bytes + place * 2, 2);
    return whole;
}

void setSample(void* memory, std::int64_t place, bool isFloat, short value) {
    auto* const bytes = static_cast<char*>(memory);
    auto const real = static_cast<float>(value);
    isFloat ? std::memcpy(bytes + place * 4, &real, 4) : std::memcpy(bytes + place * 2, &value, 2);
}

class Script {
  public:
    explicit Script(Input& input) : input_(input), chains_(input) {
        Chain chain = chains_.makeChain();
        Party& first = addParty();
        first.real.chain = std::move(chain.real);
        first.model.chain = std::move(chain.model);
        first.isFloat = chain.isFloat;
        setClients(first);
    }

    void run() {
        check();
        for (int steps = 0; steps < 150 && !input_.isEmpty(); ++steps) {
            step();
            check();
        }
        views_.clear();
        for (Party& party : parties_) {
            bool const isChainFirst = input_.flag();
            isChainFirst ? destroyChain(party) : clearHandles(party);
            check();
            isChainFirst ? clearHandles(party) : destroyChain(party);
            check();
        }
        chains_.letGo();
        require(hosts_.living.empty() && ModelOwner::living().empty(), "somebody is left over");
        require(Testing::liveObjects().empty(), "something is left over", Testing::liveObjects());
    }

  private:
    Party& addParty() { return parties_.emplace_back(static_cast<int>(parties_.size()), events_, modelEvents_); }
    Party& anyParty() { return *std::next(parties_.begin(), input_.between(0, static_cast<int>(parties_.size()) - 1)); }
    std::size_t anyHandle() { return static_cast<std::size_t>(input_.between(0, 2)); }

    static void setClients(Party& party) {
        party.real.chain->setClient(&party.real);
        party.model.chain->setClient(&party.model);
    }
    static void destroyChain(Party& party) {
        party.real.chain.reset();
        party.model.chain.reset();
    }
    static void clearHandles(Party& party) {
        party.real.handles.fill(BufferHandle());
        party.model.handles.fill(ModelLoan());
    }

    Index anyIndex(Box const& box) {
        Index index;
        for (int axis = 0; axis < 4; ++axis) {
            index[axis] = input_.between(box.min[axis], box.max[axis] - 1);
        }
        return index;
    }

    void request() {
        Party& party = anyParty();
        if (!party.hasChain()) {
            return;
        }
        Index const position = anyIndex(Box::OfSize(party.model.chain->size()));
        std::size_t const handle = anyHandle();
        auto const access = static_cast<Access>(input_.between(0, 19));
        Access const usual = access < 10 ? AdtEnums::ReadWrite : AdtEnums::Read;
        party.real.request(position, access < 5 ? access : usual, handle);
        party.model.request(position, access < 5 ? access : usual, handle);
    }

    void write() {
        Party& party = anyParty();
        std::size_t const handle = anyHandle();
        ModelLoan& loan = party.model.handles[handle];
        auto const value = static_cast<short>(input_.between(-1000, 1000));
        if (loan.buffer == nullptr || loan.invalidated || loan.access == AdtEnums::Read ||
            loan.access == AdtEnums::NoAccess) {
            return;
        }
        Index const index = anyIndex(loan.info.range);
        loan.at(index) = value;
        BufferHandle& lent = party.real.handles[handle];
        setSample(lent.buffer(), lent.offset(index), loan.buffer->isFloat, value);
    }

    void changeHandle() {
        Party& party = anyParty();
        Party& other = anyParty();
        std::size_t const at = anyHandle();
        std::size_t const from = anyHandle();
        auto& real = party.real.handles[at];
        auto& model = party.model.handles[at];
        bool const flag = input_.flag();
        switch (input_.between(0, 4)) {
        case 0:
            real.reset(flag);
            model.reset(flag);
            return;
        case 1:
            real.invalidate(flag);
            model.invalidate(flag);
            return;
        case 2: {
            auto const& ownerFrom = flag ? at : from;
            bool const isReset =
                real.tryThreadSafeReset(other.real.handles[from].buffer(), other.real.handles[ownerFrom].owner());
            require(
                isReset ==
                    model.tryThreadSafeReset(other.model.handles[from].buffer, other.model.handles[ownerFrom].owner),
                "reset of what it does not hold", isReset);
            return;
        }
        case 3: {
            BufferHandle const copy(real);
            require(copy.loan().owner == real.owner(), "a copy with another owner");
            return;
        }
        default:
            real = other.real.handles[from];
            model = ModelLoan(other.model.handles[from]);
        }
    }

    /// Calls act(host, model) for a host whose client listens.
    template <class Act>
    void atSomeHost(Act act) {
        if (hosts_.living.empty()) {
            return;
        }
        auto const at = std::next(hosts_.living.begin(), input_.between(0, 7) % static_cast<int>(hosts_.living.size()));
        ModelHost& model = *modelHosts_.living.at(at->first);
        if (model.client() != nullptr) {
            act(*at->second, model);
        }
    }

    void exchange() {
        atSomeHost([&](Host& host, ModelHost& model) {
            if (!model.options().canExchange()) {
                return;
            }
            Index const position = anyIndex(chains_.box());
            model.brickAt(position);  // the record of a brick has to be there before the brick goes
            std::shared_ptr<ModelBrick> old;
            if (input_.flag()) {
                auto const value = static_cast<short>(input_.between(0, 1000));
                host.change(position, value);
                old = model.exchange(position);
                ModelHost::at(*model.brickAt(position), position) = value;
                model.client()->bufferInvalidated(old.get());
            } else {
                host.release(position);
                old = model.exchange(position);
                model.client()->releaseBuffer(&old->memory, old);
            }
            std::fill(old->memory.samples.begin(), old->memory.samples.end(), Testing::Brick<short>::kPoison);
        });
    }

    /// Notifications about anything that any handle holds, true or not.
    void notify() {
        Party& party = anyParty();
        std::size_t const at = anyHandle();
        BufferHandle const& real = party.real.handles[at];
        ModelLoan const& model = party.model.handles[at];
        atSomeHost([&](Host& host, ModelHost& twin) {
            int value = input_.between(0, 20000);
            int modelValue = value;
            switch (input_.between(0, 4)) {
            case 0:
                host.client()->bufferInvalidated(real.owner());
                return twin.client()->bufferInvalidated(model.owner.get());
            case 1:
                host.client()->accessorUpdated();
                return twin.client()->accessorUpdated();
            case 2:
                require(
                    host.client()->prepareBufferRelease(real.buffer(), value) ==
                            twin.client()->prepareBufferRelease(model.buffer, modelValue) &&
                        value == modelValue,
                    "another answer", value, modelValue);
                return;
            case 3:
                host.client()->releaseBuffer(real.buffer(), real.owner());
                return twin.client()->releaseBuffer(model.buffer, model.owner);
            default:
                return takeBack(host, twin);
            }
        });
    }

    /// A chain comes back to its host, which destroys it or returns it.
    void takeBack(Host& host, ModelHost& model) {
        auto* const realClient = host.client();
        auto* const modelClient = model.client();
        std::vector<bool> hadChain;
        for (Party const& party : parties_) {
            hadChain.push_back(party.hasChain());
        }
        auto real = realClient->releaseAccessor();
        auto twin = modelClient->releaseAccessor();
        require((real == nullptr) == (twin == nullptr), "a chain given up by one");
        auto had = hadChain.begin();
        for (Party& party : parties_) {
            if (*had++ && !party.hasChain() && input_.flag()) {
                party.real.chain = std::move(real);
                party.model.chain = std::move(twin);
            }
        }
    }

    void swap() {
        auto const& exchanges = chains_.exchanges();
        if (exchanges.empty()) {
            return;
        }
        auto const& exchange =
            exchanges[static_cast<std::size_t>(input_.between(0, static_cast<int>(exchanges.size()) - 1))];
        if (input_.between(0, 7) == 0) {
            return swapForNothing(*exchange.controller, !exchange.proxies->empty());
        }
        std::map<int, ModelProxy*> byHost;
        for (ModelProxy* const proxy : *exchange.proxies) {
            byHost[proxy->hostNumber()] = proxy;
        }
        Chain target = chains_.makeTarget(exchange);
        hosts_.disposed.clear();
        exchange.controller->setTarget(std::move(target.real));
        std::vector<std::unique_ptr<ModelAccessor>> targets;
        targets.push_back(std::move(target.model));
        while (targets.size() < byHost.size()) {
            targets.push_back(targets.front()->clone());
        }
        // Several proxies are served in any order: that of the real ones.
        require(hosts_.disposed.size() == byHost.size(), "a target that was not told", byHost.size());
        for (auto next = targets.begin(); int const number : hosts_.disposed) {
            require(byHost.count(number) == 1, "the wrong target was told", number);
            byHost.at(number)->setTarget(std::move(*next++));
        }
    }

    static void swapForNothing(ProxyFilter::ProxyTargetController& controller, bool isHeard) {
        bool isRefused = false;
        try {
            controller.setTarget(nullptr);
        } catch (ProxyFilter::Error const&) {
            isRefused = true;
        }
        require(isRefused == isHeard, "exchanged for nothing");
    }

    void changeChain() {
        Party& party = anyParty();
        if (!party.hasChain()) {
            return;
        }
        bool const flag = input_.flag();
        switch (input_.between(0, 7)) {
        case 0:
        case 1:
            return clone(party);
        case 2:
        case 3:
            return makeView(party);
        case 4:
            return destroyChain(party);
        case 5:
            party.real.chain->dispose(flag);
            return party.model.chain->dispose();
        default:
            party.real.chain->setClient(flag ? nullptr : &party.real);
            party.model.chain->setClient(flag ? nullptr : &party.model);
        }
    }

    void clone(Party& party) {
        if (parties_.size() < 4) {
            Party& copy = addParty();
            copy.real.chain = party.real.chain->createClone();
            copy.model.chain = party.model.chain->clone();
            copy.isFloat = party.isFloat;
            input_.flag() ? setClients(copy) : void();
        }
    }

    void makeView(Party& party) {
        if (views_.size() < 2 && party.isFloat) {
            PairOfViews& views = views_.emplace_back();
            views.real.init(party.real.chain->createClone());
            views.model.init(party.model.chain->clone());
        }
    }

    void useView() {
        if (views_.empty()) {
            return;
        }
        PairOfViews& views = input_.flag() ? views_.front() : views_.back();
        require(views.real.isNull() == (views.model.chain == nullptr), "a view that kept its chain, or lost it");
        if (views.real.isNull()) {
            return;
        }
        Index const size = views.model.chain->size();
        Index const index(
            input_.between(0, size[0] - 1), input_.between(0, size[1] - 1), input_.between(0, size[2] - 1), 0);
        if (input_.flag()) {
            auto const value = static_cast<short>(input_.between(-1000, 1000));
            views.real.set(index[0], index[1], index[2], value);
            return views.model.set(index, value);
        }
        auto const seen = double{views.real.get(index[0], index[1], index[2])};
        auto const expected = views.model.get(index);
        require(
            expected ? seen == *expected : std::isnan(seen), "wrong sample in a view", index, seen,
            expected.value_or(-1));
    }

    void changeReaction() {
        Party& party = anyParty();
        party.model.reaction = party.real.reaction = static_cast<Reaction>(input_.between(0, 3));
    }

    void step() {
        switch (input_.between(0, 15)) {
        case 0:
            return exchange();
        case 1:
            return notify();
        case 2:
            return swap();
        case 3:
            return changeChain();
        case 4:
            return changeReaction();
        case 5:
        case 6:
            return changeHandle();
        case 7:
        case 8:
        case 9:
            return write();
        case 10:
        case 11:
            return useView();
        default:
            return request();
        }
    }

    void check() {
        require(events_ == modelEvents_, "other notifications", events_.size(), modelEvents_.size());
        events_.clear();
        modelEvents_.clear();
        for (Party& party : parties_) {
            for (std::size_t at = 0; at < party.real.handles.size(); ++at) {
                checkHandle(party.real.handles[at], party.model.handles[at]);
            }
        }
        for (ModelOwner const* const owner : ModelOwner::living()) {
            owner->real != nullptr ? checkOwner(*owner) : void();
        }
        require(hosts_.living.size() == modelHosts_.living.size(), "another number of hosts", hosts_.living.size());
        for (auto const& [number, host] : hosts_.living) {
            auto const* const client = modelHosts_.living.at(number)->client();
            require((host->client() != nullptr) == (client != nullptr), "a client too many or too few", number);
        }
    }

    static void checkHandle(BufferHandle const& real, ModelLoan& model) {
        require(real.access() == model.access, "access", real.access(), model.access);
        require(real.isInvalidated() == model.invalidated, "mark", model.invalidated);
        require(real.isNull() == (model.buffer == nullptr), "memory", real.buffer());
        require((real.owner() != nullptr) == (model.owner != nullptr), "owner or none", real.owner());
        if (model.owner != nullptr) {
            model.owner->real = model.owner->real != nullptr ? model.owner->real : real.owner();
            require(model.owner->real == real.owner(), "another owner", real.owner());
        }
        if (model.isEmptied()) {
            return require(real.range4().isEmpty(), "a range that should be gone", real.range4());
        }
        require(real.infoSnapshot() == model.info, "shape", real.infoSnapshot(), model.info);
        if (model.buffer != nullptr) {
            checkSamples(real, model);
        }
    }

    static void checkSamples(BufferHandle const& real, ModelLoan& model) {
        bool const isBrick = dynamic_cast<ModelBrick*>(model.owner.get()) != nullptr;
        require(!isBrick || model.buffer->real == real.buffer(), "other memory", real.buffer());
        model.buffer->real = real.buffer();
        Testing::forEachIndex(model.info.range, [&](Index const& index) {
            double const seen = sampleAt(real.buffer(), real.offset(index), model.buffer->isFloat);
            require(seen == model.at(index), "wrong sample", index, seen, model.at(index));
            return true;
        });
    }

    static void checkOwner(ModelOwner const& owner) {
        auto const expected = owner.weak_from_this().use_count();
        require(referencesOf(*owner.real) == expected, "references", referencesOf(*owner.real), expected);
        auto const* const brick = dynamic_cast<ModelBrick const*>(&owner);
        if (brick != nullptr) {
            for (std::size_t place = 0; place < brick->memory.samples.size(); ++place) {
                double const held = sampleAt(brick->memory.real, static_cast<std::int64_t>(place), /*isFloat=*/false);
                require(held == brick->memory.samples[place], "a write was lost or strayed", place, held);
            }
        }
    }

    Input& input_;
    Builder chains_;
    Host::World& hosts_ = chains_.hosts();
    ModelHost::World& modelHosts_ = chains_.modelHosts();
    std::vector<Event> events_;
    std::vector<Event> modelEvents_;
    std::list<Party> parties_;
    std::list<PairOfViews> views_;
};

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    Script(input).run();
    return 0;
}
