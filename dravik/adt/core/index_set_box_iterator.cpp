// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/index_set_box_iterator.h"

#include "dravik/adt/core/detail/index_set_tree.h"

namespace Quorvel::Dravik::Adt {

template <int N>
IndexSetBoxIterator<N>::IndexSetBoxIterator(Detail::IndexSetTree<N> const* tree, value_type const& bounds)
    : tree_(tree), box_(bounds) {
    if (tree_ != nullptr) {
        path_.push_back({Detail::IndexPool<N>::kRoot, -1});
        ++*this;
    } else if (!bounds.isEmpty()) {
        path_.push_back({});
    }
}

template <int N>
IndexSetBoxIterator<N>& IndexSetBoxIterator<N>::operator++() {
    if (tree_ == nullptr) {
        path_.clear();
    }
    while (!path_.empty()) {
        Step& step = path_.back();
        auto const& node = tree_->pool()[step.node];
        ++step.slot;
        if (step.slot == node.count) {
            path_.pop_back();
        } else if (node.isNode(step.slot)) {
            path_.push_back({node.child[step.slot], -1});
        } else if (node.holdsPoints(step.slot)) {
            box_ = node.box(step.slot);
            break;
        }
    }
    return *this;
}

template class IndexSetBoxIterator<1>;
template class IndexSetBoxIterator<2>;
template class IndexSetBoxIterator<3>;
template class IndexSetBoxIterator<4>;

}  // namespace Quorvel::Dravik::Adt
