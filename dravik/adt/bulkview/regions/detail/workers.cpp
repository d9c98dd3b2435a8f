// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/detail/workers.h"

#include "dravik/adt/bulkview/detail/cancellation_hold.h"

#include <cxxabi.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

std::function<void(std::int64_t, std::int64_t)> Progress::ofPiece(int worker) {
    return [this, worker, before = std::int64_t{0}](std::int64_t done, std::int64_t /*ofPiece*/) mutable {
        add(worker, done - std::exchange(before, done));
    };
}

void Progress::add(int worker, std::int64_t samples) {
    std::int64_t const done = done_ += samples;
    if (worker == 0 && options_.progress) {
        options_.progress(told_ = done, total_);
    }
}

void Progress::finish() {
    if (options_.progress && told_ != done_) {
        options_.progress(told_ = done_, total_);
    }
}

namespace {

// Outlives the call where a task begins later than its end.
class Pieces {
  public:
    using Work = std::function<void(int, std::int64_t)>;

    // `work` is the caller's: it is used by those alone that have joined before the call closes.
    Pieces(Work const& work, std::int64_t count) : work_(work), count_(count), caller_(std::this_thread::get_id()) {}

    // What an executor runs.
    void help(int worker) {
        if (std::this_thread::get_id() == caller_ || !join()) {
            return;  // run at once by the caller, who has work of its own to do, or too late
        }
        struct Leaving {
            Pieces& pieces;
            ~Leaving() { pieces.leave(); }
        } const leaving{*this};
        try {
            run(worker);
        } catch (abi::__forced_unwind const&) {
            throw;
        } catch (...) {
            fail(std::current_exception());
        }
    }

    void run(int worker) {
        for (std::int64_t piece = next_++; piece < count_; piece = next_++) {
            work_(worker, piece);
        }
    }

    void fail(std::exception_ptr failure) noexcept {
        next_ = count_;
        std::lock_guard const lock(mutex_);
        failure_ = failure_ == nullptr ? std::move(failure) : failure_;
    }

    // Lets nobody else join, and waits for those who have.
    void close() noexcept {
        next_ = count_;
        CancellationHold const hold;
        std::unique_lock lock(mutex_);
        isClosed_ = true;
        changed_.wait(lock, [&] { return helpers_ == 0; });
    }

    void rethrow() const {
        if (failure_ != nullptr) {
            std::rethrow_exception(failure_);
        }
    }

  private:
    bool join() {
        std::lock_guard const lock(mutex_);
        helpers_ += isClosed_ ? 0 : 1;
        return !isClosed_;
    }
    void leave() {
        std::lock_guard const lock(mutex_);
        --helpers_;
        changed_.notify_all();
    }

    Work const& work_;
    std::int64_t count_;
    std::thread::id caller_;
    std::atomic<std::int64_t> next_ = 0;
    std::mutex mutex_;  // of all below
    std::condition_variable changed_;
    int helpers_ = 0;
    bool isClosed_ = false;
    std::exception_ptr failure_;
};

void startHelpers(TransferOptions const& options, int workers, std::shared_ptr<Pieces> const& pieces) {
    try {
        for (int worker = 1; worker < workers; ++worker) {
            options.executor([pieces, worker] { pieces->help(worker); });
        }
    } catch (std::exception const&) {
        // An executor that takes no more costs time and nothing else.
    }
}

}  // namespace

void forEachPiece(
    TransferOptions const& options, int workers, std::int64_t pieceCount,
    std::function<void(int, std::int64_t)> const& work) {
    auto const pieces = std::make_shared<Pieces>(work, pieceCount);
    struct Closing {
        Pieces& pieces;
        ~Closing() { pieces.close(); }
    };
    {
        Closing const closing{*pieces};
        if (options.executor) {
            startHelpers(options, static_cast<int>(std::min<std::int64_t>(workers, pieceCount)), pieces);
        }
        try {
            pieces->run(0);
        } catch (abi::__forced_unwind const&) {
            throw;
        } catch (...) {
            pieces->fail(std::current_exception());
        }
    }
    pieces->rethrow();
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
