// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/views/view_exceptions.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Index = FixedVector<4, int>;

struct IndexText : ViewException {
    using ViewException::getIndexStr;
};

TEST(ViewException, WritesTheFirstComponents) {
    Index const index(1, -2, 3, 4);
    EXPECT_EQ(IndexText::getIndexStr(index, 2), "(1,-2)");
    EXPECT_EQ(IndexText::getIndexStr(index, 4), "(1,-2,3,4)");
    EXPECT_EQ(IndexText::getIndexStr(index, 0), "(");
    EXPECT_EQ(IndexText::getIndexStr(index, -1), "(");
    EXPECT_THROW(IndexText::getIndexStr(index, 5), std::invalid_argument);
}

TEST(ViewBoundsException, SaysWhatWasAttemptedWhere) {
    using enum AdtEnums::Access;
    for (auto const access : {NoAccess, Read, ReadWrite, Write, Populate}) {
        ViewBoundsException const failure(Index(7, 1, 0, 0), Index(5, 6, 0, 0), 2, access);
        EXPECT_EQ(
            failure.msg(), std::string("[Adt::BulkView] Index out of bounds. Attempt to ") +
                               (access == ReadWrite || access == Write ? "set" : "access") +
                               " value outside the view: (7,1) bounds: (5,6)");
        EXPECT_EQ(failure.access(), access);
        EXPECT_EQ(failure.index(), Index(7, 1, 0, 0));
    }
}

// Thrown by its clone, each is of its exact type and keeps what it says: one that forgot to override decays to its
// base.
template <class Failure>
void expectKeepsItsType(Failure const& failure, std::string const& message) {
    try {
        failure.clone()->throwClone();
    } catch (ViewException const& thrown) {
        EXPECT_EQ(typeid(thrown), typeid(Failure));
        EXPECT_EQ(thrown.msg(), message);
    }
}

TEST(ViewExceptions, KeepTheirTypeAndTextWhenCloned) {
    Accessors::MemoryAccessor const memory;
    IBufferAccessor const& accessor = memory;
    std::string const start = "[Adt::BulkView] [Quorvel::Dravik::Adt::BulkView::Accessors::MemoryAccessor] failed at ";
    expectKeepsItsType(ViewException("text"), "[Adt::BulkView] text");
    expectKeepsItsType(ViewAccessorException(accessor, "failed at "), start);
    expectKeepsItsType(ViewAccessorException(accessor, "failed at ", Index(1, 2, 3, 4)), start + "(1,2,3,4)");
    ViewBoundsException const bounds(Index(1, 2, 3, 4), Index(), 4, AdtEnums::Write);
    expectKeepsItsType(bounds, bounds.msg());
    auto const clone = boost::dynamic_pointer_cast<ViewBoundsException const>(bounds.clone());
    EXPECT_EQ(clone->index(), bounds.index());
    EXPECT_EQ(clone->access(), AdtEnums::Write);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
