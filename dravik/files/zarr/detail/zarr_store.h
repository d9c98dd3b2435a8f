// SPDX-License-Identifier: Apache-2.0
#pragma once

// The store over the chunks of one array. Threads: any.

#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/files/zarr/detail/array_metadata.h"

#include <filesystem>
#include <memory>

namespace Quorvel::Dravik::Files::Detail {

std::shared_ptr<Adt::BulkView::IBrickStore> makeZarrStore(
    std::filesystem::path folder, ArrayMetadata const& array, bool writable);

}  // namespace Quorvel::Dravik::Files::Detail
