// SPDX-License-Identifier: Apache-2.0
#pragma once

// Threading::Mutex: mutual exclusion that meets the lock requirements of Boost and of the standard library, and its own
// scoped lock, which reports misuse. Threads: a Mutex is for any number of them, a Lock object for one.

#include <boost/system/error_code.hpp>
#include <boost/thread/exceptions.hpp>
#include <boost/thread/mutex.hpp>

namespace Quorvel::Dravik::Adt::Threading {

/// A mutex that its holder must not take again; within one process.
///
/// Works with Lock, boost::unique_lock, std::lock_guard, std::condition_variable_any and their like.
class Mutex {
  public:
    class Lock;

    Mutex() = default;
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    void lock() { mutex_.lock(); }
    /// @pre the calling thread holds this mutex
    void unlock() { mutex_.unlock(); }
    /// Takes the mutex if it is free; false otherwise.
    bool try_lock() { return mutex_.try_lock(); }

  private:
    boost::mutex mutex_;
};

/// Holds a mutex from construction to destruction, with leave to give it back and take it again in between.
///
/// Refers to the mutex, which must outlive it. The lock's own state detects misuse, which never reaches the mutex.
class Mutex::Lock {
  public:
    explicit Lock(Mutex& mutex) : mutex_(mutex) { lock(); }
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;
    ~Lock() {
        if (locked_) {
            mutex_.unlock();
        }
    }

    /// @throws boost::lock_error if this lock holds the mutex
    void lock() {
        if (locked_) {
            throw boost::lock_error(boost::system::errc::resource_deadlock_would_occur, "The lock holds the mutex.");
        }
        mutex_.lock();
        locked_ = true;
    }

    /// @throws boost::lock_error unless this lock holds the mutex
    void unlock() {
        if (!locked_) {
            throw boost::lock_error(boost::system::errc::operation_not_permitted, "The lock does not hold the mutex.");
        }
        mutex_.unlock();
        locked_ = false;
    }

  private:
    Mutex& mutex_;
    bool locked_ = false;
};

}  // namespace Quorvel::Dravik::Adt::Threading
