// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/lightweight_mutex.h"
#include "dravik/adt/core/threading_mutex.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace Quorvel::Dravik::Adt {
namespace {

using Threading::Mutex;

static_assert(!std::is_copy_constructible_v<Mutex> && !std::is_copy_assignable_v<Mutex>);
static_assert(!std::is_copy_constructible_v<Mutex::Lock> && !std::is_copy_constructible_v<LightweightMutex>);

template <class AnyMutex>
bool isFreeForOthers(AnyMutex& mutex) {
    bool isFree = false;
    std::thread([&] { isFree = std::unique_lock(mutex, std::try_to_lock).owns_lock(); }).join();
    return isFree;
}

TEST(MutexLock, ReportsMisuseAndKeepsItsState) {
    Mutex mutex;
    try {
        Mutex::Lock lock(mutex);
        EXPECT_THROW(lock.lock(), boost::lock_error);
        EXPECT_FALSE(isFreeForOthers(mutex)) << "the refused second lock must not have let go";
        lock.unlock();
        EXPECT_THROW(lock.unlock(), boost::lock_error);
        EXPECT_TRUE(isFreeForOthers(mutex));
        lock.lock();
        throw std::runtime_error("left early");
    } catch (std::runtime_error const&) {
        EXPECT_TRUE(isFreeForOthers(mutex));
    }
    {
        Mutex::Lock lock(mutex);
        lock.unlock();
        mutex.lock();
    }
    EXPECT_FALSE(isFreeForOthers(mutex)) << "what another holds is left alone";
    mutex.unlock();
}

TEST(Mutex, MeetsLocksOfBoostAndTheStandard) {
    Mutex mutex;
    std::condition_variable_any changed;
    bool ready = false;
    std::jthread const producer([&] {
        boost::lock_guard<Mutex> guard(mutex);
        ready = true;
        changed.notify_one();
    });
    boost::unique_lock<Mutex> lock(mutex);
    changed.wait(lock, [&] { return ready; });
    EXPECT_FALSE(isFreeForOthers(mutex));
}

TEST(LightweightMutex, IsFreeOnceItsHolderLeft) {
    LightweightMutex mutex;
    {
        std::lock_guard<LightweightMutex> const guard(mutex);
        ASSERT_TRUE(mutex.try_lock());
        mutex.unlock();
        EXPECT_FALSE(isFreeForOthers(mutex));
    }
    EXPECT_TRUE(isFreeForOthers(mutex));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
