// SPDX-License-Identifier: Apache-2.0
#pragma once

// IController: bulk data as older callers know it, brick by brick. Threads: one caller at a time.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView::Old {

/// Lends the samples of numbered bricks of data of three axes.
///
/// Arguments without a name mean something to some controllers only. The numbers in both enumerations are agreed upon
/// between older callers and the controllers that they know.
class DRAVIK_ADT_EXPORT IController {
  public:
    /// How the caller wants the samples of a brick to lie in memory.
    enum MemoryModel : int {
        Addressed = 0,  ///< each sample at the address that `buffer` gives for it
    };
    /// What a controller can do, one bit each.
    enum FeatureMask : int {};

    IController(IController const&) = delete;
    IController& operator=(IController const&) = delete;
    virtual ~IController();

    /// The memory of brick number `brick`, null when there is none.
    virtual void* buffer(int, MemoryModel model, void*, int brick, AdtEnums::Access access) = 0;
    /// Bytes per sample.
    virtual int vtsize() = 0;
    /// Samples along `axis`.
    virtual int size(int axis) = 0;
    /// The number of the brick that holds a sample.
    virtual int brick(int, int x, int y, int z) = 0;
    /// Where in its brick a sample lies, in bytes.
    virtual int offset(int, int x, int y, int z) = 0;
    /// To be called before the first brick is asked for.
    virtual int open() = 0;
    virtual void close(int) = 0;
    virtual void flush(int, void*) = 0;
    virtual FeatureMask features() = 0;
    virtual void setHint(int, int, int, int, int) = 0;
    /// A buffer and nine numbers that describe it, for controllers that lend samples in a row.
    virtual void bufferAndLinearInfo(
        int, MemoryModel model, void*, int, int, int, AdtEnums::Access access, void*& buffer, int& info1, int& info2,
        int& info3, int& info4, int& info5, int& info6, int& info7, int& info8, int& info9) = 0;

  protected:
    IController() = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Old
