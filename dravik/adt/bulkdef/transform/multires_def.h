// SPDX-License-Identifier: Apache-2.0
#pragma once

// MultiresDef: ever coarser levels of a data set. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"

#include <string>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

/// Levels of which each is coarser than the one before by `factor`, made by the method `name`.
///
/// The method takes no part in equality and hash: levels of one factor are interchangeable. Any factor and any name are
/// kept as given.
class DRAVIK_ADT_EXPORT MultiresDef : public UnaryTransDef, public IPrintable {
  public:
    /// Names of methods, each its own text.
    static std::string const& BasicAverage;
    static std::string const& FirstValid;
    static std::string const& Decimation;

    MultiresDef(int factor, std::string name);

    int getFactor() const noexcept { return factor_; }
    std::string getName() const { return name_; }

    /// `transform` itself where it makes levels, else null.
    static MultiresDef const* Cast(TransformDef const* transform) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(TransformDef const& other) const override;
    std::unique_ptr<TransformDef> makeClone() const override;

  private:
    std::string name_;  // first, so that an assignment that fails has changed nothing
    int factor_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
