// SPDX-License-Identifier: Apache-2.0
#pragma once

// ThreadPool: what the examples start tasks with. Threads: any; tasks that have not begun at its end never do.

#include <condition_variable>
#include <functional>
#include <mutex>
#include <queue>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

//! [pool]
class ThreadPool {
  public:
    explicit ThreadPool(int threads) {
        while (threads-- > 0) {
            threads_.emplace_back([this](std::stop_token const& stop) { work(stop); });
        }
    }
    void start(std::function<void()> task) {
        std::lock_guard const lock(mutex_);
        tasks_.push(std::move(task));
        added_.notify_one();
    }

  private:
    void work(std::stop_token const& stop) {
        for (std::unique_lock lock(mutex_); added_.wait(lock, stop, [&] { return !tasks_.empty(); });) {
            auto const task = std::move(tasks_.front());
            tasks_.pop();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable_any added_;
    std::queue<std::function<void()>> tasks_;
    std::vector<std::jthread> threads_;  // last, since they use the others
};
//! [pool]
