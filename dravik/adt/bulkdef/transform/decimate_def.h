// SPDX-License-Identifier: Apache-2.0
#pragma once

// DecimateDef: every so many-th sample of a data set. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"
#include "dravik/adt/core/fixed_vector.h"

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// On each of four axes, every `decimation`-th index from `offset` on. Unit: indices; any numbers are kept as given.
class DRAVIK_ADT_EXPORT DecimateDef : public UnaryTransDef, public IPrintable {
  public:
    DecimateDef(FixedVector<4, int> const& decimation, FixedVector<4, int> const& offset);

    FixedVector<4, int> const& getDecimation() const noexcept { return decimation_; }
    FixedVector<4, int> const& getOffset() const noexcept { return offset_; }

    /// `transform` itself where it is a decimation, else null.
    static DecimateDef const* Cast(TransformDef const* transform) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(TransformDef const& other) const override;
    std::unique_ptr<TransformDef> makeClone() const override;

  private:
    FixedVector<4, int> decimation_;
    FixedVector<4, int> offset_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
