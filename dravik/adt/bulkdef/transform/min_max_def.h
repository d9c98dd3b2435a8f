// SPDX-License-Identifier: Apache-2.0
#pragma once

// MinMaxDef: the least and the greatest sample of every bin. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"
#include "dravik/adt/core/fixed_vector.h"

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// Minima and maxima over bins of three axes. Unit of the bin size: samples; any numbers are kept as given.
class DRAVIK_ADT_EXPORT MinMaxDef : public UnaryTransDef, public IPrintable {
  public:
    explicit MinMaxDef(FixedVector<3, int> binSize);

    FixedVector<3, int> getBinSize() const noexcept { return binSize_; }

    /// `transform` itself where it is a binning, else null.
    static MinMaxDef const* Cast(TransformDef const* transform) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(TransformDef const& other) const override;
    std::unique_ptr<TransformDef> makeClone() const override;

  private:
    FixedVector<3, int> binSize_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
