// SPDX-License-Identifier: Apache-2.0
// What the bases of the filters do, and what every filter passes down to its target and up to its client.

#include "dravik/adt/bulkview/filters/buffer_accessor_filter.h"
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/check_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/filters/subset_extent_filter.h"
#include "dravik/adt/bulkview/filters/subset_range_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"

#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using namespace Filters;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Testing::Journal;
using Testing::RecordingAccessor;
using Testing::RecordingClient;
using Accessor = std::unique_ptr<IBufferAccessor>;
using Range = OpenEndedRange<4, int>;

/// The least that makes a filter of a base.
template <class Base, class Self>
class Concrete : public Base {
  public:
    explicit Concrete(Accessor target) : Base(std::move(target)) {}
    FixedVector<4, int> getSize() override { return this->targetAccessor().getSize(); }
    void setHint(IBufferAccessor::HintType type, Range const& range, float weight) override {
        this->targetAccessor().setHint(type, range, weight);
    }
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override {
        this->targetAccessor().getBuffer(position, access, handle);
    }
    Accessor createClone() const override { return std::make_unique<Self>(static_cast<Self const&>(*this)); }

    using Base::dispose;
    using Base::releaseTargetAccessor;
    using Base::replaceTargetAccessor;
    using Base::targetAccessor;
};

class Plain : public Concrete<BufferAccessorFilter, Plain> {
  public:
    using Concrete::Concrete;
};

class Stateful : public Concrete<StatefulBufferAccessorFilter, Stateful> {
  public:
    using Concrete::Concrete;
    using StatefulBufferAccessorFilter::client;
    using StatefulBufferAccessorFilter::clientPtr;
    void accessorUpdated() override {}
    void bufferInvalidated(BufferHandle::Owner const*) override {}
    bool prepareBufferRelease(void const*, int&) override { return false; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override {}
};

Accessor accessor(char const* name, Journal const& journal) {
    return std::make_unique<RecordingAccessor>(name, journal, FixedVector<4, int>(99, 99, 99, 99));
}

// Destroys the chain as soon as it is to give it up: the filters that relay the request are gone then.
struct Host : RecordingClient {
    using RecordingClient::RecordingClient;
    Accessor releaseAccessor() override { return filter.reset(), RecordingClient::releaseAccessor(); }
    Accessor filter;
};

struct PassingRow {
    char const* name;
    Accessor (*over)(Accessor target);
    std::vector<std::string> told;  // of what the target says
    std::string place = "(1,2,3,4)", hint = "[1,5)x[2,6)x[3,7)x[4,8)", noHint = "[0,0)x[0,0)x[0,0)x[0,0)";
    bool isSubset = false;
};

std::vector<std::string> allNotices() {
    return {
        "c.accessorUpdated", "c.bufferInvalidated(null)", "c.prepareBufferRelease(buffer 4)",
        "c.releaseBuffer(buffer null)"};
}

std::vector<PassingRow> passingRows() {
    auto const all = allNotices();
    return {
        {"least filter", [](Accessor a) -> Accessor { return std::make_unique<Plain>(std::move(a)); }, all},
        {"least filter with state",
         [](Accessor a) -> Accessor { return std::make_unique<Stateful>(std::move(a)); },
         {}},
        {"proxy", [](Accessor a) { return ProxyFilter::MakeProxy(std::move(a), nullptr); }, all},
        {"check", [](Accessor a) { return CheckFilter::Apply(std::move(a)); }, all},
        {"cache", [](Accessor a) { return CacheFilter::Apply(std::move(a), 1, 1, 1); }, all},
        {"converter",
         [](Accessor a) {
             auto const copy = Converters::ValueConverterFactory::getCopyConverter(32);
             return ValueConvertFilter::Apply(std::move(a), 4, copy, copy);
         },
         {"c.accessorUpdated"}},
        {"box",
         [](Accessor a) -> Accessor {
             return std::make_unique<SubsetRangeFilter>(std::move(a), Range{{10, 20, 30, 40}, {15, 25, 35, 45}});
         },
         all, "(11,22,33,44)", "[11,15)x[22,26)x[33,37)x[44,48)", "[10,10)x[20,20)x[30,30)x[40,40)", true},
        {"extent",
         [](Accessor a) -> Accessor {
             using Extent1 = ExtentImpl<int>;
             ExtentK<4, int> const extent{Extent1{10, 3, 5}, Extent1{20, -2, 5}, Extent1{30, 1, 5}, Extent1{40, 0, 1}};
             return std::make_unique<SubsetExtentFilter>(std::move(a), extent);
         },
         all, "(13,16,33,40)", "[13,23)x[10,17)x[33,37)x[40,41)", "[10,8)x[22,21)x[30,30)x[40,41)", true},
    };
}

// What a filter says to its target.
void expectPassesDown(PassingRow const& row, Host& host, Journal const& journal) {
    EXPECT_EQ(host.filter->getSize()[0], row.isSubset ? 5 : 99);
    EXPECT_THAT(journal.take(), testing::SizeIs(row.isSubset ? 0 : 1));
    BufferHandle handle;
    host.filter->setHint(IBufferAccessor::Prefetch, {{1, 2, 3, 4}, {5, 6, 7, 8}}, 0.5f);
    host.filter->setHint(IBufferAccessor::CancelPrefetch, Range(), 1.0f);
    host.filter->getBuffer({1, 2, 3, 4}, AdtEnums::Populate, handle);
    EXPECT_EQ(handle.access(), AdtEnums::Populate);
    handle.reset(/*releaseOwner=*/true);
    host.filter->setClient(&host);
    host.filter->setClient(nullptr);
    host.filter->setClient(&host);
    EXPECT_THAT(
        journal.take(),
        ElementsAre(
            "a.setHint(0 " + row.hint + " 0.5)", "a.setHint(1 " + row.noHint + " 1)",
            "a.getBuffer(" + row.place + " 4)", "a.setClient(client)", "a.setClient(null)", "a.setClient(client)"));
}

// What its target says to it, also after its end.
void expectPassesUp(PassingRow const& row, Host& host, RecordingAccessor const& below, Journal const& journal) {
    auto* const listener = dynamic_cast<IBufferAccessor::IClient*>(host.filter.get());
    ASSERT_EQ(below.client(), listener == nullptr ? &host : listener);
    auto const notify = [&](IBufferAccessor::IClient& told) {
        int value = 4;
        told.accessorUpdated();
        told.bufferInvalidated(nullptr);
        bool const isHeld = told.prepareBufferRelease(&below, value);
        told.releaseBuffer(&below, nullptr);
        return isHeld && value == 5;
    };
    EXPECT_EQ(notify(*below.client()), row.told == allNotices());
    EXPECT_THAT(journal.take(), ElementsAreArray(row.told));
    host.filter->dispose(/*flag=*/true);
    EXPECT_FALSE(listener != nullptr && (notify(*listener) || listener->releaseAccessor() != nullptr));
    EXPECT_THAT(journal.take(), ElementsAre("a.dispose(1)"))
        << "no setClient(null): the target may go on notifying, and nobody hears it";
    host.filter->setClient(&host);
    EXPECT_EQ(below.client()->releaseAccessor(), nullptr);
    EXPECT_THAT(journal.take(), ElementsAre("a.setClient(client)", "~a", "c.releaseAccessor"));
}

TEST(StatefulFilter, KeepsItsClientWhereTheTargetRefuses) {
    struct Refusing : RecordingAccessor {
        using RecordingAccessor::RecordingAccessor;
        void setClient(IClient* client) override {
            calls++ == 1 ? throw std::runtime_error("refused") : RecordingAccessor::setClient(client);
        }
        int calls = 0;
    };
    Journal const journal;
    Stateful filter(std::make_unique<Refusing>("a", journal));
    RecordingClient first("first", journal), second("second", journal);
    filter.setClient(&first);
    EXPECT_THROW(filter.setClient(&second), std::runtime_error);
    EXPECT_EQ(filter.clientPtr(), &first);
}

TEST(EveryFilter, PassesEverythingOn) {
    for (PassingRow const& row : passingRows()) {
        SCOPED_TRACE(row.name);
        Journal const journal;
        Host host("c", journal);
        auto target = accessor("a", journal);
        auto const& below = static_cast<RecordingAccessor&>(*target);
        host.filter = row.over(std::move(target));
        journal.take();
        expectPassesDown(row, host, journal);
        expectPassesUp(row, host, below, journal);
    }
}

template <class Filter>
class EveryBase : public testing::Test {};
using Bases = testing::Types<Plain, Stateful>;
TYPED_TEST_SUITE(EveryBase, Bases);

TYPED_TEST(EveryBase, DoesNothingWithoutATarget) {
    Journal const journal;
    RecordingClient client("c", journal);
    TypeParam filter(accessor("a", journal));
    auto const released = filter.releaseTargetAccessor();
    filter.setClient(&client);
    filter.dispose(/*flag=*/true);
    TypeParam const copy(filter);
    EXPECT_EQ(filter.replaceTargetAccessor(nullptr), nullptr);
    filter.setClient(nullptr);
    EXPECT_THAT(journal.take(), IsEmpty());
    EXPECT_EQ(filter.replaceTargetAccessor(accessor("b", journal)), nullptr);
    filter.dispose();
    filter.dispose(/*flag=*/true);
    EXPECT_THAT(journal.take(), ElementsAre("~b"));
}

TYPED_TEST(EveryBase, CopiesTheWholeChainWithoutItsClient) {
    Journal const journal;
    RecordingClient client("c", journal);
    TypeParam filter(std::make_unique<Plain>(std::make_unique<TypeParam>(accessor("a", journal))));
    filter.setClient(&client);
    journal.take();
    filter.createClone()->getSize();
    filter.getSize();
    EXPECT_THAT(journal.take(), ElementsAre("a.createClone", "a'.getSize", "~a'", "a.getSize"));
}

TYPED_TEST(EveryBase, ExchangesItsTarget) {
    Journal const journal;
    RecordingClient client("c", journal);
    TypeParam filter(accessor("a", journal));
    filter.setClient(&client);
    journal.take();
    auto former = filter.replaceTargetAccessor(accessor("b", journal));
    std::vector<std::string> told = {"a.dispose(0)", "b.setClient(client)"};
    if constexpr (std::is_same_v<TypeParam, Stateful>) {
        EXPECT_EQ(static_cast<RecordingAccessor&>(*former).client(), &filter) << "the old one is told nothing";
        EXPECT_EQ(&filter.client(), &client);
        filter.setClient(nullptr);
        told.insert(told.end(), {"b.setClient(null)", "b.dispose(0)"});
    } else {
        told = {};
    }
    former = filter.replaceTargetAccessor(std::move(former));
    EXPECT_THAT(journal.take(), ElementsAreArray(told));
    EXPECT_EQ(&std::as_const(filter).targetAccessor(), &filter.targetAccessor());
    former.reset();
    filter.setClient(&client);
    filter.getSize();
    EXPECT_THAT(journal.take(), ElementsAre("~b", "a.setClient(client)", "a.getSize"));
    filter.dispose();
    if constexpr (std::is_same_v<TypeParam, Stateful>) {
        EXPECT_EQ(filter.clientPtr(), nullptr) << "gone together with the target";
    }
}

TEST(EveryCopy, RefusesANullClone) {
    struct Unclonable : RecordingAccessor {
        Unclonable() : RecordingAccessor("u", Journal()) {}
        Accessor createClone() const override { return nullptr; }
    };
    Plain const plain(std::make_unique<Unclonable>());
    Stateful const stateful(std::make_unique<Unclonable>());
    Typed2dRoView<float> const view(std::make_unique<Unclonable>());
    Plain assigned(nullptr);
    Typed2dRoView<float> assignedView;
    std::function<void()> const copies[] = {
        [&] { plain.createClone(); }, [&] { stateful.createClone(); }, [&] { assigned = plain; },
        [&] { Typed2dRoView<float> const copy(view); }, [&] { assignedView = view; }};
    for (auto const& copy : copies) {
        EXPECT_THAT(
            copy, testing::ThrowsMessage<std::logic_error>(testing::EndsWith("::Unclonable: the clone is null.")))
            << &copy - copies;
    }
}

TEST(BufferAccessorFilter, IsAssignedAClone) {
    Journal const journal;
    Plain filter(accessor("a", journal)), other(accessor("b", journal));
    Plain const& self = filter;
    filter = self;
    EXPECT_THAT(journal.take(), IsEmpty());
    filter = other;
    other.releaseTargetAccessor();
    filter = other;
    EXPECT_THAT(journal.take(), ElementsAre("b.createClone", "~a", "~b", "~b'"));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
