#include "dravik/adt/bulkview/view_exceptions.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Index = FixedVector<4, int>;

struct IndexText : ViewException {
    static std::string of(Index const& index, int ndims) { return getIndexStr(index, ndims); }
};

TEST(ViewException, WritesTheFirstComponents) {
    Index const index(1, -2, 3, 4);
    EXPECT_EQ(IndexText::of(index, 2), "(1,-2)");
    EXPECT_EQ(IndexText::of(index, 4), "(1,-2,3,4)");
    EXPECT_EQ(IndexText::of(index, 0), "(");
    EXPECT_EQ(IndexText::of(index, -1), "(");
    EXPECT_THROW(IndexText::of(index, 5), std::invalid_argument);
}

TEST(ViewBoundsException, SaysWhatWasAttemptedWhere) {
    struct Row {
        AdtEnums::Access access;
        char const* verb;
    };
    constexpr Row kRows[] = {
        {AdtEnums::NoAccess, "access"}, {AdtEnums::Read, "access"},     {AdtEnums::ReadWrite, "set"},
        {AdtEnums::Write, "set"},       {AdtEnums::Populate, "access"},
    };
    for (Row const& row : kRows) {
        ViewBoundsException const failure(Index(7, 1, 0, 0), Index(5, 6, 0, 0), 2, row.access);
        EXPECT_EQ(
            failure.msg(), std::string("[Adt::BulkView] Index out of bounds. Attempt to ") + row.verb +
                               " value outside the view: (7,1) bounds: (5,6)");
    }
}

// Caught by its exact type, each keeps what it says: a class that forgets to override decays to its base.
template <class Failure>
void expectKeepsItsType(Failure const& failure) {
    auto const clone = failure.clone();
    ASSERT_NE(dynamic_cast<Failure const*>(clone.get()), nullptr);
    try {
        clone->throwClone();
    } catch (ViewException const& thrown) {
        EXPECT_EQ(typeid(thrown), typeid(Failure));
        EXPECT_EQ(thrown.msg(), failure.msg());
    }
}

TEST(ViewExceptions, KeepTheirTypeWhenCloned) {
    Accessors::MemoryAccessor const accessor;
    expectKeepsItsType(ViewException("text"));
    expectKeepsItsType(ViewAccessorException(accessor, "text"));
    ViewBoundsException const bounds(Index(1, 2, 3, 4), Index(), 4, AdtEnums::Write);
    expectKeepsItsType(bounds);
    auto const clone = bounds.clone();
    EXPECT_EQ(dynamic_cast<ViewBoundsException const&>(*clone).index(), Index(1, 2, 3, 4));
    EXPECT_EQ(dynamic_cast<ViewBoundsException const&>(*clone).access(), AdtEnums::Write);
}

TEST(ViewAccessorException, NamesTheDynamicTypeOfTheAccessor) {
    Accessors::MemoryAccessor const memory;
    IBufferAccessor const& accessor = memory;
    std::string const start = "[Adt::BulkView] [Quorvel::Dravik::Adt::BulkView::Accessors::MemoryAccessor] failed at ";
    EXPECT_EQ(ViewAccessorException(accessor, "failed at ").msg(), start);
    EXPECT_EQ(ViewAccessorException(accessor, "failed at ", Index(1, 2, 3, 4)).msg(), start + "(1,2,3,4)");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
