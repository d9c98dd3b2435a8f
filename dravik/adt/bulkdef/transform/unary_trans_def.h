// SPDX-License-Identifier: Apache-2.0
#pragma once

// UnaryTransDef: root of the transforms that make one data set out of one. Threads: as every definition.

#include "dravik/adt/bulkdef/transform_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// A transform with one input and one output.
class DRAVIK_ADT_EXPORT UnaryTransDef : public TransformDef {
  public:
    UnaryTransDef(UnaryTransDef const&) = default;
    UnaryTransDef& operator=(UnaryTransDef const&) = default;

    /// `transform` itself where it is unary, else null.
    static UnaryTransDef const* Cast(TransformDef const* transform) noexcept;

    /// 1, both.
    unsigned int numInputs() const override;
    unsigned int numOutputs() const override;

  protected:
    UnaryTransDef() = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
