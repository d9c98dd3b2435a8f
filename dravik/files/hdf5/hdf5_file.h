// SPDX-License-Identifier: Apache-2.0
#pragma once

// HDF5 files. Threads: as every definition; functions from any, one at a time inside HDF5.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/export.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Files {

/// A data set of one to four axes in an HDF5 file, by its path in there: "a" or "group/a". Paths are compared byte by
/// byte, not as the file system would.
class DRAVIK_ADT_EXPORT Hdf5FileDef final : public Adt::BulkDef::SourceDef, public Adt::BulkDef::IPrintable {
  public:
    struct Options {
        /// The numbers as they are stored, without `scale_factor`, `add_offset` and missing values.
        bool isPacked = false;
        bool isWritable = false;

        friend bool operator==(Options const&, Options const&) = default;
    };

    Hdf5FileDef(std::filesystem::path path, std::string dataSet);
    Hdf5FileDef(std::filesystem::path path, std::string dataSet, Options options);

    std::filesystem::path const& path() const noexcept { return path_; }
    std::string const& dataSet() const noexcept { return dataSet_; }
    Options const& options() const noexcept { return options_; }

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(Adt::BulkDef::SourceDef const& other) const override;
    std::unique_ptr<Adt::BulkDef::SourceDef> makeClone() const override;

  private:
    std::filesystem::path path_;
    std::string dataSet_;
    Options options_;
};

/// What a new file holds: one data set.
struct Hdf5Layout {
    std::string dataSet = "samples";  ///< groups on the way to it are made
    std::vector<int> shape = {};      ///< samples per axis, one to four
    std::string sampleType = "float32";
    std::vector<int> chunks = {};             ///< samples per axis; empty: blocks of about 1 MiB
    int deflateLevel = 0;                     ///< 0: not compressed, up to 9
    std::string unit = {};                    ///< of a sample; empty: none
    std::optional<double> missingValue = {};  ///< stored for not-a-number
};

/// A store of a data set and what the file tells about it.
struct Hdf5DataSet {
    std::shared_ptr<Adt::BulkView::IBrickStore> store;
    Adt::BulkView::DataInfo info;
};

/// Opens a data set of integers or floats. Its bricks are the file's chunks, and no box passes to the library that is
/// larger than one.
///
/// Samples with the attributes `scale_factor`, `add_offset`, `_FillValue` or `missing_value` are shown unpacked, as
/// float, or as double where they are stored in 32-bit integers or wider, and missing ones as not-a-number; others as
/// they are stored.
/// @throws std::runtime_error, in one line: why the file is none, which data sets there are instead; std::system_error
/// for what the operating system refuses
DRAVIK_ADT_EXPORT Hdf5DataSet openHdf5DataSet(Hdf5FileDef const& file);

/// The samples behind the pool of `openers`.
DRAVIK_ADT_EXPORT Adt::BulkView::OpenedData openHdf5(Hdf5FileDef const& file, Adt::BulkView::Openers const& openers);

/// The data sets of a file that can be opened, those in groups as well, in order of their names.
/// @throws as openHdf5DataSet
DRAVIK_ADT_EXPORT std::vector<std::string> hdf5DataSets(std::filesystem::path const& path);

/// Makes a file with one data set and no samples yet.
/// @throws std::invalid_argument for a layout that makes no sense; else as openHdf5DataSet, also where the file exists
DRAVIK_ADT_EXPORT void createHdf5(std::filesystem::path const& path, Hdf5Layout const& layout);

/// Has `openers` open and recognise HDF5 files, those of netCDF excepted. The standard ones do once this library is
/// loaded, and texts know them as "Hdf5File". Without a name the data set with most samples is meant.
DRAVIK_ADT_EXPORT void registerHdf5(Adt::BulkView::Openers& openers);

}  // namespace Quorvel::Dravik::Files
