// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/views/view_exceptions.h"

#include "dravik/adt/bulkview/buffer_accessor.h"

#include <boost/make_shared.hpp>

#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView {

ViewException::ViewException(char const* text) : ViewException(std::string(text)) {}

ViewException::ViewException(std::string const& text) : CloneableExceptionBase("[Adt::BulkView] " + text) {}

std::string ViewException::getIndexStr(FixedVector<4, int> const& index, int ndims) {
    std::string text = "(";
    for (int axis = 0; axis < ndims; ++axis) {
        text += std::to_string(index[axis]);
        text += axis + 1 < ndims ? ',' : ')';
    }
    return text;
}

ICloneableException::ConstPtr ViewException::clone() const {
    return boost::make_shared<ViewException>(*this);
}

void ViewException::throwClone() const {
    throw ViewException(*this);
}

ViewBoundsException::ViewBoundsException(
    FixedVector<4, int> const& index, FixedVector<4, int> const& bounds, int ndims, AdtEnums::Access access)
    : ViewException(
          std::string("Index out of bounds. Attempt to ") + (AdtEnums::isWriteAccess(access) ? "set" : "access") +
          " value outside the view: " + getIndexStr(index, ndims) + " bounds: " + getIndexStr(bounds, ndims)),
      index_(index),
      access_(access) {}

ICloneableException::ConstPtr ViewBoundsException::clone() const {
    return boost::make_shared<ViewBoundsException>(*this);
}

void ViewBoundsException::throwClone() const {
    throw ViewBoundsException(*this);
}

ViewAccessorException::ViewAccessorException(IBufferAccessor const& accessor, std::string const& text)
    : ViewException(getAccessorStr(accessor) + text) {}

ViewAccessorException::ViewAccessorException(
    IBufferAccessor const& accessor, std::string const& text, FixedVector<4, int> const& index)
    : ViewException(getAccessorStr(accessor) + text + getIndexStr(index, 4)) {}

std::string ViewAccessorException::getAccessorStr(IBufferAccessor const& accessor) {
    return std::string("[").append(getTypeName(typeid(accessor))).append("] ");
}

ICloneableException::ConstPtr ViewAccessorException::clone() const {
    return boost::make_shared<ViewAccessorException>(*this);
}

void ViewAccessorException::throwClone() const {
    throw ViewAccessorException(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkView
