// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view/inverse_array_view_def.h"

#include <ostream>
#include <string>
#include <typeinfo>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef::View {

using Inverse = ArrayViewDef::InverseArrayViewDef;

namespace {

// Inverses may hold inverses, as deep as anybody makes them: nothing here recurs from one into the next.

// What `view` holds where it is an inverse and of no class derived from it, else null.
ArrayViewDef const* heldBy(ArrayViewDef const& view) noexcept {
    return typeid(view) == typeid(Inverse) ? static_cast<Inverse const&>(view).viewPtr().get() : nullptr;
}

// The view that a chain of inverses ends with, and how many they are.
struct Innermost {
    explicit Innermost(Inverse const& outermost) noexcept : view(outermost.viewPtr().get()) {
        for (; auto const* const held = heldBy(*view); view = held) {
            ++inversions;
        }
    }

    ArrayViewDef const* view;
    std::size_t inversions = 1;
};

// What the inverse that this thread destroys just now has held.
constinit thread_local boost::shared_ptr<ArrayViewDef const>* released = nullptr;

}  // namespace

Inverse::InverseArrayViewDef(ArrayViewDef const& view) : view_(view.clone()) {}

Inverse::~InverseArrayViewDef() {
    if (released != nullptr) {
        released->swap(view_);
        return;
    }
    auto held = std::move(view_);
    released = &held;
    while (held) {
        std::exchange(held, nullptr).reset();
    }
    released = nullptr;
}

Inverse const* Inverse::Cast(ViewDef const* view) noexcept {
    return dynamic_cast<Inverse const*>(view);
}

AxisExtent Inverse::viewToTargetAxisExtent(AxisExtent const& viewAxis) const {
    Innermost const inner(*this);
    return inner.inversions % 2 != 0 ? inner.view->targetToViewAxisExtent(viewAxis)
                                     : inner.view->viewToTargetAxisExtent(viewAxis);
}

AxisExtent Inverse::targetToViewAxisExtent(AxisExtent const& targetAxis) const {
    Innermost const inner(*this);
    return inner.inversions % 2 != 0 ? inner.view->viewToTargetAxisExtent(targetAxis)
                                     : inner.view->targetToViewAxisExtent(targetAxis);
}

int Inverse::getHashCode() const {
    return Innermost(*this).view->getHashCode();
}

void Inverse::print(std::ostream& out) const {
    Innermost const inner(*this);
    for (std::size_t opened = 0; opened < inner.inversions; ++opened) {
        out << "InverseArrayViewDef(";
    }
    out << *inner.view << std::string(inner.inversions, ')');
}

bool Inverse::compare(ViewDef const& other) const {
    auto const* const inverse = Cast(&other);
    if (inverse == nullptr) {
        return false;
    }
    auto const* left = view_.get();
    auto const* right = inverse->view_.get();
    while (heldBy(*left) != nullptr && heldBy(*right) != nullptr) {
        left = heldBy(*left);
        right = heldBy(*right);
    }
    return left->equals(*right);
}

std::unique_ptr<ViewDef> Inverse::makeClone() const {
    return std::make_unique<InverseArrayViewDef>(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::View
