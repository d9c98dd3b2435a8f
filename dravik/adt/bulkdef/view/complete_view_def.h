// SPDX-License-Identifier: Apache-2.0
#pragma once

// CompleteViewDef: the whole target, unchanged. Threads: as every definition; Instance() from any of them.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/view_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// The view of a whole target, whatever its size: view indices are target indices on every axis. All are equal.
class DRAVIK_ADT_EXPORT CompleteViewDef : public ViewDef, public IPrintable {
  public:
    /// The one to share, made on the first call and kept until the process ends.
    static boost::shared_ptr<CompleteViewDef const> const& Instance();

    /// `view` itself where it is a complete view, else null.
    static CompleteViewDef const* Cast(ViewDef const* view) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(ViewDef const& other) const override;
    std::unique_ptr<ViewDef> makeClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
