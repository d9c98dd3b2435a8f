// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/source/project_item_def.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/core/hasher.h"

#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef::Source {

std::string const& ProjectItemDef::ClassName = *new std::string("ProjectItemDef");
std::string const& ProjectItemDef::KestruneDataStoreType = *new std::string("Kestrune");
std::string const& ProjectItemDef::VellomarDataStoreType = *new std::string("Vellomar");

ProjectItemDef::ProjectItemDef(
    std::string datastoreType, std::string datastoreId, std::string parentId, std::string itemId)
    : ProjectItemDef(
          std::move(datastoreType), std::move(datastoreId), std::move(parentId), std::move(itemId), std::string(),
          std::string()) {}

ProjectItemDef::ProjectItemDef(
    std::string datastoreType, std::string datastoreId, std::string parentId, std::string itemId,
    std::string bulkScalar, std::string bulkOffset)
    : datastoreType_(std::move(datastoreType)),
      datastoreId_(std::move(datastoreId)),
      parentId_(std::move(parentId)),
      itemId_(std::move(itemId)),
      bulkScalar_(bulkScalar.empty() ? "1" : std::move(bulkScalar)),
      bulkOffset_(bulkOffset.empty() ? "0" : std::move(bulkOffset)) {}

ProjectItemDef const* ProjectItemDef::Cast(SourceDef const* source) noexcept {
    return dynamic_cast<ProjectItemDef const*>(source);
}

int ProjectItemDef::getHashCode() const {
    return Hasher(11)(itemId_)(parentId_)(datastoreId_)(datastoreType_);
}

void ProjectItemDef::print(std::ostream& out) const {
    using Detail::Quoted;
    out << "ProjectItemDef(" << Quoted{datastoreType_} << " store " << Quoted{datastoreId_} << ", parent "
        << Quoted{parentId_} << ", item " << Quoted{itemId_} << ", scalar " << Quoted{bulkScalar_} << ", offset "
        << Quoted{bulkOffset_} << ")";
}

bool ProjectItemDef::compare(SourceDef const& other) const {
    // The item first: it tells most items of a project apart.
    auto const* const item = Cast(&other);
    return item != nullptr && itemId_ == item->itemId_ && parentId_ == item->parentId_ &&
           datastoreId_ == item->datastoreId_ && datastoreType_ == item->datastoreType_;
}

std::unique_ptr<SourceDef> ProjectItemDef::makeClone() const {
    return std::make_unique<ProjectItemDef>(datastoreType_, datastoreId_, parentId_, itemId_, bulkScalar_, bulkOffset_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Source
