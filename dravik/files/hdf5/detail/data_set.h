// SPDX-License-Identifier: Apache-2.0
#pragma once

// File and DataSet of HDF5. Threads: any; each operation holds the lock of the process.

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#define H5_USE_110_API  // H5Ovisit2 and H5O_info_t as later versions have them, too
#include <hdf5.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

/// Holds the lock of the process and keeps the library from printing its errors.
class Hdf5Call {
  public:
    Hdf5Call();
    Hdf5Call(Hdf5Call const&) = delete;
    Hdf5Call& operator=(Hdf5Call const&) = delete;
    ~Hdf5Call();

    /// The result, unless it is an error.
    /// @throws std::runtime_error with the path and what the library tells
    static hid_t check(hid_t result, std::filesystem::path const& path);

  private:
    std::lock_guard<std::recursive_mutex> lock_;
    H5E_auto2_t print_ = nullptr;
    void* printData_ = nullptr;
};

/// Closes what the library has opened.
class Hdf5Id {
  public:
    Hdf5Id(hid_t id, herr_t (*close)(hid_t)) noexcept : id_(id), close_(close) {}
    Hdf5Id(Hdf5Id&& other) noexcept : id_(std::exchange(other.id_, -1)), close_(other.close_) {}
    Hdf5Id& operator=(Hdf5Id&&) = delete;
    ~Hdf5Id();

    operator hid_t() const noexcept { return id_; }

  private:
    hid_t id_;
    herr_t (*close_)(hid_t);
};

/// The type of this machine's memory for samples of `type`, which is one of those that can be opened.
hid_t memoryTypeOf(std::type_info const& type);

/// What is known about the indices of an axis.
struct DimensionScale {
    std::string name;
    std::string unit;
    std::vector<double> coordinates;  ///< one per index, or none
};

class DataSet {
  public:
    /// Every name of a data set in the file, in order, whether or not it can be opened.
    static std::vector<std::string> namesIn(std::filesystem::path const& path);
    /// Whether the file says that it is netCDF's.
    static bool isNetcdf(std::filesystem::path const& path);

    /// @throws std::runtime_error for one that does not exist or cannot be shown
    DataSet(std::filesystem::path path, std::string const& name, bool writable);

    std::type_info const& type() const noexcept { return *type_; }
    std::vector<int> const& shape() const noexcept { return shape_; }
    Adt::FixedVector<4, int> const& size() const noexcept { return size_; }
    /// Samples per axis; nothing where the data set lies in one piece.
    std::optional<Adt::FixedVector<4, int>> const& chunk() const noexcept { return chunk_; }

    /// Of one element or several; none where the attribute is not there or holds no numbers.
    std::vector<double> numbers(char const* attribute) const;
    /// One per axis: the first that is attached to it, of those in the data set's group or in one around it.
    std::vector<DimensionScale> scales() const;
    /// Whether it says that it is the scale of axes.
    bool isScale() const;
    /// All attributes, numbers as text; those that are neither are left out.
    std::vector<std::pair<std::string, std::string>> attributes() const;

    void read(Adt::OpenEndedRange<4, int> const& box, void* samples) const;
    void write(Adt::OpenEndedRange<4, int> const& box, void const* samples);
    void flush();

  private:
    void describe();
    void addAttachedScales(std::vector<DimensionScale>& scales) const;
    DimensionScale scaleFrom(hid_t scale, int length) const;
    // The samples of `box` in the file.
    Hdf5Id select(Adt::OpenEndedRange<4, int> const& box) const;

    std::filesystem::path path_;
    std::string name_;
    Hdf5Id file_;
    Hdf5Id set_;
    std::type_info const* type_ = nullptr;
    std::vector<int> shape_;
    Adt::FixedVector<4, int> size_;
    std::optional<Adt::FixedVector<4, int>> chunk_;
};

}  // namespace Quorvel::Dravik::Files::Detail
