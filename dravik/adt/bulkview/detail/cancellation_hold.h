// SPDX-License-Identifier: Apache-2.0
#pragma once

// CancellationHold: keeps a request to cancel this thread waiting. Threads: one.

#include <pthread.h>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// While it lives, the thread is not cancelled: for destructors that call foreign code, out of which a cancellation
/// would end the process.
class CancellationHold {
  public:
    CancellationHold() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancellationHold(CancellationHold const&) = delete;
    CancellationHold& operator=(CancellationHold const&) = delete;
    ~CancellationHold() { pthread_setcancelstate(before_, nullptr); }

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
