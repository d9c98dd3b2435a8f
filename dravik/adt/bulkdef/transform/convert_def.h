// SPDX-License-Identifier: Apache-2.0
#pragma once

// ConvertDef: a data set in another sample type. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"

#include <string>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// Every sample x as scale * x + offset, rounded and saturated to a sample type. Any name and any numbers are kept as
/// given; numbers are compared bit by bit.
class DRAVIK_ADT_EXPORT ConvertDef : public UnaryTransDef, public IPrintable {
  public:
    /// `sampleType` as sampleTypeNamed has it: "uint8", "float32".
    explicit ConvertDef(std::string sampleType, double scale = 1, double offset = 0);

    std::string const& sampleType() const noexcept { return sampleType_; }
    double scale() const noexcept { return scale_; }
    double offset() const noexcept { return offset_; }

    /// `transform` itself where it converts, else null.
    static ConvertDef const* Cast(TransformDef const* transform) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(TransformDef const& other) const override;
    std::unique_ptr<TransformDef> makeClone() const override;

  private:
    std::string sampleType_;  // first, so that an assignment that fails has changed nothing
    double scale_;
    double offset_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
