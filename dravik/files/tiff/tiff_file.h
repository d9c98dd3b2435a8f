// SPDX-License-Identifier: Apache-2.0
#pragma once

// TIFF, GeoTIFF and BigTIFF files. Threads: as every definition; functions from any.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/export.h"

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Files {

/// An image of a TIFF file, or all its pages. Paths are compared byte by byte, not as the file system would.
class DRAVIK_ADT_EXPORT TiffFileDef final : public Adt::BulkDef::SourceDef, public Adt::BulkDef::IPrintable {
  public:
    struct Options {
        /// The number that `tiffImages` gives to an image. None: all pages where they are alike, else the first.
        std::optional<int> image = std::nullopt;
        bool isWritable = false;

        friend bool operator==(Options const&, Options const&) = default;
    };

    explicit TiffFileDef(std::filesystem::path path);
    TiffFileDef(std::filesystem::path path, Options options);

    std::filesystem::path const& path() const noexcept { return path_; }
    Options const& options() const noexcept { return options_; }

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(Adt::BulkDef::SourceDef const& other) const override;
    std::unique_ptr<Adt::BulkDef::SourceDef> makeClone() const override;

  private:
    std::filesystem::path path_;
    Options options_;
};

/// What a new file holds.
struct TiffLayout {
    std::vector<int> shape = {};  ///< samples per axis: pages, bands, rows and columns, the last two at least
    std::string sampleType = "float32";
    std::array<int, 2> tile = {256, 256};  ///< rows and columns, multiples of 16
    bool isDeflated = false;
    bool isInterleaved = false;  ///< the bands of a pixel lie side by side, else each band in tiles of its own
    std::string unit = {};       ///< of a sample; empty: none
    std::optional<double> missingValue = {};
    /// Where the corner of a sample lies: x = t[0] + t[1] column + t[2] row, y = t[3] + t[4] column + t[5] row.
    std::optional<std::array<double, 6>> transform = {};
    int referenceSystem = 0;  ///< its code in the EPSG registry; 0: none
};

/// What a file tells about one of its images.
struct TiffImage {
    enum class Role { Page, Overview, Mask };

    Role role = Role::Page;
    int width = 0;           ///< samples
    int height = 0;          ///< samples
    int bands = 0;           ///< samples per pixel
    std::string sampleType;  ///< "uint8"; empty where the image cannot be opened

    friend bool operator==(TiffImage const&, TiffImage const&) = default;
};

/// A store of an image and what the file tells about it.
struct TiffData {
    std::shared_ptr<Adt::BulkView::IBrickStore> store;
    Adt::BulkView::DataInfo info;
};

/// Opens an image, or the pages of a file. The last two axes are rows and columns; several bands are the axis in front
/// of them, several pages the first axis. Its bricks are the file's tiles or strips.
///
/// Samples of 1 to 7 bits are shown as bytes, of 9 to 15 bits as 16; JPEG's colours as red, green and blue. Missing
/// samples are shown as not-a-number where they are floats; others as they are, with their value told. A file is
/// written where it is without loss: raw, LZW, Deflate, PackBits, LZMA and Zstandard.
/// @throws std::runtime_error, in one line: why the file is none, which images there are instead; std::system_error
/// for what the operating system refuses
DRAVIK_ADT_EXPORT TiffData openTiffImage(TiffFileDef const& file);

/// The samples behind the pool of `openers`.
DRAVIK_ADT_EXPORT Adt::BulkView::OpenedData openTiff(TiffFileDef const& file, Adt::BulkView::Openers const& openers);

/// All images of a file by their number: those one behind the other first, then those inside of them.
/// @throws as openTiffImage
DRAVIK_ADT_EXPORT std::vector<TiffImage> tiffImages(std::filesystem::path const& path);

/// Makes a tiled BigTIFF file with no samples yet; it appears under its name when it is whole.
/// @throws std::invalid_argument for a layout that makes no sense; else as openTiffImage, also where the file exists
DRAVIK_ADT_EXPORT void createTiff(std::filesystem::path const& path, TiffLayout const& layout);

/// Has `openers` open and recognise TIFF files. The standard ones do once this library is loaded, and texts know them
/// as "TiffFile". A variable's name is the number of an image.
DRAVIK_ADT_EXPORT void registerTiff(Adt::BulkView::Openers& openers);

}  // namespace Quorvel::Dravik::Files
