// SPDX-License-Identifier: Apache-2.0
#pragma once

// Dataset: an open netCDF file. Threads: any; each operation holds the lock of the process.

#include <H5Epublic.h>
#include <netcdf.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

/// A variable as the file describes it.
struct Variable {
    std::string name;
    int id = 0;
    nc_type type = NC_NAT;  ///< unsigned where the attribute `_Unsigned` says so, as classic files have it
    std::vector<std::string> axes;
    std::vector<std::size_t> shape;
    std::vector<std::size_t> chunks;  ///< empty where it lies in one piece
};

/// Holds the lock of the process, and keeps HDF5 from telling of errors on standard error by itself.
class NetcdfCall {
  public:
    NetcdfCall();
    NetcdfCall(NetcdfCall const&) = delete;
    NetcdfCall& operator=(NetcdfCall const&) = delete;
    ~NetcdfCall();

  private:
    std::lock_guard<std::recursive_mutex> lock_;
    H5E_auto2_t print_ = nullptr;
    void* printData_ = nullptr;
};

class Dataset {
  public:
    /// `mode` as nc_open has it.
    Dataset(std::filesystem::path path, int mode);
    Dataset(Dataset const&) = delete;
    Dataset& operator=(Dataset const&) = delete;
    ~Dataset();

    int id() const noexcept { return id_; }
    std::filesystem::path const& path() const noexcept { return path_; }

    std::vector<Variable> variables() const;
    /// As netCDF calls it: "uint64", "char", "string", or the name that the file gives.
    std::string nameOf(nc_type type) const;
    /// The elements of an attribute; none where it is not there or is no number.
    std::vector<double> numbers(Variable const& variable, char const* attribute) const;
    /// The only one.
    std::optional<double> number(Variable const& variable, char const* attribute) const;
    std::string text(Variable const& variable, char const* attribute) const;
    /// All attributes, numbers as text.
    std::vector<std::pair<std::string, std::string>> attributes(Variable const& variable) const;
    std::vector<double> coordinates(Variable const& variable) const;

    /// Has chunks pass to the caller alone: the pool keeps them.
    void keepNoChunks(Variable const& variable);
    void read(Variable const& variable, std::size_t const* start, std::size_t const* count, void* samples) const;
    void write(Variable const& variable, std::size_t const* start, std::size_t const* count, void const* samples);
    void flush();

    /// @throws for a result that is an error
    static void check(int result, std::filesystem::path const& path);

  private:
    Variable describe(int id) const;

    std::filesystem::path path_;
    int id_ = -1;
};

/// The sample type of numbers of `type`; null for texts and what no sample holds.
std::type_info const* sampleTypeOf(nc_type type) noexcept;

}  // namespace Quorvel::Dravik::Files::Detail
