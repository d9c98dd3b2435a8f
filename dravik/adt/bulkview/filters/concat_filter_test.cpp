// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/concat_filter.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/filter_stacks.h"
#include "dravik/adt/testing/recording_chain.h"
#include "dravik/adt/testing/region_law.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Accessor = std::unique_ptr<IBufferAccessor>;
using Box = OpenEndedRange<4, int>;
using Index = FixedVector<4, int>;
using Parts = std::vector<Accessor>;

template <class... Each>
Parts listOf(Each... each) {
    Parts parts;
    (parts.push_back(std::move(each)), ...);
    return parts;
}

// `shown` in up to three parts along `axis`, the second of which converts.
Accessor joined(Testing::PlainArray<float> const& shown, int axis) {
    int const length = shown.size()[axis];
    Parts parts;
    for (int start = 0, end = 0; start < length; start = end) {
        end = std::min(start + std::max(length / 3, 1), length);
        auto size = shown.size();
        size[axis] = end - start;
        Testing::PlainArray<float> part(size);
        Testing::forEachIndex(part.box(), [&](Index place) {
            float& sample = part.at(place);
            place[axis] += start;
            sample = shown.at(place);
            return true;
        });
        bool const converts = parts.size() == 1;
        parts.push_back(Testing::bricks(part, converts, {.padding = static_cast<int>(parts.size())}));
        parts.back() =
            converts ? Testing::converted(std::move(parts.back())) : Testing::cached(std::move(parts.back()));
    }
    return ConcatFilter::Apply(std::move(parts), axis);
}

TEST(ConcatFilter, Conforms) {
    constexpr std::pair<char const*, Accessor (*)(Testing::PlainArray<float> const&)> kJoins[] = {
        {"along 0", [](auto const& shown) { return joined(shown, 0); }},
        {"along 1", [](auto const& shown) { return joined(shown, 1); }},
        {"along 2", [](auto const& shown) { return joined(shown, 2); }},
        {"along 3, between filters",
         [](auto const& shown) {
             auto turned = Testing::PlainArray<float>(shown.size());
             Testing::forEachIndex(shown.box(), [&](Index const& index) {
                 turned.at(shown.size() - Index::Filled(1) - index) = shown.at(index);
                 return true;
             });
             return Testing::reversed(Testing::proxied(joined(turned, 3)));
         }},
    };
    for (auto const& [name, make] : kJoins) {
        Testing::Subject<float> subject{name, make};
        subject.writes = Testing::Writes::kLate;
        Testing::expectConforms(subject);
        Testing::PlainArray<float> data({6, 5, 11, 3});
        Testing::Random random;
        data.fill(random, 100);
        Testing::expectRegionsAreItsSamples<float>(*make(data), /*writes=*/true);
    }
}

TEST(ConcatFilter, TellsEachPartWhatConcernsIt) {
    Testing::Journal journal;
    auto const part = [&](char const* name) {
        return std::make_unique<Testing::RecordingAccessor>(name, journal, Index(2, 4, 1, 1));
    };
    Testing::RecordingClient client("c", journal);
    auto a = part("a"), b = part("b");
    auto const& second = *b;
    auto const filter = ConcatFilter::Apply(listOf(std::move(a), std::move(b), part("d")), 1);
    EXPECT_EQ(filter->getSize(), Index(2, 12, 1, 1));
    filter->setClient(&client);
    journal.take();
    filter->setHint(IBufferAccessor::Prefetch, {{0, 3, 0, 0}, {2, 6, 1, 1}}, 1);
    filter->setHint(IBufferAccessor::CancelPrefetch, {}, 1);
    EXPECT_THAT(
        journal.take(), testing::ElementsAre(
                            "a.setHint(0 [0,2)x[3,4)x[0,1)x[0,1) 1)", "b.setHint(0 [0,2)x[0,2)x[0,1)x[0,1) 1)",
                            "a.setHint(1 [0,0)x[0,0)x[0,0)x[0,0) 1)", "b.setHint(1 [0,0)x[0,0)x[0,0)x[0,0) 1)",
                            "d.setHint(1 [0,0)x[0,0)x[0,0)x[0,0) 1)"));
    second.client()->bufferInvalidated(nullptr);
    EXPECT_THAT(journal.take(), testing::ElementsAre("c.bufferInvalidated(null)"));
    auto released = second.client()->releaseAccessor();
    EXPECT_EQ(released.get(), &second);
    EXPECT_THAT(journal.take(), testing::ElementsAre("b.setClient(null)", "c.accessorUpdated"));
    BufferHandle handle;
    filter->getBuffer({0, 9, 0, 0}, AdtEnums::Read, handle);
    EXPECT_EQ(handle.range4(), Box(Index(0, 8, 0, 0), Index(2, 12, 1, 1))) << "the others stay";
    EXPECT_THROW(filter->getBuffer({0, 5, 0, 0}, AdtEnums::Read, handle), Exceptions::ObjectDisposedException);
}

// The memory of the second part has no owner, so it lets the one of the first stay in the handle.
TEST(ConcatFilter, CarriesWritesDownBeforeAnotherPart) {
    auto const shorts = SharedArray<4>::Make<short>(Box::OfSize({1, 1, 9, 1}));
    auto const floats = SharedArray<4>::Make<float>(Box::OfSize({1, 1, 9, 1}));
    auto const filter = ConcatFilter::Apply(
        listOf(
            Testing::converted(std::make_unique<Accessors::MemoryAccessor>(shorts)),
            Accessor(std::make_unique<Accessors::MemoryAccessor>(floats))),
        2);
    BufferHandle handle;
    filter->getBuffer({0, 0, 4, 0}, AdtEnums::ReadWrite, handle);
    static_cast<float*>(handle.buffer())[handle.offset(Index(0, 0, 4, 0))] = 7;
    filter->getBuffer({0, 0, 12, 0}, AdtEnums::Read, handle);
    EXPECT_EQ(reinterpret_cast<short const*>(shorts.data())[4], (7 - Testing::kOffset) / Testing::kScale);
    EXPECT_EQ(handle.owner(), nullptr);
}

TEST(ConcatFilter, RefusesPartsThatDoNotFit) {
    auto const part = [](Index const& size) -> Accessor {
        return std::make_unique<Testing::RecordingAccessor>("", Testing::Journal(), size);
    };
    auto const expectRefused = [](Parts parts, int axis, char const* reason) {
        EXPECT_THAT(
            [&] { ConcatFilter::Apply(std::move(parts), axis); },
            testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr(reason)));
    };
    expectRefused({}, 0, "no parts.");
    expectRefused(listOf(part({1, 2, 1, 1}), Accessor()), 0, "a part is null.");
    expectRefused(listOf(part({1, 2, 1, 1}), part({1, 2, 1, 1})), 4, "no axis has the number 4.");
    expectRefused(listOf(part({1, 2, 1, 1}), part({1, 3, 1, 1})), 0, "(0,2,1,1) and (0,3,1,1), beside axis 0");
    auto const far = 2'000'000'000;
    auto parts = listOf(part({far, 1, 1, 1}), part({far, 1, 1, 1}));
    EXPECT_THROW(ConcatFilter::Apply(std::move(parts), 0), std::length_error);
    auto only = part({1, 2, 1, 1});
    auto const* const self = only.get();
    EXPECT_EQ(ConcatFilter::Apply(listOf(std::move(only)), 0).get(), self);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
