// SPDX-License-Identifier: Apache-2.0
#pragma once

// CacheDef: a data set of which blocks are kept in memory. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// The same samples, of which up to `sampleBudget` are kept at hand in the blocks that they came in.
class DRAVIK_ADT_EXPORT CacheDef : public UnaryTransDef, public IPrintable {
  public:
    explicit CacheDef(int sampleBudget) noexcept : sampleBudget_(sampleBudget) {}

    int sampleBudget() const noexcept { return sampleBudget_; }

    /// `transform` itself where it caches, else null.
    static CacheDef const* Cast(TransformDef const* transform) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(TransformDef const& other) const override;
    std::unique_ptr<TransformDef> makeClone() const override;

  private:
    int sampleBudget_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
