// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

UnaryTransDef const* UnaryTransDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<UnaryTransDef const*>(transform);
}

unsigned int UnaryTransDef::numInputs() const {
    return 1;
}

unsigned int UnaryTransDef::numOutputs() const {
    return 1;
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
