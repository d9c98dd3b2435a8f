// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/complete_view_def.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::View {

boost::shared_ptr<CompleteViewDef const> const& CompleteViewDef::Instance() {
    // Never destroyed, so that whatever runs at the very end of the process still finds it.
    static auto const& instance =
        *new boost::shared_ptr<CompleteViewDef const>(boost::make_shared<CompleteViewDef const>());
    return instance;
}

CompleteViewDef const* CompleteViewDef::Cast(ViewDef const* view) noexcept {
    return dynamic_cast<CompleteViewDef const*>(view);
}

int CompleteViewDef::getHashCode() const {
    return 27;
}

void CompleteViewDef::print(std::ostream& out) const {
    out << "CompleteViewDef";
}

bool CompleteViewDef::compare(ViewDef const& other) const {
    return Cast(&other) != nullptr;
}

std::unique_ptr<ViewDef> CompleteViewDef::makeClone() const {
    return std::make_unique<CompleteViewDef>();
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
