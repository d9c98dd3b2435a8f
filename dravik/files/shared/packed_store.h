// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stores over numbers that are packed by a scale, an offset and marks of what is missing. Threads: any, if those of the
// numbers may be used by any.

#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/adt/export.h"

#include <algorithm>
#include <memory>
#include <typeinfo>
#include <vector>

namespace Quorvel::Dravik::Files {

/// How stored numbers become samples.
struct Packing {
    double scale = 1;
    double offset = 0;
    std::vector<double> missing;  ///< stored numbers that mean "missing"; the first is written for not-a-number

    bool isScaled() const noexcept { return scale != 1 || offset != 0; }
    bool isPlain() const noexcept { return !isScaled() && missing.empty(); }
    bool isMissing(double stored) const noexcept {
        return std::find(missing.begin(), missing.end(), stored) != missing.end();
    }
};

/// Numbers as a file stores them, in this machine's byte order.
class DRAVIK_ADT_EXPORT StoredNumbers {
  public:
    virtual ~StoredNumbers();
    virtual void read(Adt::OpenEndedRange<4, int> const& box, void* numbers) const = 0;
    virtual void write(Adt::OpenEndedRange<4, int> const& box, void const* numbers) = 0;
    virtual void flush() = 0;
    virtual bool servesParts() const = 0;

    // Steps as in IBrickStore: not served here.

    virtual bool servesSteps() const;
    virtual void readSteps(Adt::ExtentK<4, int> const& region, void* numbers) const;
    /// False if every sample of `box` is missing; true here.
    virtual bool hasSamples(Adt::OpenEndedRange<4, int> const& box) const;

  protected:
    StoredNumbers() = default;
    StoredNumbers(StoredNumbers const&) = delete;
    StoredNumbers& operator=(StoredNumbers const&) = delete;
};

/// A store that shows `numbers` of type `stored` unpacked: as float, or as double where they are doubles or integers
/// of 32 bits and more, and missing ones as not-a-number; as they are where the packing is plain. The sample type of
/// `traits` is set.
/// @throws std::invalid_argument for another type than int8 to int64, uint8 to uint32, float and double
DRAVIK_ADT_EXPORT std::shared_ptr<Adt::BulkView::IBrickStore> makePackedStore(
    std::unique_ptr<StoredNumbers> numbers, std::type_info const& stored, Adt::FixedVector<4, int> const& size,
    Adt::BulkView::AccessTraits const& traits, Packing const& packing);

}  // namespace Quorvel::Dravik::Files
