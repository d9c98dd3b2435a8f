// SPDX-License-Identifier: Apache-2.0
#pragma once

// LoanClient: one handle, and the client that clears it when the block is taken back. Threads: the one of the chain;
// notifications from any.

#include "dravik/adt/bulkview/buffer_accessor.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// The client of a chain while a call works on it.
class LoanClient final : public IBufferAccessor::IClient {
  public:
    /// Registers `client` at `accessor`; none is registered afterwards.
    class Attachment {
      public:
        Attachment(IBufferAccessor& accessor, LoanClient& client) : accessor_(accessor), client_(client) {
            accessor.setClient(&client);
        }
        Attachment(Attachment const&) = delete;
        Attachment& operator=(Attachment const&) = delete;
        ~Attachment() {
            try {
                // An owner may need the chain that lent it: first the block, then the chain.
                client_.handle.reset(/*releaseOwner=*/true);
                accessor_.setClient(nullptr);
            } catch (std::exception const&) {
                // What ended the call is told; there is no room for a second failure.
            }
        }

      private:
        IBufferAccessor& accessor_;
        LoanClient& client_;
    };

    void accessorUpdated() override { handle.invalidate(/*emptyRange=*/true); }
    void bufferInvalidated(BufferHandle::Owner const* owner) override {
        if (owner == handle.owner()) {
            handle.invalidate(/*emptyRange=*/true);
        }
    }
    bool prepareBufferRelease(void const* buffer, int& value) override {
        if (buffer != handle.buffer()) {
            return false;
        }
        value = std::max(value, 10000);
        handle.invalidate(/*emptyRange=*/true);
        return true;
    }
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override {
        handle.tryThreadSafeReset(buffer, std::move(owner));
    }
    std::unique_ptr<IBufferAccessor> releaseAccessor() override { return nullptr; }

    BufferHandle handle;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
