// SPDX-License-Identifier: Apache-2.0
#pragma once

// Zarr arrays of version 2: directories of chunks. Threads: as every definition; functions from any.

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

/// An array of one to four axes in a Zarr directory. Paths are compared byte by byte, not as the file system would.
class DRAVIK_ADT_EXPORT ZarrFileDef final : public Adt::BulkDef::SourceDef, public Adt::BulkDef::IPrintable {
  public:
    struct Options {
        bool isWritable = false;

        friend bool operator==(Options const&, Options const&) = default;
    };

    /// `path`: a group or an array. `array`: where in the group, "a" or "a/b"; empty where the path is the array.
    explicit ZarrFileDef(std::filesystem::path path, std::string array = {});
    ZarrFileDef(std::filesystem::path path, std::string array, Options options);

    std::filesystem::path const& path() const noexcept { return path_; }
    std::string const& array() const noexcept { return array_; }
    Options const& options() const noexcept { return options_; }

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(Adt::BulkDef::SourceDef const& other) const override;
    std::unique_ptr<Adt::BulkDef::SourceDef> makeClone() const override;

  private:
    std::filesystem::path path_;
    std::string array_;
    Options options_;
};

/// What a new array is like.
struct ZarrLayout {
    enum class Compressor { None, Blosc, Zstd, Zlib };
    enum class Order { C, F };
    enum class ByteOrder { Little, Big };

    std::string array = {};              ///< where in the group; empty: the path is the array
    std::vector<int> shape = {};         ///< samples per axis, one to four
    std::string sampleType = "float32";  ///< see sampleTypeNamed; no single bits
    std::vector<int> chunks = {};        ///< samples per axis; empty: blocks of about 1 MiB
    Compressor compressor = Compressor::Blosc;
    int level = 5;  ///< of compression, 1 to 9
    Order order = Order::C;
    ByteOrder byteOrder = ByteOrder::Little;
    std::optional<double> fillValue = {};     ///< of chunks not yet written; none: not-a-number, or 0 for integers
    std::vector<std::string> axisNames = {};  ///< empty: none
    std::string unit = {};                    ///< of a sample; empty: none
};

/// A store of an array and what the directory tells about it.
struct ZarrArray {
    std::shared_ptr<Adt::BulkView::IBrickStore> store;
    Adt::BulkView::DataInfo info;
};

/// Opens an array. Its bricks are the chunks: raw or compressed by blosc, zstd or zlib, in either order of axes and of
/// bytes.
///
/// Chunks not yet written are blocks without memory, where the fill value is the null value of the sample type
/// (not-a-number, 0 for integers) or there is none; elsewhere they show the fill value. A chunk is written to a file
/// beside it, which then takes its name: readers see the old chunk or the new one, and any number of threads and
/// processes may write at once as long as each writes chunks of its own. Within one store threads may also share them.
/// @throws std::runtime_error, in one line: what is wrong with the metadata, which arrays there are instead;
/// std::system_error for what the operating system refuses
DRAVIK_ADT_EXPORT ZarrArray openZarrArray(ZarrFileDef const& file);

/// The samples behind the pool of `openers`.
DRAVIK_ADT_EXPORT Adt::BulkView::OpenedData openZarr(ZarrFileDef const& file, Adt::BulkView::Openers const& openers);

/// The arrays that can be opened below a group, in order of their names: those of its directories and of its
/// consolidated metadata. An array at the path itself is "".
/// @throws as openZarrArray
DRAVIK_ADT_EXPORT std::vector<std::string> zarrArrays(std::filesystem::path const& path);

/// Makes an array without samples, and the groups above it where they are missing. Consolidated metadata stay as they
/// are.
/// @throws std::invalid_argument for a layout that makes no sense; std::system_error, also where the array's directory
/// exists
DRAVIK_ADT_EXPORT void createZarr(std::filesystem::path const& path, ZarrLayout const& layout);

/// Has `openers` open and recognise Zarr directories. The standard ones do once this library is loaded, and texts know
/// them as "ZarrFile". Without a name the array with most samples is meant, among those that are no coordinates.
DRAVIK_ADT_EXPORT void registerZarr(Adt::BulkView::Openers& openers);

}  // namespace Quorvel::Dravik::Files
