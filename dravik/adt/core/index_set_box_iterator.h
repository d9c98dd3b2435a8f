// SPDX-License-Identifier: Apache-2.0
#pragma once

// IndexSetBoxIterator: runs through the boxes that an IndexSet stores. Borrows the set. Threads: as `int`.

#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <cstddef>
#include <cstdint>
#include <vector>  // brings the iterator tags; <iterator> brings streams

namespace Quorvel::Dravik::Adt {

template <int N, class T>
class IndexSet;

namespace Detail {

template <int N>
class IndexSetTree;

}  // namespace Detail

/// The stored boxes of an IndexSet, none of them empty, in the order of its text dump.
///
/// @lifetime borrows the set; any change of the set ends every iterator
template <int N>
class DRAVIK_ADT_EXPORT IndexSetBoxIterator {
  public:
    using value_type = OpenEndedRange<N, int>;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;
    using pointer = void;
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;

    IndexSetBoxIterator() noexcept = default;

    value_type operator*() const noexcept { return box_; }
    IndexSetBoxIterator& operator++();
    IndexSetBoxIterator operator++(int) {
        IndexSetBoxIterator before = *this;
        ++*this;
        return before;
    }

    /// @pre both run through the same set
    friend bool operator==(IndexSetBoxIterator const& left, IndexSetBoxIterator const& right) noexcept {
        return left.path_ == right.path_;
    }

  private:
    template <int M, class T>
    friend class IndexSet;

    struct Step {
        std::uint32_t node;
        int slot;
        friend bool operator==(Step const&, Step const&) = default;
    };

    IndexSetBoxIterator(Detail::IndexSetTree<N> const* tree, value_type const& bounds);

    Detail::IndexSetTree<N> const* tree_ = nullptr;
    std::vector<Step> path_;  // from the root to the box; empty at the end
    value_type box_;
};

extern template class IndexSetBoxIterator<1>;
extern template class IndexSetBoxIterator<2>;
extern template class IndexSetBoxIterator<3>;
extern template class IndexSetBoxIterator<4>;

}  // namespace Quorvel::Dravik::Adt
