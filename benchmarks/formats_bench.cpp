// SPDX-License-Identifier: Apache-2.0
// What reading files costs beside the format's own library: the whole, a slice, a sub-cube, chunks at random.

#include "report.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/files/hdf5/hdf5_file.h"
#include "dravik/files/netcdf/netcdf_file.h"
#include "dravik/files/raw/raw_file.h"
#include "dravik/files/tiff/tiff_file.h"
#include "dravik/files/zarr/zarr_file.h"

#include <blosc.h>
#include <hdf5.h>
#include <netcdf.h>
#include <tiffio.h>

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using Box = OpenEndedRange<4, int>;
using Index = FixedVector<4, int>;
using Region = ExtentK<4, int>;

constexpr int kSide = 192;  // samples along each axis; 28 MB
constexpr std::size_t kCount = std::size_t{kSide} * kSide * kSide;
constexpr Wanted kWholeChunks{
    1.15, "what is not compressed is copied in 15 to 90 µs, from memory; the guard against faults over spoilt files "
          "takes 3 µs of "
          "each call."};

void require(bool condition) {
    if (!condition) {
        std::fprintf(stderr, "formats_bench: a peer failed\n");
        std::exit(EXIT_FAILURE);
    }
}

// Of a few samples, so that the sum takes no time beside the reading.
std::uint64_t checksum(std::vector<float> const& samples, std::size_t count) {
    constexpr std::size_t kStep = 499;
    std::uint64_t sum = 0;
    for (std::size_t k = 0; k < count; k += kStep) {
        sum += std::bit_cast<std::uint32_t>(samples[k]);
    }
    return sum;
}

// A folder that goes at the end.
struct Folder {
    Folder() { std::filesystem::create_directories(path); }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;
    ~Folder() { std::filesystem::remove_all(path); }
    std::filesystem::path const path =
        std::filesystem::temp_directory_path() / ("formats_bench." + std::to_string(getpid()));
};

// Steps of noise, so that compressors find something.
void fill(BulkView::IBrickStore& store) {
    auto const whole = Box::OfSize(store.size());
    std::vector<float> samples(static_cast<std::size_t>(whole.pointCount()));
    std::minstd_rand random(1);
    float level = 0;
    for (float& sample : samples) {
        sample = level += static_cast<float>(random() % 16);
    }
    store.write(whole, samples.data());
    store.flush();
}

std::unique_ptr<BulkView::IBufferAccessor> open(BulkDef::SourceDef const& source) {
    BulkView::Openers openers(std::make_shared<BulkView::BrickPool>(0));
    Files::registerRaw(openers);
    Files::registerNetcdf(openers);
    Files::registerHdf5(openers);
    Files::registerTiff(openers);
    Files::registerZarr(openers);
    return openers.open(BulkDef::Entity::SourceEntityDef(source)).chain;
}

ArrayRef<4> arrayOf(Box const& box, std::vector<float>& out) {
    return {box, SharedArray<4>::DenseStrides(box), reinterpret_cast<char*>(out.data()), 0, typeid(float), 32};
}

// A file, and how its own library reads a box of it.
struct Format {
    std::string name;
    std::string peer;
    Index size;
    Index chunk;
    std::unique_ptr<BulkView::IBufferAccessor> chain;
    std::function<void(Box const&, float*)> read;
};

struct Shape {
    std::string name;
    std::vector<Box> boxes;
    Wanted wanted;
};

std::vector<Shape> shapesOf(Index const& size, Index const& chunk) {
    Shape random{"64 chunks at random", {}, kWholeChunks};
    std::minstd_rand numbers(1);
    for (int number = 0; number < 64; ++number) {
        Box box;
        for (int axis = 0; axis < 4; ++axis) {
            auto const chunks = static_cast<unsigned>(size[axis] / chunk[axis]);
            box.min[axis] = static_cast<int>(numbers() % chunks) * chunk[axis];
            box.max[axis] = box.min[axis] + chunk[axis];
        }
        random.boxes.push_back(box);
    }
    Shape whole{"whole", {Box::OfSize(size)}, kWholeChunks}, cube{"half of each side", {Box::OfSize(size)}, {}};
    Shape first{"a slice across axis 0", {Box::OfSize(size)}, {}},
        last{"a slice across axis 2", {Box::OfSize(size)}, {}};
    auto const cut = [&](Shape& shape, int axis, int count) {
        shape.boxes[0].min[axis] = size[axis] / 5;
        shape.boxes[0].max[axis] = size[axis] / 5 + count;
    };
    cut(first, 0, 1);
    cut(last, 2, 1);
    for (int axis = 0; axis < 3; ++axis) {
        cut(cube, axis, size[axis] / 2);
    }
    return {whole, first, last, cube, random};
}

void race(Report& report, Format const& format) {
    std::vector<float> ours(kCount), theirs(kCount);
    for (Shape const& shape : shapesOf(format.size, format.chunk)) {
        Contest contest(format.name);
        contest.enter(shape.name, [&] {
            std::uint64_t sum = 0;
            for (Box const& box : shape.boxes) {
                Box const dense{{}, box.max - box.min};
                readRegion(*format.chain, Region(box), arrayOf(dense, ours));
                sum += checksum(ours, static_cast<std::size_t>(box.pointCount()));
            }
            return sum;
        });
        contest.enter(format.peer, [&] {
            std::uint64_t sum = 0;
            for (Box const& box : shape.boxes) {
                format.read(box, theirs.data());
                sum += checksum(theirs, static_cast<std::size_t>(box.pointCount()));
            }
            return sum;
        });
        contest.run();
        report.ratio(contest, shape.name, format.peer, shape.wanted);
    }
}

// The library that reads one chunk at a time puts its part of a box in its place.
template <class ReadChunk>
void readByChunks(Index const& chunk, Box const& box, float* out, ReadChunk readChunk) {
    std::vector<float> samples(static_cast<std::size_t>(Box::OfSize(chunk).pointCount()));
    for (int i = box.min[0] / chunk[0]; i * chunk[0] < box.max[0]; ++i) {
        for (int j = box.min[1] / chunk[1]; j * chunk[1] < box.max[1]; ++j) {
            for (int k = box.min[2] / chunk[2]; k * chunk[2] < box.max[2]; ++k) {
                Index const first{i * chunk[0], j * chunk[1], k * chunk[2], 0};
                Box const whole{first, first + chunk};
                if (whole == box) {
                    return readChunk(Index(i, j, k, 0), out);
                }
                readChunk(Index(i, j, k, 0), samples.data());
                auto part = whole;
                part.intersect(box);
                for (int a = part.min[0]; a < part.max[0]; ++a) {
                    for (int b = part.min[1]; b < part.max[1]; ++b) {
                        auto const from =
                            ((a - first[0]) * chunk[1] + b - first[1]) * chunk[2] + part.min[2] - first[2];
                        auto const to =
                            ((a - box.min[0]) * box.size(1) + b - box.min[1]) * box.size(2) + part.min[2] - box.min[2];
                        std::copy_n(samples.data() + from, part.size(2), out + to);
                    }
                }
            }
        }
    }
}

constexpr Index kCube{kSide, kSide, kSide, 1}, kChunk{48, 48, 96, 1};

void raceNetcdf(Report& report, Folder const& folder) {
    Files::NetcdfLayout layout;
    layout.shape = {kSide, kSide, kSide};
    layout.chunks = {kChunk[0], kChunk[1], kChunk[2]};
    auto const path = folder.path / "chunks.nc";
    Files::createNetcdf(path, layout);
    fill(*Files::openNetcdfVariable({path, layout.variable, {false, true}}).store);
    int file = 0, variable = 0;
    require(nc_open(path.c_str(), NC_NOWRITE, &file) == NC_NOERR);
    require(nc_inq_varid(file, layout.variable.c_str(), &variable) == NC_NOERR);
    require(nc_set_var_chunk_cache(file, variable, 0, 0, 0) == NC_NOERR);
    auto const read = [&](Box const& box, float* out) {
        std::size_t start[3], count[3];
        for (int axis = 0; axis < 3; ++axis) {
            start[axis] = static_cast<std::size_t>(box.min[axis]);
            count[axis] = static_cast<std::size_t>(box.size(axis));
        }
        require(nc_get_vara_float(file, variable, start, count, out) == NC_NOERR);
    };
    auto const chain = open(Files::NetcdfFileDef(path, layout.variable));
    race(report, {"netCDF", "nc_get_vara", kCube, kChunk, chain->createClone(), read});
    std::vector<float> ours(kCount), theirs(kCount);
    for (int const step : {2, 3}) {
        ExtentImpl<int> const along{0, step, (kSide - 1) / step + 1}, all{0, 1, kSide}, one{0, 1, 1};
        auto const whole = Box::OfSize({kSide, kSide, kSide, 1});
        auto const some = Box::OfSize({along.count, along.count, along.count, 1});
        Contest contest("netCDF: every " + std::string(step == 2 ? "second" : "third") + " sample along each axis");
        contest.enter("decimated", [&] {
            readRegion(*chain, Region{along, along, along, one}, arrayOf(some, ours));
            return keep(ours.data()), std::uint64_t{0};
        });
        contest.enter("the whole", [&] {
            readRegion(*chain, Region{all, all, all, one}, arrayOf(whole, theirs));
            return keep(theirs.data()), std::uint64_t{0};
        });
        contest.run();
        report.ratio(contest, "decimated", "the whole", {1.0});
    }
    nc_close(file);
}

void raceHdf5(Report& report, Folder const& folder, int deflateLevel) {
    Files::Hdf5Layout layout;
    layout.shape = {kSide, kSide, kSide};
    layout.chunks = {kChunk[0], kChunk[1], kChunk[2]};
    layout.deflateLevel = deflateLevel;
    auto const path = folder.path / ("chunks" + std::to_string(deflateLevel) + ".h5");
    Files::createHdf5(path, layout);
    fill(*Files::openHdf5DataSet({path, layout.dataSet, {false, true}}).store);
    hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    hid_t const access = H5Pcreate(H5P_DATASET_ACCESS);
    require(H5Pset_chunk_cache(access, 0, 0, 1) >= 0);
    hid_t const set = H5Dopen2(file, layout.dataSet.c_str(), access);
    require(set >= 0);
    auto const read = [&](Box const& box, float* out) {
        hsize_t start[3], count[3];
        for (int axis = 0; axis < 3; ++axis) {
            start[axis] = static_cast<hsize_t>(box.min[axis]);
            count[axis] = static_cast<hsize_t>(box.size(axis));
        }
        hid_t const space = H5Dget_space(set), memory = H5Screate_simple(3, count, nullptr);
        H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr);
        require(H5Dread(set, H5T_NATIVE_FLOAT, memory, space, H5P_DEFAULT, out) >= 0);
        H5Sclose(memory);
        H5Sclose(space);
    };
    auto chain = open(Files::Hdf5FileDef(path, layout.dataSet));
    race(report, {deflateLevel == 0 ? "HDF5" : "HDF5, deflated", "H5Dread", kCube, kChunk, std::move(chain), read});
    H5Dclose(set);
    H5Pclose(access);
    H5Fclose(file);
}

void raceTiff(Report& report, Folder const& folder, bool isDeflated) {
    constexpr int kTile = 256, kAcross = 2, kBands = 27;
    constexpr tmsize_t kTileBytes = tmsize_t{kTile} * kTile * tmsize_t{sizeof(float)};
    Index const size{kBands, kAcross * kTile, kAcross * kTile, 1}, chunk{1, kTile, kTile, 1};
    Files::TiffLayout layout;
    layout.shape = {size[0], size[1], size[2]};
    layout.isDeflated = isDeflated;
    auto const path = folder.path / (isDeflated ? "deflated.tif" : "tiles.tif");
    Files::createTiff(path, layout);
    fill(*Files::openTiffImage(Files::TiffFileDef(path, {std::nullopt, true})).store);
    TIFF* const tiff = TIFFOpen(path.c_str(), "r");
    require(tiff != nullptr);
    auto const read = [&](Box const& box, float* out) {
        readByChunks(chunk, box, out, [&](Index const& at, float* to) {
            auto const tile = static_cast<std::uint32_t>((at[0] * kAcross + at[1]) * kAcross + at[2]);
            require(TIFFReadEncodedTile(tiff, tile, to, kTileBytes) == kTileBytes);
        });
    };
    auto chain = open(Files::TiffFileDef(path));
    race(report, {isDeflated ? "TIFF, deflated" : "TIFF", "TIFFReadEncodedTile", size, chunk, std::move(chain), read});
    TIFFClose(tiff);
}

void raceZarr(Report& report, Folder const& folder) {
    Files::ZarrLayout layout;
    layout.shape = {kSide, kSide, kSide};
    layout.chunks = {kChunk[0], kChunk[1], kChunk[2]};
    auto const path = folder.path / "chunks.zarr";
    Files::createZarr(path, layout);
    fill(*Files::openZarrArray(Files::ZarrFileDef(path, "", {true})).store);
    std::size_t const bytes = sizeof(float) * static_cast<std::size_t>(Box::OfSize(kChunk).pointCount());
    std::vector<char> packed;
    auto const readChunk = [&](Index const& at, float* to) {
        std::string const name = std::to_string(at[0]) + "." + std::to_string(at[1]) + "." + std::to_string(at[2]);
        std::ifstream file(path / name, std::ios::binary | std::ios::ate);
        packed.resize(static_cast<std::size_t>(file.tellg()));
        file.seekg(0).read(packed.data(), static_cast<std::streamsize>(packed.size()));
        require(blosc_decompress_ctx(packed.data(), to, bytes, 1) == static_cast<int>(bytes));
    };
    auto const read = [&](Box const& box, float* out) { readByChunks(kChunk, box, out, readChunk); };
    race(report, {"Zarr, blosc", "blosc_decompress", kCube, kChunk, open(Files::ZarrFileDef(path)), read});
}

void raceRaw(Report& report, Folder const& folder) {
    Files::RawLayout const layout{{kSide, kSide, kSide}, "float32", Files::RawLayout::ByteOrder::Big, 100, {}};
    auto const path = folder.path / "samples.raw";
    Files::createRaw(path, layout);
    fill(*Files::openRawStore(Files::RawFileDef(path, layout, true)));
    auto const chain = open(Files::RawFileDef(path, layout));
    std::vector<float> ours(kCount), from(kCount), to(kCount);
    Box const whole = Box::OfSize({kSide, kSide, kSide, 1});
    readRegion(*chain, Region(whole), arrayOf(whole, from));
    Contest contest("raw, big-endian floats");
    contest.enter("whole", [&] {
        readRegion(*chain, Region(whole), arrayOf(whole, ours));
        return checksum(ours, kCount);
    });
    contest.enter("memcpy", [&] {
        std::memcpy(to.data(), from.data(), kCount * sizeof(float));
        return keep(to.data()), checksum(to, kCount);
    });
    contest.run();
    report.ratio(contest, "whole", "memcpy", {1.3});
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report(
        "File formats",
        "28 MB of floats in the chunks that our own layouts choose, 48 by 48 by 96, or in tiles of 256 by 256; the "
        "files are "
        "in memory. Neither our pool nor the peers' caches keep anything, so that each row shows what reading costs.");
    Folder const folder;
    raceNetcdf(report, folder);
    raceHdf5(report, folder, 0);
    raceHdf5(report, folder, 4);
    raceTiff(report, folder, /*isDeflated=*/false);
    raceTiff(report, folder, /*isDeflated=*/true);
    raceZarr(report, folder);
    raceRaw(report, folder);
}
