// SPDX-License-Identifier: Apache-2.0
#pragma once

// An accessor and an owner that do what a test tells them. Threads: as what they are told.

#include "dravik/adt/testing/recording_chain.h"

#include <functional>
#include <utility>

namespace Quorvel::Dravik::Adt::Testing {

/// Calls back when it is destroyed; never locks.
struct CallingOwner : BulkView::BufferHandle::Owner, Counted<kLoanOwner> {
    explicit CallingOwner(std::function<void()> calledAtEnd) : atEnd(std::move(calledAtEnd)) {}
    ~CallingOwner() override { atEnd(); }
    void lock() override {}
    void unlock() override {}

    std::function<void()> atEnd;
};

/// Answers requests with whatever `lend` puts into the handle, and calls back when it is destroyed.
struct LendingAccessor : RecordingAccessor {
    using Lend = std::function<void(FixedVector<4, int>, BulkView::AdtEnums::Access, BulkView::BufferHandle&)>;

    LendingAccessor(FixedVector<4, int> size, Lend lending)
        : RecordingAccessor("", Journal(), size), lend(std::move(lending)) {}
    ~LendingAccessor() override { atEnd(); }
    void getBuffer(
        FixedVector<4, int> position, BulkView::AdtEnums::Access access, BulkView::BufferHandle& handle) override {
        lend(position, access, handle);
    }

    Lend lend;
    std::function<void()> atEnd = [] {};
};

}  // namespace Quorvel::Dravik::Adt::Testing
