// SPDX-License-Identifier: Apache-2.0
#pragma once

// ProjectItemDef: a data set in a project's datastore. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"

#include <string>

namespace Quorvel::Dravik::Adt::BulkDef::Source {

/// One item of a datastore, by the store, the item's parent and the item itself, with a scale and an offset for its
/// samples. Six texts that mean nothing here.
///
/// The first four say which item it is; scale and offset take no part in equality and hash. toString() throws.
class DRAVIK_ADT_EXPORT ProjectItemDef : public SourceDef, public IPrintable {
  public:
    /// "ProjectItemDef"
    static std::string const& ClassName;

    /// "Kestrune" and "Vellomar", two kinds of datastores; any other text names another kind.
    static std::string const& KestruneDataStoreType;
    static std::string const& VellomarDataStoreType;

    /// An item whose samples are taken as they are: scale "1", offset "0".
    ProjectItemDef(std::string datastoreType, std::string datastoreId, std::string parentId, std::string itemId);

    /// An empty scale stands for "1", an empty offset for "0".
    ProjectItemDef(
        std::string datastoreType, std::string datastoreId, std::string parentId, std::string itemId,
        std::string bulkScalar, std::string bulkOffset);

    ProjectItemDef(ProjectItemDef const&) = default;
    ProjectItemDef(ProjectItemDef&&) = default;
    /// All six texts at once or, on failure, none of them.
    ProjectItemDef& operator=(ProjectItemDef const& other) { return *this = ProjectItemDef(other); }
    ProjectItemDef& operator=(ProjectItemDef&&) noexcept = default;

    std::string const& datastoreType() const noexcept { return datastoreType_; }
    std::string& datastoreType() noexcept { return datastoreType_; }
    std::string const& datastoreId() const noexcept { return datastoreId_; }
    std::string& datastoreId() noexcept { return datastoreId_; }
    std::string const& parentId() const noexcept { return parentId_; }
    std::string& parentId() noexcept { return parentId_; }
    std::string const& itemId() const noexcept { return itemId_; }
    std::string& itemId() noexcept { return itemId_; }
    std::string const& bulkScalar() const noexcept { return bulkScalar_; }
    std::string& bulkScalar() noexcept { return bulkScalar_; }
    std::string const& bulkOffset() const noexcept { return bulkOffset_; }
    std::string& bulkOffset() noexcept { return bulkOffset_; }

    /// `source` itself where it is a project item, else null.
    static ProjectItemDef const* Cast(SourceDef const* source) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(SourceDef const& other) const override;
    /// Made anew from the six texts, so a scale or an offset that was emptied meanwhile is "1" or "0" in the clone.
    std::unique_ptr<SourceDef> makeClone() const override;

  private:
    std::string datastoreType_;
    std::string datastoreId_;
    std::string parentId_;
    std::string itemId_;
    std::string bulkScalar_;
    std::string bulkOffset_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Source
