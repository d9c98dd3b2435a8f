// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/inverse_array_view_def.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::View {

using Inverse = ArrayViewDef::InverseArrayViewDef;

Inverse::InverseArrayViewDef(ArrayViewDef const& view) : view_(view.clone()) {}

AxisExtent Inverse::viewToTargetAxisExtent(AxisExtent const& viewAxis) const {
    return view_->targetToViewAxisExtent(viewAxis);
}

AxisExtent Inverse::targetToViewAxisExtent(AxisExtent const& targetAxis) const {
    return view_->viewToTargetAxisExtent(targetAxis);
}

int Inverse::getHashCode() const {
    return view_->getHashCode();
}

void Inverse::print(std::ostream& out) const {
    out << "InverseArrayViewDef(" << *view_ << ")";
}

bool Inverse::compare(ViewDef const& other) const {
    auto const* const inverse = dynamic_cast<InverseArrayViewDef const*>(&other);
    return inverse != nullptr && view_->equals(*inverse->view_);
}

std::unique_ptr<ViewDef> Inverse::makeClone() const {
    return std::make_unique<InverseArrayViewDef>(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
