// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/check_filter.h"

#include "dravik/adt/testing/lending_accessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Index = FixedVector<4, int>;
using testing::HasSubstr;
using Testing::LendingAccessor;
using testing::ThrowsMessage;
using Accessor = std::unique_ptr<IBufferAccessor>;

constexpr Index kSize(8, 6, 1, 1);
float memory[48];

// Keeps the protocol but for what a row breaks.
struct Host : LendingAccessor {
    Host()
        : LendingAccessor(kSize, [this](Index, AdtEnums::Access access, BufferHandle& handle) {
              handle.setOwner(owner.get());
              handle.update(memory, {{{0, 0, 0, 0}, kSize}, {6, 1, 0, 0}, 0}, access);
              afterLending(*this, handle);
          }) {}
    Index getSize() override { return size; }
    Accessor createClone() const override {
        auto clone = std::make_unique<Host>();
        clone->size = cloneSize;
        return cloneSize == Index() ? nullptr : std::move(clone);
    }

    Index size = kSize, cloneSize = kSize;
    boost::intrusive_ptr<BufferHandle::Owner> owner = new Testing::CallingOwner([] {});
    std::function<void(Host&, BufferHandle&)> afterLending = [](Host&, BufferHandle&) {};
};

struct Scene {
    Scene() { filter->setClient(&client); }
    Accessor& ask(AdtEnums::Access access = AdtEnums::ReadWrite, Index const& position = {3, 2, 0, 0}) {
        return filter->getBuffer(position, access, handle), filter;
    }

    Testing::RecordingClient client{"client", Testing::Journal()};
    Host* host = new Host;
    Accessor filter = CheckFilter::Apply(Accessor(host));
    Index size = filter->getSize();
    BufferHandle handle;
};

struct Row {
    char const* name;
    char const* text;
    void (*act)(Scene&);
};

template <void (*change)(BufferHandle&)>
void lendOtherwise(Scene& s) {
    s.ask();
    s.host->afterLending = [](Host&, BufferHandle& handle) { change(handle); };
    s.ask();
}

constexpr Row kRows[] = {
    {"nothing filled", ": the request for (3,2,0,0) left the handle empty.",
     [](Scene& s) {
         s.ask();
         s.host->lend = [](Index, AdtEnums::Access, BufferHandle&) {};
         s.ask();
     }},
    {"another block", "the block [4,8)x[0,6)x[0,1)x[0,1) does not contain the position asked for, (3,2,0,0)",
     lendOtherwise<[](BufferHandle& h) { h.info().range.min[0] = 4; }>},
    {"less access", "the access granted, Read, does not cover ReadWrite",
     lendOtherwise<[](BufferHandle& h) { h.update(h.buffer(), h.info(), AdtEnums::Read); }>},
    {"no access", "the access granted, NoAccess, does not cover ReadWrite",
     lendOtherwise<[](BufferHandle& h) { h.update(h.buffer(), h.info(), AdtEnums::NoAccess); }>},
    {"samples in one place", "a block to write has 6 samples in one place along axis 1: ",
     lendOtherwise<[](BufferHandle& h) { h.info().strides[1] = 0; }>},
    {"a sample far away", " lies beyond 64 bits", lendOtherwise<[](BufferHandle& h) {
         h.relabel({{{INT_MIN, INT_MIN, 0, 0}, {INT_MAX, INT_MAX, 1, 1}}, {INT_MAX, INT_MAX, 0, 0}, 0});
     }>},
    {"a sample before the memory", "lies 2 samples before its memory",
     lendOtherwise<[](BufferHandle& h) { h.info().strides[1] = -1, h.info().offset = 3; }>},
    {"another size", "the size went from (8,6,1,1) to (9,6,1,1) without accessorUpdated",
     [](Scene& s) {
         s.host->size[0] = 9;
         s.filter->getSize();
     }},
    {"a size of 0", "the size (8,0,1,1) is not positive on every axis",
     [](Scene& s) {
         s.host->client()->accessorUpdated();
         s.host->size[1] = 0;
         s.filter->getSize();
     }},
    {"a null clone", "::Host: the clone is null.",
     [](Scene& s) {
         s.host->cloneSize = {};
         s.filter->createClone();
     }},
    {"another clone", "the size went from (8,6,1,1) to (1,1,1,1) without accessorUpdated",
     [](Scene& s) {
         s.host->cloneSize = Index::Filled(1);
         s.filter->createClone();
     }},
    {"a block taken back without its owner", "releaseBuffer names no owner, and every block has one",
     [](Scene& s) { s.ask(), s.host->client()->releaseBuffer(memory, nullptr); }},
    {"an owner of nothing", "bufferInvalidated names an owner, and no block has one",
     [](Scene& s) {
         auto const owner = std::exchange(s.host->owner, nullptr);
         s.ask(), s.host->client()->bufferInvalidated(owner.get());
     }},
    {"an update during a request", "accessorUpdated comes during a request",
     [](Scene& s) {
         s.host->afterLending = [](Host& host, BufferHandle&) { host.client()->accessorUpdated(); };
         s.ask();
     }},
};

TEST(CheckFilter, TellsWhatBreaksTheProtocol) {
    EXPECT_THAT(
        [] { CheckFilter::Apply(nullptr); },
        ThrowsMessage<std::invalid_argument>("[CheckFilter::Apply] Invalid argument: target accessor is null."));
    for (Row const& row : kRows) {
        Scene scene;
        EXPECT_THAT([&] { row.act(scene); }, ThrowsMessage<std::logic_error>(HasSubstr(row.text))) << row.name;
    }
}

TEST(CheckFilter, LetsPassWhatTheProtocolAllows) {
    Scene scene;
    for (auto const access : {AdtEnums::NoAccess, AdtEnums::Read, AdtEnums::Write, AdtEnums::Access(42)}) {
        scene.ask(access);
    }
    scene.host->afterLending = [](Host&, BufferHandle& handle) {
        handle.info().strides = {};
        handle.update(handle.buffer(), handle.info(), AdtEnums::Read);
    };
    scene.ask(AdtEnums::Read);
    scene.host->afterLending = [](Host& host, BufferHandle& handle) {
        host.client()->bufferInvalidated(host.owner.get());
        handle.invalidate(/*emptyRange=*/true);
    };
    scene.ask();
    scene.host->client()->releaseBuffer(memory, scene.host->owner);
    scene.host->size = {9, 9, 9, 9};
    scene.host->client()->accessorUpdated();
    EXPECT_EQ(scene.filter->getSize(), scene.host->size);
}

TEST(CheckFilter, TellsOfTwoThreadsInOneChain) {
    Scene scene;
    scene.host->afterLending = [&](Host&, BufferHandle&) {
        scene.filter->getSize();
        std::thread([&] {
            EXPECT_THAT(
                [&] { scene.filter->getSize(); },
                ThrowsMessage<std::logic_error>(HasSubstr(" calls getSize while thread ")));
        }).join();
    };
    scene.ask();
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
