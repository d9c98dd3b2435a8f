// SPDX-License-Identifier: Apache-2.0
#pragma once

// CancellationHeldOff: a scope in which this thread is not cancelled.

#include <pthread.h>

namespace Quorvel::Dravik::Adt::Platform {

/// Holds off cancellation of the calling thread; what arrives meanwhile takes effect after the scope. For destructors,
/// which cancellation cannot leave.
class CancellationHeldOff {
  public:
    CancellationHeldOff() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_); }
    CancellationHeldOff(CancellationHeldOff const&) = delete;
    CancellationHeldOff& operator=(CancellationHeldOff const&) = delete;
    ~CancellationHeldOff() { pthread_setcancelstate(former_, nullptr); }

  private:
    int former_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace Quorvel::Dravik::Adt::Platform
