// SPDX-License-Identifier: Apache-2.0
#pragma once

// What typed views throw: ViewException for misuse, ViewBoundsException for an index outside, ViewAccessorException for
// a failure of one accessor. Threads: as std::string.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/exceptions/cloneable_exception_base.h"
#include "dravik/adt/export.h"

#include <string>

namespace Quorvel::Dravik::Adt::BulkView {

class IBufferAccessor;

/// Any failure of a view. Message: "[Adt::BulkView] text".
class DRAVIK_ADT_EXPORT ViewException : public Exceptions::CloneableExceptionBase {
  public:
    explicit ViewException(char const* text);
    explicit ViewException(std::string const& text);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;

  protected:
    /// The first `ndims` components as "(1,2,3)"; for 0 or less "(" alone.
    /// @throws std::invalid_argument as FixedVector's index does for more than 4
    static std::string getIndexStr(FixedVector<4, int> const& index, int ndims);
};

/// An index outside the view. Message: "[Adt::BulkView] Index out of bounds. Attempt to access value outside the view:
/// (4,0,0) bounds: (4,5,6)", or "set" in place of "access" where writing was attempted.
class DRAVIK_ADT_EXPORT ViewBoundsException : public ViewException {
  public:
    /// `bounds` is the size of the view; of both, the first `ndims` components stand in the message.
    ViewBoundsException(
        FixedVector<4, int> const& index, FixedVector<4, int> const& bounds, int ndims, AdtEnums::Access access);

    /// The index asked for, 0 on axes that the view does not have.
    FixedVector<4, int> const& index() const noexcept { return index_; }
    AdtEnums::Access access() const noexcept { return access_; }

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;

  private:
    FixedVector<4, int> index_;
    AdtEnums::Access access_;
};

/// A failure of one accessor. Message: "[Adt::BulkView] [readable name of its class] text", with the index after the
/// text where one is given.
class DRAVIK_ADT_EXPORT ViewAccessorException : public ViewException {
  public:
    ViewAccessorException(IBufferAccessor const& accessor, std::string const& text);
    ViewAccessorException(IBufferAccessor const& accessor, std::string const& text, FixedVector<4, int> const& index);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;

  private:
    static std::string getAccessorStr(IBufferAccessor const& accessor);
};

}  // namespace Quorvel::Dravik::Adt::BulkView
