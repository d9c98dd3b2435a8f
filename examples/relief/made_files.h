// SPDX-License-Identifier: Apache-2.0
#pragma once

// Small netCDF files for the demo's tests, made as they are needed and removed with the test's own folder.

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <netcdf.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace Relief::Testing {

/// A folder of its own, gone with everything in it at the end of the scope.
class Folder {
  public:
    Folder()
        : path_(
              std::filesystem::temp_directory_path() /
              ("relief_test_" + std::to_string(getpid()) + "_" + std::to_string(++made_))) {
        std::filesystem::create_directory(path_);
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;

    std::string file(std::string const& name) const { return (path_ / name).string(); }
    std::size_t fileCount() const {
        auto const entries = std::filesystem::directory_iterator(path_);
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

  private:
    inline static int made_ = 0;
    std::filesystem::path path_;
};

/// A netCDF file that is being written; any failure fails the test.
class MadeFile {
  public:
    explicit MadeFile(std::string const& path) { check(nc_create(path.c_str(), NC_CLOBBER, &file_)); }
    ~MadeFile() { check(nc_close(file_)); }
    MadeFile(MadeFile const&) = delete;
    MadeFile& operator=(MadeFile const&) = delete;

    /// A variable with an axis of each length, which are named after it: "z_0", "z_1" for "z".
    int addVariable(std::string const& name, nc_type type, std::vector<std::size_t> const& lengths) {
        std::vector<int> dimensions(lengths.size());
        for (std::size_t axis = 0; axis < lengths.size(); ++axis) {
            check(nc_def_dim(file_, (name + "_" + std::to_string(axis)).c_str(), lengths[axis], &dimensions[axis]));
        }
        int variable = -1;
        check(nc_def_var(file_, name.c_str(), type, static_cast<int>(lengths.size()), dimensions.data(), &variable));
        return variable;
    }

    /// Coordinates along an existing axis.
    void addCoordinates(std::string const& dimension, std::vector<float> const& values) {
        int id = -1;
        int variable = -1;
        check(nc_inq_dimid(file_, dimension.c_str(), &id));
        check(nc_def_var(file_, dimension.c_str(), NC_FLOAT, 1, &id, &variable));
        write(variable, values);
    }

    void addNumber(int variable, char const* attribute, nc_type type, float value) {
        check(nc_put_att_float(file_, variable, attribute, type, 1, &value));
    }
    void addText(int variable, char const* attribute, std::string const& value) {
        check(nc_put_att_text(file_, variable, attribute, value.size(), value.c_str()));
    }

    void write(int variable, std::vector<float> const& values) {
        check(nc_enddef(file_));
        check(nc_put_var_float(file_, variable, values.data()));
        check(nc_redef(file_));
    }

  private:
    static void check(int status) { ASSERT_EQ(status, NC_NOERR) << nc_strerror(status); }

    int file_ = -1;
};

}  // namespace Relief::Testing
