// SPDX-License-Identifier: Apache-2.0
#pragma once

// IWriteBack: what an owner can do that keeps written samples back. Threads: as the chain that made the owner.

#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView {

/// Optional interface of a BufferHandle::Owner, found by dynamic_cast: carries down what was written through the
/// handle, and reports failures, where the owner's destructor would have to drop them.
class DRAVIK_ADT_EXPORT IWriteBack {
  public:
    /// Does nothing where nothing is pending. After a failure it can be called again.
    /// @throws what carrying down throws, with the samples still pending
    virtual void writeBack() = 0;

  protected:
    IWriteBack() = default;
    IWriteBack(IWriteBack const&) = default;
    IWriteBack& operator=(IWriteBack const&) = default;
    virtual ~IWriteBack() = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
