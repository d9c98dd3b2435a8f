// SPDX-License-Identifier: Apache-2.0
#pragma once

// ArrayViewDef: a view that maps regular samplings of indices, one axis at a time, both ways. Threads: as every
// definition.

#include "dravik/adt/bulkdef/view_def.h"
#include "dravik/adt/core/extent.h"

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// A view whose indices and those of its target are tied together axis by axis.
///
/// Both directions map an axis extent: an axis number from 0 and the indices along that axis. Unit: absolute indices.
/// An axis number that is not below the view's own number of axes, compared as unsigned, comes back unchanged.
class DRAVIK_ADT_EXPORT ArrayViewDef : public ViewDef {
  public:
    class InverseArrayViewDef;

    /// `view` itself where it is an array view, else null or empty; the second shares ownership. A bare `nullptr` fits
    /// both, so its type has to be written.
    static ArrayViewDef const* Cast(ViewDef const* view) noexcept;
    static boost::shared_ptr<ArrayViewDef const> Cast(boost::shared_ptr<ViewDef const> const& view) noexcept;

    boost::shared_ptr<ArrayViewDef> clone() const;

    /// The view that reads the same relation the other way. The inverse of an inverse is the very object that it holds.
    boost::shared_ptr<ArrayViewDef const> inverse() const;

    /// The target indices that these view indices stand for.
    virtual AxisExtent viewToTargetAxisExtent(AxisExtent const& viewAxis) const = 0;

    /// The view indices at which these target indices are seen; those that the view does not see are dropped.
    virtual AxisExtent targetToViewAxisExtent(AxisExtent const& targetAxis) const = 0;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
