// SPDX-License-Identifier: Apache-2.0
#pragma once

// ConcatDef: data sets joined along an axis. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// Inputs one behind the other along an axis, as large as each other on every other axis. A stack of grids is a join
/// along an axis on which each of them has size 1. Any axis is kept as given.
class DRAVIK_ADT_EXPORT ConcatDef : public TransformDef, public IPrintable {
  public:
    ConcatDef(unsigned int numInputs, int axis) noexcept : numInputs_(numInputs), axis_(axis) {}

    unsigned int numInputs() const override { return numInputs_; }
    unsigned int numOutputs() const override { return 1; }
    int axis() const noexcept { return axis_; }

    /// `transform` itself where it joins, else null.
    static ConcatDef const* Cast(TransformDef const* transform) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(TransformDef const& other) const override;
    std::unique_ptr<TransformDef> makeClone() const override;

  private:
    unsigned int numInputs_;
    int axis_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
