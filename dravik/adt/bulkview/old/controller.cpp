// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/old/controller.h"

namespace Quorvel::Dravik::Adt::BulkView::Old {

IController::~IController() = default;

}  // namespace Quorvel::Dravik::Adt::BulkView::Old
