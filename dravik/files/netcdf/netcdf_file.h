// SPDX-License-Identifier: Apache-2.0
#pragma once

// netCDF files, classic and version 4. Threads: as every definition; functions from any, one at a time inside netCDF.

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

/// A variable of one to four axes in a netCDF file. Paths are compared byte by byte, not as the file system would.
class DRAVIK_ADT_EXPORT NetcdfFileDef final : public Adt::BulkDef::SourceDef, public Adt::BulkDef::IPrintable {
  public:
    struct Options {
        /// The numbers as they are stored, without `scale_factor`, `add_offset` and missing values.
        bool isPacked = false;
        bool isWritable = false;

        friend bool operator==(Options const&, Options const&) = default;
    };

    NetcdfFileDef(std::filesystem::path path, std::string variable);
    NetcdfFileDef(std::filesystem::path path, std::string variable, Options options);

    std::filesystem::path const& path() const noexcept { return path_; }
    std::string const& variable() const noexcept { return variable_; }
    Options const& options() const noexcept { return options_; }

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(Adt::BulkDef::SourceDef const& other) const override;
    std::unique_ptr<Adt::BulkDef::SourceDef> makeClone() const override;

  private:
    std::filesystem::path path_;
    std::string variable_;
    Options options_;
};

/// What a new file holds: one variable.
struct NetcdfLayout {
    std::string variable = "samples";
    std::vector<int> shape = {};  ///< samples per axis, one to four
    std::string sampleType = "float32";
    std::vector<std::string> axisNames = {};  ///< empty: "axis0", "axis1", …
    std::vector<int> chunks = {};             ///< samples per axis; empty: blocks of about 1 MiB
    int deflateLevel = 0;                     ///< 0: not compressed, up to 9
    std::string unit = {};                    ///< of a sample; empty: none
    std::optional<double> missingValue = {};  ///< stored for not-a-number
    /// Units and coordinates, one element per axis; names as well where `axisNames` is empty. Empty: none.
    std::vector<Adt::BulkView::DataAxis> axes = {};
};

/// A store of a variable and what the file tells about it.
struct NetcdfVariable {
    std::shared_ptr<Adt::BulkView::IBrickStore> store;
    Adt::BulkView::DataInfo info;
};

/// Opens a variable. Its bricks are the file's chunks.
///
/// Samples with `scale_factor`, `add_offset`, `_FillValue` or `missing_value` are shown unpacked, as float, or as
/// double where they are stored in 32-bit integers or wider, and missing ones as not-a-number; others as they are
/// stored. Variables of classic files that lie in one piece are read where they lie, by any number of threads at once.
/// @throws std::runtime_error, in one line: why the file is none, which variables there are instead; std::system_error
/// for what the operating system refuses
DRAVIK_ADT_EXPORT NetcdfVariable openNetcdfVariable(NetcdfFileDef const& file);

/// The samples behind the pool of `openers`.
DRAVIK_ADT_EXPORT Adt::BulkView::OpenedData openNetcdf(
    NetcdfFileDef const& file, Adt::BulkView::Openers const& openers);

/// The variables of a file that can be opened, in its order.
/// @throws as openNetcdfVariable
DRAVIK_ADT_EXPORT std::vector<std::string> netcdfVariables(std::filesystem::path const& path);

/// Makes a file of version 4 with one variable and no samples yet.
/// @throws std::invalid_argument for a layout that makes no sense; else as openNetcdfVariable, also where the file
/// exists
DRAVIK_ADT_EXPORT void createNetcdf(std::filesystem::path const& path, NetcdfLayout const& layout);

/// Has `openers` open and recognise netCDF files. The standard ones do once this library is loaded, and texts know them
/// as "NetcdfFile". Without a name the variable with most samples is meant, among those that are no coordinates.
DRAVIK_ADT_EXPORT void registerNetcdf(Adt::BulkView::Openers& openers);

}  // namespace Quorvel::Dravik::Files
