// SPDX-License-Identifier: Apache-2.0
#pragma once

// SourceEntityDef: the data set of a source. Threads: as every definition.

#include "dravik/adt/bulkdef/entity_def.h"
#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::Entity {

/// The data set that lies at a source. Holds a clone of the source; copies share it, clones hold their own.
class DRAVIK_ADT_EXPORT SourceEntityDef : public EntityDef, public IPrintable {
  public:
    explicit SourceEntityDef(SourceDef const& source);

    // Without moves: a definition that was moved from would hold nothing.
    SourceEntityDef(SourceEntityDef const&) = default;
    SourceEntityDef& operator=(SourceEntityDef const&) = default;

    SourceDef const& source() const noexcept { return *source_; }
    /// Never empty.
    boost::shared_ptr<SourceDef const> const& sourcePtr() const noexcept { return source_; }
    /// Holds a clone of `source` from now on.
    void setSource(SourceDef const& source);

    /// `entity` itself where it lies at a source, else null.
    static SourceEntityDef const* Cast(EntityDef const* entity) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(EntityDef const& other) const override;
    std::unique_ptr<EntityDef> makeClone() const override;

  private:
    boost::shared_ptr<SourceDef const> source_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Entity
