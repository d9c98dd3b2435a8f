// SPDX-License-Identifier: Apache-2.0
#pragma once

// Raster: rows of values held in memory, the form a picture has. A plain value that owns its values. Threads: as
// std::vector.

#include <cstddef>
#include <vector>

namespace Quorvel::Dravik::Command {

/// `rows` times `columns` values, row after row; row 0 is the top of the picture.
template <class T>
class Raster {
  public:
    Raster() = default;
    Raster(int rows, int columns)
        : rows_(rows), columns_(columns), values_(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns)) {}

    int rows() const noexcept { return rows_; }
    int columns() const noexcept { return columns_; }

    T* row(int row) noexcept { return values_.data() + static_cast<std::size_t>(row) * width(); }
    T const* row(int row) const noexcept { return values_.data() + static_cast<std::size_t>(row) * width(); }

    std::vector<T> const& values() const noexcept { return values_; }

  private:
    std::size_t width() const noexcept { return static_cast<std::size_t>(columns_); }

    int rows_ = 0;
    int columns_ = 0;
    std::vector<T> values_;
};

/// One point of a picture, 8 bits per channel.
struct Colour {
    unsigned char red = 0, green = 0, blue = 0;

    friend constexpr bool operator==(Colour const&, Colour const&) = default;
};

}  // namespace Quorvel::Dravik::Command
