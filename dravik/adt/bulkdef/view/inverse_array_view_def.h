// SPDX-License-Identifier: Apache-2.0
#pragma once

// InverseArrayViewDef: an array view read from its target's side. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/view/array_view_def.h"

namespace Quorvel::Dravik::Adt::BulkDef::View {

/// Shows the view indices of another array view at that view's target indices: both mappings change places.
///
/// Holds a clone of the other view, which copies of this definition share. Made by ArrayViewDef::inverse().
class DRAVIK_ADT_EXPORT ArrayViewDef::InverseArrayViewDef : public ArrayViewDef, public IPrintable {
  public:
    explicit InverseArrayViewDef(ArrayViewDef const& view);

    // Without moves: a definition that was moved from would hold nothing.
    InverseArrayViewDef(InverseArrayViewDef const&) = default;
    InverseArrayViewDef& operator=(InverseArrayViewDef const&) = default;
    ~InverseArrayViewDef() override;

    /// The view that is inverted; never empty.
    boost::shared_ptr<ArrayViewDef const> const& viewPtr() const noexcept { return view_; }

    /// `view` itself where it is an inverse, else null.
    static InverseArrayViewDef const* Cast(ViewDef const* view) noexcept;

    AxisExtent viewToTargetAxisExtent(AxisExtent const& viewAxis) const override;
    AxisExtent targetToViewAxisExtent(AxisExtent const& targetAxis) const override;
    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(ViewDef const& other) const override;
    std::unique_ptr<ViewDef> makeClone() const override;

  private:
    boost::shared_ptr<ArrayViewDef const> view_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
