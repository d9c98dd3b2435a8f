// SPDX-License-Identifier: Apache-2.0
#pragma once

// One script that takes any accessor through everything a consumer may do and compares it with a plain array. An
// accessor, a filter or a stack of them is one Subject: how to make it, and the few traits in which accessors may
// differ.
//
//     TEST(SubsetFilter, Conforms) {
//         Subject<float> subject{"subset over bricks", [](PlainArray<float> const& shown) { return …; }};
//         subject.grantedForRead = AdtEnums::ReadWrite;
//         expectConforms(subject);
//     }

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/views/detail/null_sample.h"
#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/testing/failing_calls.h"
#include "dravik/adt/testing/live_objects.h"
#include "dravik/adt/testing/plain_array.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <string>

namespace Quorvel::Dravik::Adt::Testing {

/// What becomes of samples written through a loan for ReadWrite.
enum class Writes {
    kAtOnce,   ///< they are in the data
    kLate,     ///< they reach the data when the handle asks again or is reset; until then only the handle shows them
    kLost,     ///< they never do, and nobody fails
    kRefused,  ///< the request fails
    kUntold,   ///< none of these in general; the script does not write
};

/// An accessor under the script, for samples of type T.
template <class T>
struct Subject {
    std::string name;
    /// Makes an accessor whose samples are those of `shown`. What is written through one must not reach another.
    std::function<std::unique_ptr<BulkView::IBufferAccessor>(PlainArray<T> const& shown)> make;
    Writes writes = Writes::kAtOnce;
    BulkView::AdtEnums::Access grantedForRead = BulkView::AdtEnums::Read;
    bool hasMemory = true;       ///< false: every block is lent without a buffer
    bool loansOutliveIt = true;  ///< a handle keeps its samples when the accessor has gone
    int highestSample = 100;     ///< samples are whole numbers from 0 to this one
};

/// A consumer as the protocol describes it: one handle, cleared and marked by notifications.
class Borrower : public BulkView::IBufferAccessor::IClient, Counted<kClient> {
  public:
    void accessorUpdated() override { handle.invalidate(/*emptyRange=*/true); }
    void bufferInvalidated(BulkView::BufferHandle::Owner const* owner) override {
        if (owner == handle.owner()) {
            handle.invalidate(/*emptyRange=*/true);
        }
    }
    bool prepareBufferRelease(void const* buffer, int&) override {
        return buffer == handle.buffer() && (handle.invalidate(/*emptyRange=*/true), true);
    }
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BulkView::BufferHandle::Owner> owner) override {
        handle.tryThreadSafeReset(buffer, owner);
    }
    std::unique_ptr<BulkView::IBufferAccessor> releaseAccessor() override { return nullptr; }

    /// Fills the handle, asking again as long as the loan comes back invalid.
    void request(BulkView::IBufferAccessor& accessor, FixedVector<4, int> position, BulkView::AdtEnums::Access access) {
        for (int attempt = 0; attempt < 5; ++attempt) {
            auto const notices = handle.notices();
            accessor.getBuffer(position, access, handle);
            if (handle.standsSince(notices)) {
                return;
            }
            handle.reset(/*releaseOwner=*/true);
        }
        FAIL() << "invalid at every attempt";
    }

    BulkView::BufferHandle handle;
};

template <class T>
class Conformance {
  public:
    Conformance(Subject<T> const& subject, FixedVector<4, int> const& size) : subject_(subject), data_(size) {
        data_.fill(random_, subject.highestSample);
    }

    void run() {
        struct Step {
            char const* name;
            void (Conformance::*run)();
        };
        constexpr Step kSteps[] = {
            {"lends every sample", &Conformance::lendsEverySample}, {"keeps its loans", &Conformance::keepsItsLoans},
            {"carries writes", &Conformance::carriesWrites},        {"clones itself", &Conformance::clonesItself},
            {"outlives failures", &Conformance::outlivesFailures},  {"serves views", &Conformance::servesViews},
        };
        for (Step const& step : kSteps) {
            testing::ScopedTrace const trace(
                __FILE__, __LINE__,
                testing::Message() << subject_.name << " of size " << data_.size() << ": " << step.name);
            accessor_ = subject_.make(data_);
            accessor_->setClient(&client_);
            (this->*step.run)();
            client_.handle.reset(/*releaseOwner=*/true);
            accessor_.reset();
        }
    }

  private:
    using Index = FixedVector<4, int>;
    using Enums = BulkView::AdtEnums;
    using Handle = BulkView::BufferHandle;

    // Reads as a client of its own what `accessor` shows.
    void showsAll(BulkView::IBufferAccessor& accessor) {
        Borrower reader;
        accessor.setClient(&reader);
        EXPECT_EQ(accessor.getSize(), data_.size());
        forEachIndex(data_.box(), [&](Index const& p) {
            if (reader.handle.contains(p)) {
                return true;
            }
            reader.request(accessor, p, Enums::Read);
            return shows(reader.handle, p);
        });
        EXPECT_EQ(accessor.getSize(), data_.size()) << "after requests";
        accessor.setClient(&client_);
    }

    void lendsEverySample() {
        OpenEndedRange<4, int> const ranges[] = {{}, data_.box(), {Index::Filled(2), Index::Filled(1)}};
        for (int type = 0; type <= 4; ++type) {
            for (auto const& range : ranges) {
                accessor_->setHint(static_cast<BulkView::IBufferAccessor::HintType>(type), range, 1.0f);
            }
        }
        showsAll(*accessor_);
        client_.request(*accessor_, {}, Enums::Read);
        EXPECT_EQ(client_.handle.access(), subject_.grantedForRead);
        for (auto const access : {Enums::ReadWrite, Enums::Write, Enums::Populate, Enums::NoAccess}) {
            if (subject_.writes != Writes::kRefused && subject_.writes != Writes::kUntold) {
                Index const p = data_.randomIndex(random_);
                client_.request(*accessor_, p, access);
                EXPECT_TRUE(client_.handle.contains(p)) << "asked for " << access;
                EXPECT_TRUE(!Enums::isWriteAccess(access) || Enums::isWriteAccess(client_.handle.access())) << access;
            }
        }
    }

    // Any number of loans may be held at once, as copies as well, and the last of them when the accessor has gone.
    void keepsItsLoans() {
        std::list<std::pair<Index, Handle>> loans;
        for (int round = 0; round < 40; ++round) {
            Index const p = data_.randomIndex(random_);
            client_.request(*accessor_, p, Enums::Read);
            loans.emplace_back(p, client_.handle);
            if (random_.chance(50)) {
                client_.handle.reset(/*releaseOwner=*/true);
            }
        }
        if (subject_.loansOutliveIt) {
            client_.handle.reset(/*releaseOwner=*/true);
            accessor_.reset();
        }
        for (auto const& [p, handle] : loans) {
            ASSERT_TRUE(shows(handle, p));
        }
    }

    void carriesWrites() {
        if (subject_.writes == Writes::kRefused) {
            EXPECT_ANY_THROW(accessor_->getBuffer({}, Enums::ReadWrite, client_.handle));
            client_.handle.reset(/*releaseOwner=*/true);
        }
        bool const writes =
            subject_.hasMemory && subject_.writes != Writes::kRefused && subject_.writes != Writes::kUntold;
        for (int round = 0; writes && round < 60; ++round) {
            writeSomewhere();
            if (subject_.writes != Writes::kAtOnce || random_.chance(30)) {
                client_.handle.reset(/*releaseOwner=*/true);
            }
            Borrower reader;
            Index const p = data_.randomIndex(random_);
            reader.request(*accessor_, p, Enums::Read);
            ASSERT_TRUE(shows(reader.handle, p)) << "round " << round;
        }
        client_.handle.reset(/*releaseOwner=*/true);
        showsAll(*accessor_);
    }

    // One or two loans in a row by the same handle, one sample changed in each.
    void writeSomewhere() {
        for (int more = random_.between(1, 2); more > 0; --more) {
            Index const p = data_.randomIndex(random_);
            client_.request(*accessor_, p, Enums::ReadWrite);
            ASSERT_TRUE(client_.handle.contains(p));
            ASSERT_FALSE(client_.handle.isNull());
            T const value = static_cast<T>(random_.between(0, subject_.highestSample));
            static_cast<T*>(client_.handle.buffer())[client_.handle.offset(p)] = value;
            if (subject_.writes != Writes::kLost) {
                data_.at(p) = value;
            }
        }
    }

    void clonesItself() {
        auto clone = accessor_->createClone();
        auto const second = clone->createClone();
        showsAll(*clone);
        clone->setClient(nullptr);
        clone->dispose(/*flag=*/false);
        clone.reset();
        showsAll(*accessor_);
        accessor_.reset();
        showsAll(*second);
    }

    // What fails below fails the request, and the next one is answered as ever.
    void outlivesFailures() {
        for (int n = 0; n < 6; ++n) {
            try {
                ArmedFailure const armed(CallFailure::plan(), n, Failing::kOnce);
                for (int round = 0; round < 20; ++round) {
                    client_.request(*accessor_, data_.randomIndex(random_), Enums::Read);
                }
            } catch (CallOutError const&) {
                Index const p = data_.randomIndex(random_);
                client_.request(*accessor_, p, Enums::Read);
                ASSERT_TRUE(shows(client_.handle, p)) << "after failure " << n;
            }
        }
    }

    void servesViews() {
        if (data_.size()[3] == 1 && data_.size()[2] == 1) {
            serves(BulkView::Typed2dRwView<T>(std::move(accessor_)));
        } else if (data_.size()[3] == 1) {
            serves(BulkView::Typed3dRwView<T>(std::move(accessor_)));
        }
    }

    template <class View>
    void serves(View view) {
        auto const narrowed = [](Index const& p) {
            typename View::Index point;
            std::copy_n(p.begin(), View::ndims(), point.begin());
            return point;
        };
        auto const expectSample = [this](T const& sample, Index const& p) {
            bool const same = sameSample(sample, subject_.hasMemory ? data_.at(p) : BulkView::Detail::nullSample<T>());
            EXPECT_TRUE(same) << "a view shows a wrong sample, first at " << p;
            return same;
        };
        auto at = view.samples().begin();
        forEachIndex(data_.box(), [&](Index const& p) {
            bool const same = at != std::default_sentinel && at.index() == narrowed(p) && expectSample(*at, p);
            ++at;
            return same;
        });
        for (int round = 0; round < 200; ++round) {
            Index const p = data_.randomIndex(random_);
            if ((subject_.writes == Writes::kAtOnce || subject_.writes == Writes::kLate) && random_.chance(30)) {
                data_.at(p) = static_cast<T>(random_.between(0, subject_.highestSample));
                view.set(narrowed(p), data_.at(p));
            }
            Index const q = random_.chance(50) ? p : data_.randomIndex(random_);
            ASSERT_TRUE(expectSample(view(narrowed(q)), q));
        }
        EXPECT_THROW(view.get(view.size()), BulkView::ViewBoundsException);
    }

    // Whether the handle describes a block with `p` in it, inside the data, whose samples are those of the data.
    bool shows(Handle const& handle, Index const& p) const {
        auto const box = handle.range4();
        bool good = handle.contains(p) && box.min.allGreaterEqual(data_.box().min) &&
                    data_.box().max.allGreaterEqual(box.max) && handle.isNull() != subject_.hasMemory;
        EXPECT_TRUE(good) << "asked for " << p << ", lent " << box << " at " << handle.buffer();
        if (good && subject_.hasMemory) {
            forEachIndex(box, [&](Index const& q) {
                good = sameSample(static_cast<T const*>(handle.buffer())[handle.offset(q)], data_.at(q));
                return good;
            });
            EXPECT_TRUE(good) << "asked for " << p << ", wrong samples in " << handle.infoSnapshot();
        }
        return good;
    }

    Random random_;
    Subject<T> const& subject_;
    PlainArray<T> data_;
    Borrower client_;
    std::unique_ptr<BulkView::IBufferAccessor> accessor_;
};

/// Takes the subject through the script for data of one to four axes.
template <class T>
void expectConforms(Subject<T> const& subject) {
    for (FixedVector<4, int> const& size :
         {FixedVector<4, int>(7, 1, 1, 1), FixedVector<4, int>(9, 8, 1, 1), FixedVector<4, int>(6, 5, 11, 1),
          FixedVector<4, int>(5, 4, 6, 3)}) {
        Conformance<T>(subject, size).run();
    }
}

}  // namespace Quorvel::Dravik::Adt::Testing
