// SPDX-License-Identifier: Apache-2.0
#pragma once

// MissingValueDef: which samples of a data set mean "missing". Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// The same samples, but not-a-number in place of those from `lowest` to `highest`. Any numbers are kept as given, and
/// compared bit by bit.
///
///     MissingValueDef const holes(-1e34);
class DRAVIK_ADT_EXPORT MissingValueDef : public UnaryTransDef, public IPrintable {
  public:
    explicit MissingValueDef(double value) noexcept : MissingValueDef(value, value) {}
    MissingValueDef(double lowest, double highest) noexcept : lowest_(lowest), highest_(highest) {}

    double lowest() const noexcept { return lowest_; }
    double highest() const noexcept { return highest_; }

    /// `transform` itself where it tells missing values, else null.
    static MissingValueDef const* Cast(TransformDef const* transform) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(TransformDef const& other) const override;
    std::unique_ptr<TransformDef> makeClone() const override;

  private:
    double lowest_;
    double highest_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
