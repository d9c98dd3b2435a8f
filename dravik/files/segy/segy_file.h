// SPDX-License-Identifier: Apache-2.0
#pragma once

// SEG-Y files: post-stack volumes and lines. Threads: as every definition; functions from any.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/export.h"

#include <filesystem>
#include <memory>

namespace Quorvel::Dravik::Files {

/// The samples of a SEG-Y file. Paths are compared byte by byte, not as the file system would.
class DRAVIK_ADT_EXPORT SegyFileDef final : public Adt::BulkDef::SourceDef, public Adt::BulkDef::IPrintable {
  public:
    explicit SegyFileDef(std::filesystem::path path, bool writable = false);

    std::filesystem::path const& path() const noexcept { return path_; }
    /// Whether samples may be written, in place.
    bool isWritable() const noexcept { return writable_; }

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(Adt::BulkDef::SourceDef const& other) const override;
    std::unique_ptr<Adt::BulkDef::SourceDef> makeClone() const override;

  private:
    std::filesystem::path path_;
    bool writable_;
};

/// What a new file holds: a trace at each inline and crossline, sorted by inlines, all samples 0.
struct SegyLayout {
    /// Numbers of lines: first, distance from one to the next, how many.
    struct Lines {
        int first = 1, step = 1, count = 1;
    };
    enum class Format { IbmFloat = 1, Int32 = 2, Int16 = 3, IeeeFloat = 5, Int8 = 8 };

    Lines inlines, crosslines;
    int sampleCount = 1;              ///< per trace
    int intervalMicroseconds = 4000;  ///< from one sample to the next
    Format format = Format::IeeeFloat;
};

/// A store of a file and what the file tells about it.
struct SegyVolume {
    std::shared_ptr<Adt::BulkView::IBrickStore> store;
    Adt::BulkView::DataInfo info;
};

/// Opens a file by its trace headers, each of which is read once: inlines, crosslines and samples where the traces have
/// different inline numbers, else the traces of a line and their samples.
///
/// Inline and crossline sorted files, big- and little-endian, IBM and IEEE floats and integers of 8 to 32 bits. Where
/// the survey has no trace samples are missing. The file is mapped, so a time slice touches no more than its samples; a
/// block is one line of the order in which the file is sorted.
/// @throws std::runtime_error, in one line, for what is no such file, which header field does not fit included;
/// std::system_error for what the operating system refuses
DRAVIK_ADT_EXPORT SegyVolume openSegyVolume(SegyFileDef const& file);

/// The samples behind the pool of `openers`.
DRAVIK_ADT_EXPORT Adt::BulkView::OpenedData openSegy(SegyFileDef const& file, Adt::BulkView::Openers const& openers);

/// @throws std::invalid_argument for a layout that no such file has, std::system_error also where the file exists
DRAVIK_ADT_EXPORT void createSegy(std::filesystem::path const& path, SegyLayout const& layout);

/// Has `openers` open and recognise SEG-Y files. The standard ones do once this library is loaded, and texts know them
/// as "SegyFile".
DRAVIK_ADT_EXPORT void registerSegy(Adt::BulkView::Openers& openers);

}  // namespace Quorvel::Dravik::Files
