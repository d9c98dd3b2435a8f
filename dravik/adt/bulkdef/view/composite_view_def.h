// SPDX-License-Identifier: Apache-2.0
#pragma once

// CompositeViewDef: composing, inverting and comparing views. Threads: any.

#include "dravik/adt/bulkdef/view_def.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// Makes views out of views. No object of it is needed.
class DRAVIK_ADT_EXPORT CompositeViewDef {
  public:
    /// The view that looks through `outer` at what `inner` shows of the target; it has the axes of the one that has
    /// more.
    ///
    /// Complete views fall away: the result is then a clone of the other one. Else it is a new subset where the axes
    /// keep their order, an exchange of axes where none is restricted, a map where both happens or an axis is left
    /// alone before a restricted one, and a new complete view where nothing does. View indices of `outer` that lead out
    /// of `inner` are dropped and the others numbered anew from 0 in their order, so a view composed with its inverse
    /// gives that view's own part of the target.
    ///
    /// @throws std::bad_cast if one is neither complete nor an array view
    static boost::shared_ptr<ViewDef const> compose(ViewDef const& inner, ViewDef const& outer);

    /// The view that reads the same relation the other way: a clone of a complete view, else ArrayViewDef::inverse().
    /// @throws std::bad_cast if `view` is neither complete nor an array view
    static boost::shared_ptr<ViewDef const> inverse(ViewDef const& view);

    /// The same, but an empty pointer and a complete view come back themselves.
    static boost::shared_ptr<ViewDef const> inverse(boost::shared_ptr<ViewDef const> const& view);

    /// What leads from `b` to `a`: a clone of `a` where `b` is complete, else the inverse of `b` where `a` is.
    /// @throws Exceptions::NotImplementedException where neither is
    /// @throws std::bad_cast as inverse() does
    static boost::shared_ptr<ViewDef const> difference(ViewDef const& a, ViewDef const& b);
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
