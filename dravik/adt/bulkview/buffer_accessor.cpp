// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/buffer_accessor.h"

namespace Quorvel::Dravik::Adt::BulkView {

IBufferAccessor::~IBufferAccessor() = default;
IBufferAccessor::IClient::~IClient() = default;

}  // namespace Quorvel::Dravik::Adt::BulkView
