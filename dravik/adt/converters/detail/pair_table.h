// SPDX-License-Identifier: Apache-2.0
#pragma once

// PairTable: an entry for every pair of sample types. A plain value. Threads: as `int`.

#include "dravik/adt/converters/detail/sample_type.h"

#include <array>
#include <cstddef>

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// A table over input and output types; without entries at first.
template <class Entry>
class PairTable {
  public:
    /// `Cell<S, D>::kEntry` for every pair of types S and D.
    template <template <class, class> class Cell>
    static consteval PairTable Of() noexcept {
        return withRows<Cell>(SampleTypes());
    }

    constexpr Entry operator()(SampleType in, SampleType out) const noexcept {
        return rows_[static_cast<std::size_t>(in)][static_cast<std::size_t>(out)];
    }

  private:
    using Row = std::array<Entry, kSampleTypeCount>;

    template <template <class, class> class Cell, class... S>
    static consteval PairTable withRows(TypeList<S...>) noexcept {
        PairTable table;
        table.rows_ = {row<Cell, S>(SampleTypes())...};
        return table;
    }

    template <template <class, class> class Cell, class S, class... D>
    static consteval Row row(TypeList<D...>) noexcept {
        return {Cell<S, D>::kEntry...};
    }

    std::array<Row, kSampleTypeCount> rows_{};
};

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
