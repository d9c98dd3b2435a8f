// SPDX-License-Identifier: Apache-2.0
#pragma once

// BulkFileDef: a data set in a file. Threads: as every definition.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"

#include <string>

namespace Quorvel::Dravik::Adt::BulkDef::Source {

/// A file of samples, by path and format. The library does not open it; both are for the host's opener.
///
/// Paths are compared character by character, not as the file system would. toString() throws.
class DRAVIK_ADT_EXPORT BulkFileDef : public SourceDef, public IPrintable {
  public:
    /// Formats of one family share a ten. A value without a name is carried along like any other.
    enum FileFormat : int {
        FILEFORMAT_UNKNOWN = 0,
        FILEFORMAT_OTHER = 1,
        FILEFORMAT_BRANTEL = 10,
        FILEFORMAT_FOLMAR = 11,
        FILEFORMAT_QUENDA = 12,
        FILEFORMAT_VIRSET = 13,
        FILEFORMAT_HALDOR = 14,
        FILEFORMAT_TORVAN_A = 20,
        FILEFORMAT_TORVAN_B = 21,
        FILEFORMAT_SPINDRA = 30,
        FILEFORMAT_WYNDEL_A = 40,
        FILEFORMAT_WYNDEL_B = 41,
    };

    /// "BulkFileDef"
    static std::string const& ClassName;

    BulkFileDef(std::string const& fileName, FileFormat fileFormat);

    std::string const& fileName() const noexcept { return fileName_; }
    std::string& fileName() noexcept { return fileName_; }
    void setFileName(std::string const& fileName) { fileName_ = fileName; }

    FileFormat fileFormat() const noexcept { return fileFormat_; }
    FileFormat& fileFormat() noexcept { return fileFormat_; }

    /// The name of the constant; "FILEFORMAT_UNDEFINED" for a value without one. Lives as long as the process.
    static std::string const& getFileFormatString(FileFormat format);

    /// The constant of exactly that name, else FILEFORMAT_UNKNOWN.
    static FileFormat getFileFormat(std::string const& name);

    /// `source` itself where it is a file, else null.
    static BulkFileDef const* Cast(SourceDef const* source) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(SourceDef const& other) const override;
    std::unique_ptr<SourceDef> makeClone() const override;

  private:
    std::string fileName_;
    FileFormat fileFormat_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Source
