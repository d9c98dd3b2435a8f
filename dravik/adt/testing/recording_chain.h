// SPDX-License-Identifier: Apache-2.0
#pragma once

// Accessors and clients that write down, in one journal, what is asked of them: for scripts that check who hears what
// and in which order. Threads: as std::vector.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/testing/live_objects.h"

#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// What happened so far, one line an event; shared by the parts of a script and alive as long as one of them.
class Journal {
  public:
    template <class... Parts>
    void note(Parts const&... parts) const {
        std::ostringstream line;
        (line << ... << parts);
        lines_->push_back(line.str());
    }

    /// The events since the last call.
    std::vector<std::string> take() const { return std::exchange(*lines_, {}); }

  private:
    std::shared_ptr<std::vector<std::string>> lines_ = std::make_shared<std::vector<std::string>>();
};

/// Lends blocks without memory, [0, size) unless told otherwise, and writes every call down under its name. A clone has
/// the name with a prime.
class RecordingAccessor : public BulkView::IBufferAccessor, Counted<kAccessor> {
  public:
    RecordingAccessor(std::string name, Journal journal, FixedVector<4, int> size = {1, 1, 1, 1})
        : name_(std::move(name)),
          journal_(std::move(journal)),
          size_(size),
          block_{OpenEndedRange<4, int>::OfSize(size), {}, 0} {}
    ~RecordingAccessor() override { journal_.note("~", name_); }

    FixedVector<4, int> getSize() override {
        journal_.note(name_, ".getSize");
        return size_;
    }
    void setClient(IClient* client) override {
        client_ = client;
        journal_.note(name_, ".setClient(", client == nullptr ? "null" : "client", ")");
    }
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override {
        journal_.note(name_, ".setHint(", int{type}, " ", range, " ", weight, ")");
    }
    void getBuffer(
        FixedVector<4, int> position, BulkView::AdtEnums::Access access, BulkView::BufferHandle& handle) override {
        journal_.note(name_, ".getBuffer(", position, " ", int{access}, ")");
        handle.update(nullptr, block_, access);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override {
        journal_.note(name_, ".createClone");
        auto clone = std::make_unique<RecordingAccessor>(name_ + "'", journal_, size_);
        clone->block_ = block_;
        return clone;
    }
    void dispose(bool flag) override { journal_.note(name_, ".dispose(", flag, ")"); }

    /// The block that every request is answered with.
    void setBlock(BulkView::BufferHandle::ArrayInfo const& block) { block_ = block; }
    /// The registered client, null without one.
    IClient* client() const { return client_; }

  private:
    std::string name_;
    Journal journal_;
    FixedVector<4, int> size_;
    BulkView::BufferHandle::ArrayInfo block_;
    IClient* client_ = nullptr;
};

/// Writes every notification down under its name, and gives up the chain that it was given.
class RecordingClient : public BulkView::IBufferAccessor::IClient, Counted<kClient> {
  public:
    RecordingClient(std::string name, Journal journal) : name_(std::move(name)), journal_(std::move(journal)) {}

    void accessorUpdated() override { journal_.note(name_, ".accessorUpdated"); }
    void bufferInvalidated(BulkView::BufferHandle::Owner const* owner) override {
        journal_.note(name_, ".bufferInvalidated(", owner == nullptr ? "null" : "owner", ")");
    }
    bool prepareBufferRelease(void const* buffer, int& value) override {
        journal_.note(name_, ".prepareBufferRelease(", buffer == nullptr ? "null" : "buffer", " ", value, ")");
        value += 1;
        return true;
    }
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BulkView::BufferHandle::Owner> owner) override {
        journal_.note(
            name_, ".releaseBuffer(", buffer == nullptr ? "null" : "buffer", " ", owner == nullptr ? "null" : "owner",
            ")");
    }
    std::unique_ptr<BulkView::IBufferAccessor> releaseAccessor() override {
        journal_.note(name_, ".releaseAccessor");
        return std::move(chain);
    }

    /// What releaseAccessor gives up.
    std::unique_ptr<BulkView::IBufferAccessor> chain;

  private:
    std::string name_;
    Journal journal_;
};

}  // namespace Quorvel::Dravik::Adt::Testing
