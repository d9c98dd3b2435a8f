#include "dravik/adt/bulkview/filters/buffer_accessor_filter.h"
#include "dravik/adt/bulkview/filters/stateful_buffer_accessor_filter.h"

#include "dravik/adt/testing/recording_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Testing::Journal;
using Testing::RecordingAccessor;
using Testing::RecordingClient;

/// The least that makes a filter of a base.
template <class Base, class Self>
class Concrete : public Base {
  public:
    explicit Concrete(std::unique_ptr<IBufferAccessor> target) : Base(std::move(target)) {}
    FixedVector<4, int> getSize() override { return this->targetAccessor().getSize(); }
    void setHint(IBufferAccessor::HintType type, OpenEndedRange<4, int> const& range, float weight) override {
        this->targetAccessor().setHint(type, range, weight);
    }
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override {
        this->targetAccessor().getBuffer(position, access, handle);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override {
        return std::make_unique<Self>(static_cast<Self const&>(*this));
    }

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
    using StatefulBufferAccessorFilter::clientPtr;
    void accessorUpdated() override {}
    void bufferInvalidated(BufferHandle::Owner const*) override {}
    bool prepareBufferRelease(void const*, int&) override { return false; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override {}
};

std::unique_ptr<RecordingAccessor> accessor(char const* name, Journal const& journal) {
    return std::make_unique<RecordingAccessor>(name, journal);
}

TEST(BufferAccessorFilter, PassesRegistrationAndDisposalDownAndSwapsInSilence) {
    Journal const journal;
    RecordingClient client("c", journal);
    Plain filter(accessor("a", journal));
    auto const& target = static_cast<RecordingAccessor const&>(filter.targetAccessor());
    filter.setClient(&client);
    EXPECT_EQ(target.client(), &client) << "the client itself, not the filter";
    filter.dispose(/*flag=*/true);
    EXPECT_THAT(journal.take(), ElementsAre("a.setClient(client)", "a.dispose(1)"));
    auto former = filter.replaceTargetAccessor(accessor("b", journal));
    EXPECT_THAT(journal.take(), IsEmpty());
    former.reset();
    filter.getSize();
    EXPECT_THAT(journal.take(), ElementsAre("~a", "b.getSize"));
}

template <class Filter>
class EveryFilter : public testing::Test {};
using Filters = testing::Types<Plain, Stateful>;
TYPED_TEST_SUITE(EveryFilter, Filters);

TYPED_TEST(EveryFilter, DoesNothingWithoutATarget) {
    Journal const journal;
    RecordingClient client("c", journal);
    TypeParam filter(accessor("a", journal));
    auto const released = filter.releaseTargetAccessor();
    filter.setClient(&client);
    filter.setClient(nullptr);
    filter.dispose(/*flag=*/true);
    TypeParam const copy(filter);
    EXPECT_THAT(journal.take(), IsEmpty());
    EXPECT_EQ(filter.replaceTargetAccessor(accessor("b", journal)), nullptr);
    filter.dispose();
    filter.dispose(/*flag=*/true);
    EXPECT_THAT(journal.take(), ElementsAre("~b"));
}

TYPED_TEST(EveryFilter, CopiesTheWholeChainWithoutItsClient) {
    Journal const journal;
    RecordingClient client("c", journal);
    TypeParam filter(std::make_unique<Plain>(std::make_unique<TypeParam>(accessor("a", journal))));
    filter.setClient(&client);
    journal.take();
    {
        auto const clone = filter.createClone();
        EXPECT_THAT(journal.take(), ElementsAre("a.createClone"));
        clone->getSize();
    }
    EXPECT_THAT(journal.take(), ElementsAre("a'.getSize", "~a'"));
    filter.getSize();
    EXPECT_THAT(journal.take(), ElementsAre("a.getSize"));
}

TEST(BufferAccessorFilter, IsAssignedACloneUnlessItIsItself) {
    Journal const journal;
    Plain filter(accessor("a", journal));
    Plain const other(accessor("b", journal));
    Plain const& self = filter;
    filter = self;
    EXPECT_THAT(journal.take(), IsEmpty());
    filter = other;
    EXPECT_THAT(journal.take(), ElementsAre("b.createClone", "~a"));
    Plain emptied(accessor("d", journal));
    emptied.releaseTargetAccessor();
    journal.take();
    filter = emptied;
    EXPECT_THAT(journal.take(), ElementsAre("~b'"));
}

TEST(StatefulBufferAccessorFilter, StandsBetweenTargetAndClient) {
    Journal const journal;
    RecordingClient client("c", journal);
    Stateful filter(accessor("a", journal));
    auto const& target = static_cast<RecordingAccessor const&>(filter.targetAccessor());
    filter.setClient(&client);
    EXPECT_EQ(target.client(), &filter);
    EXPECT_EQ(filter.clientPtr(), &client);
    filter.setClient(nullptr);
    EXPECT_EQ(target.client(), nullptr);
    EXPECT_EQ(filter.clientPtr(), nullptr);
    filter.setClient(&client);
    journal.take();
    filter.dispose(/*flag=*/true);
    EXPECT_THAT(journal.take(), ElementsAre("a.dispose(1)")) << "no setClient(null): the target may go on notifying";
    EXPECT_EQ(filter.clientPtr(), nullptr);
    EXPECT_EQ(filter.releaseAccessor(), nullptr) << "nobody to ask any more";
    filter.setClient(&client);
    filter.dispose();
    EXPECT_EQ(filter.clientPtr(), nullptr) << "gone together with the target";
}

TEST(StatefulBufferAccessorFilter, MovesItsRegistrationToANewTarget) {
    Journal const journal;
    RecordingClient client("c", journal);
    Stateful filter(accessor("a", journal));
    filter.setClient(&client);
    journal.take();
    auto former = filter.replaceTargetAccessor(accessor("b", journal));
    EXPECT_THAT(journal.take(), ElementsAre("a.dispose(0)", "b.setClient(client)"));
    EXPECT_EQ(static_cast<RecordingAccessor&>(*former).client(), &filter) << "the old one is told nothing";
    EXPECT_EQ(static_cast<RecordingAccessor&>(filter.targetAccessor()).client(), &filter);

    filter.setClient(nullptr);
    journal.take();
    former = filter.replaceTargetAccessor(std::move(former));
    EXPECT_THAT(journal.take(), ElementsAre("b.dispose(0)"));
}

// The client's answer is the chain itself: the filters that relay the request are destroyed on the way.
TEST(StatefulBufferAccessorFilter, RelaysTheRequestForTheChainThroughItsOwnEnd) {
    Journal const journal;
    class Host : public RecordingClient {
      public:
        using RecordingClient::RecordingClient;
        std::unique_ptr<IBufferAccessor> releaseAccessor() override {
            chain.reset();
            return std::move(replacement);
        }
        std::unique_ptr<IBufferAccessor> replacement;
    };
    Host host("h", journal);
    host.replacement = accessor("b", journal);
    auto const* const replacement = host.replacement.get();
    auto bottom = accessor("a", journal);
    auto const& target = *bottom;
    host.chain = std::make_unique<Stateful>(std::make_unique<Stateful>(std::move(bottom)));
    host.chain->setClient(&host);
    EXPECT_EQ(target.client()->releaseAccessor().get(), replacement);
    EXPECT_THAT(journal.take(), ElementsAre("a.setClient(client)", "~a", "~b"));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
