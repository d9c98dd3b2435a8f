// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/views/view_base.h"

#include "dravik/adt/bulkview/detail/clone_of.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/views/view_exceptions.h"
#include "dravik/adt/platform/type_name.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

ViewBase::~ViewBase() = default;

namespace {

// `char` is signed here whatever the platform says.
bool isSameSample(std::type_info const& left, std::type_info const& right) {
    auto const isChar = [](std::type_info const& type) { return type == typeid(char) || type == typeid(signed char); };
    return left == right || (isChar(left) && isChar(right));
}

}  // namespace

void ViewBase::expectSamples(IBufferAccessor& accessor, std::type_info const& type, int bitSize) {
    AccessTraits const traits = traitsOf(accessor);
    bool const isKnown = *traits.sampleType != typeid(void);
    bool const fits = !isKnown || (isSameSample(*traits.sampleType, type) && traits.bitSize == bitSize);
    if (!fits) {
        throw std::invalid_argument(
            "[BulkView::ViewBase::init] The accessor's samples are " + Platform::readableTypeName(*traits.sampleType) +
            " of " + std::to_string(traits.bitSize) + " bits, the view's " + Platform::readableTypeName(type) + " of " +
            std::to_string(bitSize) + ".");
    }
}

void ViewBase::init(std::unique_ptr<IBufferAccessor> accessor) {
    if (accessor == nullptr) {
        throw std::invalid_argument("[BulkView::ViewBase::init] Accessor is null.");
    }
    install(std::move(accessor));
}

void ViewBase::install(std::unique_ptr<IBufferAccessor> accessor) {
    if (accessor == accessor_) {
        // Two owners of one accessor: the argument's must not destroy it.
        static_cast<void>(accessor.release());
    } else {
        accessor_ = std::move(accessor);
    }
    accessor_->setClient(this);
}

void ViewBase::dispose() {
    accessor_.reset();
}

ViewBase& ViewBase::operator=(ViewBase const& other) {
    if (this == &other) {
        return *this;
    }
    if (other.isNull()) {
        accessor_.reset();
    } else {
        install(Detail::cloneOf(*other.accessor_));
    }
    return *this;
}

void ViewBase::takeAccessor(ViewBase& other) noexcept {
    accessor_ = std::move(other.accessor_);
    if (accessor_ == nullptr) {
        return;
    }
    try {
        accessor_->setClient(this);
    } catch (...) {
        accessor_.reset();
    }
}

bool ViewBase::chainMayBeWritten() const {
    AccessTraits const traits = traitsOf(accessor());
    return traits.writable || *traits.sampleType == typeid(void);
}

void ViewBase::throwUninitialized() {
    throw ViewException("Attempt to use an uninitialized or disposed view.");
}

std::unique_ptr<IBufferAccessor> ViewBase::releaseAccessor() {
    dispose();
    return std::move(accessor_);
}

}  // namespace Quorvel::Dravik::Adt::BulkView
