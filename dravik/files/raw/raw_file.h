// SPDX-License-Identifier: Apache-2.0
#pragma once

// Raw files: samples end to end behind a header that is skipped. Threads: as every definition; functions from any.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/export.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Files {

/// How the samples of a raw file lie.
struct RawLayout {
    enum class ByteOrder { Little, Big };

    std::vector<int> shape = {};  ///< samples per axis as they lie in the file, the fastest axis last; one to four
    std::string sampleType = {};  ///< "float32", "int16", …: see sampleTypeNamed; no single bits
    ByteOrder byteOrder = ByteOrder::Little;
    std::int64_t headerBytes = 0;  ///< in front of the samples
    /// Axis a of the data set is axis axisOrder[a] of the file; empty for the file's own order.
    std::vector<int> axisOrder = {};

    friend bool operator==(RawLayout const&, RawLayout const&) = default;
};

/// Samples in a raw file. Paths are compared byte by byte, not as the file system would.
class DRAVIK_ADT_EXPORT RawFileDef final : public Adt::BulkDef::SourceDef, public Adt::BulkDef::IPrintable {
  public:
    RawFileDef(std::filesystem::path path, RawLayout layout, bool writable = false);

    std::filesystem::path const& path() const noexcept { return path_; }
    RawLayout const& layout() const noexcept { return layout_; }
    /// Whether samples may be written.
    bool isWritable() const noexcept { return writable_; }

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(Adt::BulkDef::SourceDef const& other) const override;
    std::unique_ptr<Adt::BulkDef::SourceDef> makeClone() const override;

  private:
    std::filesystem::path path_;
    RawLayout layout_;
    bool writable_;
};

/// The samples in the file's order of axes. The file is mapped: a part of a block costs its share, and a file that
/// another program shortens is an exception when its end is read.
/// @throws std::invalid_argument for a layout that makes no sense, std::system_error for a file that cannot be opened
/// or is shorter than its layout
DRAVIK_ADT_EXPORT std::shared_ptr<Adt::BulkView::IBrickStore> openRawStore(RawFileDef const& file);

/// The samples behind the pool of `openers`.
DRAVIK_ADT_EXPORT Adt::BulkView::OpenedData openRaw(RawFileDef const& file, Adt::BulkView::Openers const& openers);

/// Makes a file of zeros for the layout, which takes room on the disk as it is written.
/// @throws as openRawStore, std::system_error also where the file exists
DRAVIK_ADT_EXPORT void createRaw(std::filesystem::path const& path, RawLayout const& layout);

/// Has `openers` open raw files. The standard ones do once this library is loaded, and texts know them as "RawFile".
DRAVIK_ADT_EXPORT void registerRaw(Adt::BulkView::Openers& openers);

}  // namespace Quorvel::Dravik::Files
