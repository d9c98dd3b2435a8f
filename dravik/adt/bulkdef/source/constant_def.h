// SPDX-License-Identifier: Apache-2.0
#pragma once

// ConstantDef: a data set of one value. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/core/fixed_vector.h"

#include <string>

namespace Quorvel::Dravik::Adt::BulkDef::Source {

/// The same value in every sample: a mask, a hole, what pads a volume. Any size, any name and any number are kept as
/// given; numbers are compared bit by bit. Integers beyond 2^53 are rounded.
class DRAVIK_ADT_EXPORT ConstantDef : public SourceDef, public IPrintable {
  public:
    /// `sampleType` as sampleTypeNamed has it: "uint8", "float32".
    ConstantDef(FixedVector<4, int> const& size, std::string sampleType, double value);

    /// Samples along each axis.
    FixedVector<4, int> const& size() const noexcept { return size_; }
    std::string const& sampleType() const noexcept { return sampleType_; }
    double value() const noexcept { return value_; }

    /// `source` itself where it is constant, else null.
    static ConstantDef const* Cast(SourceDef const* source) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(SourceDef const& other) const override;
    std::unique_ptr<SourceDef> makeClone() const override;

  private:
    std::string sampleType_;  // first, so that an assignment that fails has changed nothing
    FixedVector<4, int> size_;
    double value_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Source
