// SPDX-License-Identifier: Apache-2.0
#pragma once

// NetcdfStore: one variable of a netCDF file as a store.

#include "grid_store.h"

#include <memory>
#include <string>

namespace Relief {

/// The samples of one numeric variable of one to four axes, converted to float as they are read.
///
/// Holds the file open. Packed values are unpacked (`scale_factor`, `add_offset`); what the file marks as missing
/// (`_FillValue`, `missing_value`) reads as NaN. The netCDF library works for one thread at a time, so all sources of
/// the process take turns.
class NetcdfStore final : public GridStore {
  public:
    /// Opens `path`. Without a name the variable is the largest one with two axes.
    /// @throws std::runtime_error with one line that says why there is no such grid
    explicit NetcdfStore(std::string const& path, std::string const& variable = {});
    ~NetcdfStore() override;

    Position size() const override;
    void read(Box const& box, void* samples) const override;

    std::string const& variable() const noexcept;
    /// What one sample counts, "meters" for instance; empty where the file does not say.
    std::string const& unit() const noexcept;
    /// Axes of the variable, 1 to 4.
    int rank() const noexcept;
    /// Whether the coordinates along `axis` rise with the index; false where the file gives none.
    bool risesAlong(int axis) const noexcept;

  private:
    struct Variable;
    std::unique_ptr<Variable const> variable_;
};

}  // namespace Relief
