// SPDX-License-Identifier: Apache-2.0
#pragma once

// Session: what one run of the program works with: memory, threads, progress, and the wish to stop. Threads: one.

#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/bulkview/stores/openers.h"

#include <cstdint>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Command {

struct Resources {
    std::int64_t memory = std::int64_t{256} << 20;  ///< bytes that samples may take, all together
    int threads = 1;
    bool verbose = false;
};

/// What the chains of a session were asked for; counted on any thread.
struct Traffic;

class Session {
  public:
    Session(Resources const& resources, std::stop_token stop);
    Session(Session const&) = delete;
    Session& operator=(Session const&) = delete;
    ~Session();

    /// With a pool of a quarter of the memory.
    Adt::BulkView::Openers const& openers() const noexcept { return openers_; }
    Resources const& resources() const noexcept { return resources_; }

    /// For one transfer of which a terminal is shown `what` and how far it is.
    Adt::BulkView::TransferOptions transfer(std::string const& what);

    /// The same chain, counted where the user wants to know.
    std::unique_ptr<Adt::BulkView::IBufferAccessor> counted(
        std::unique_ptr<Adt::BulkView::IBufferAccessor> chain) const;

    /// Tells on standard error what was asked for and what the pool did, where the user wants to know.
    void report() const;

    /// @throws Exceptions::CancelledException once the user wants to stop
    void throwIfStopped() const;

  private:
    Resources resources_;
    std::stop_token stop_;
    Adt::BulkView::Openers openers_;
    std::shared_ptr<Traffic> traffic_;
    std::vector<std::jthread> threads_;
};

}  // namespace Quorvel::Dravik::Command
