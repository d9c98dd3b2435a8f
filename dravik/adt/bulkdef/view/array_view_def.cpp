// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/array_view_def.h"

#include "dravik/adt/bulkdef/view/inverse_array_view_def.h"

#include <boost/smart_ptr/make_shared.hpp>

namespace Quorvel::Dravik::Adt::BulkDef::View {

ArrayViewDef const* ArrayViewDef::Cast(ViewDef const* view) noexcept {
    return dynamic_cast<ArrayViewDef const*>(view);
}

boost::shared_ptr<ArrayViewDef const> ArrayViewDef::Cast(boost::shared_ptr<ViewDef const> const& view) noexcept {
    return boost::dynamic_pointer_cast<ArrayViewDef const>(view);
}

boost::shared_ptr<ArrayViewDef> ArrayViewDef::clone() const {
    return boost::static_pointer_cast<ArrayViewDef>(ViewDef::clone());
}

boost::shared_ptr<ArrayViewDef const> ArrayViewDef::inverse() const {
    if (auto const* const inverted = dynamic_cast<InverseArrayViewDef const*>(this)) {
        return inverted->viewPtr();
    }
    return boost::make_shared<InverseArrayViewDef const>(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
