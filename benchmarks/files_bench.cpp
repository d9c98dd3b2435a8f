// SPDX-License-Identifier: Apache-2.0
// What reading raw and netCDF files costs beside the format's own library and the memory copy of the same bytes.

#include "report.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/files/netcdf/netcdf_file.h"
#include "dravik/files/raw/raw_file.h"

#include <netcdf.h>

#include <unistd.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using Box = OpenEndedRange<4, int>;
using Region = ExtentK<4, int>;

constexpr int kSide = 192;  // samples along each axis; 28 MB
constexpr std::size_t kCount = std::size_t{kSide} * kSide * kSide;

void require(bool condition) {
    if (!condition) {
        std::fprintf(stderr, "files_bench: a peer failed\n");
        std::exit(EXIT_FAILURE);
    }
}

std::uint64_t checksum(std::vector<float> const& samples, std::size_t count) {
    return std::accumulate(
        samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(count), std::uint64_t{0},
        [](std::uint64_t sum, float sample) { return sum + std::bit_cast<std::uint32_t>(sample); });
}

// A folder that goes at the end.
struct Folder {
    Folder() { std::filesystem::create_directories(path); }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;
    ~Folder() { std::filesystem::remove_all(path); }
    std::filesystem::path const path =
        std::filesystem::temp_directory_path() / ("files_bench." + std::to_string(getpid()));
};

void fill(BulkView::IBrickStore& store) {
    std::vector<float> samples(kCount);
    std::iota(samples.begin(), samples.end(), 0.5f);
    store.write(Box::OfSize({kSide, kSide, kSide, 1}), samples.data());
    store.flush();
}

std::unique_ptr<BulkView::IBufferAccessor> open(BulkDef::SourceDef const& source) {
    BulkView::Openers openers(std::make_shared<BulkView::BrickPool>(0));
    Files::registerRaw(openers);
    Files::registerNetcdf(openers);
    return openers.open(BulkDef::Entity::SourceEntityDef(source)).chain;
}

Region everyNth(int step) {
    ExtentImpl<int> const along{0, step, (kSide - 1) / step + 1};
    return {along, along, along, ExtentImpl<int>{0, 1, 1}};
}

std::uint64_t read(BulkView::IBufferAccessor& chain, int step, std::vector<float>& out) {
    int const count = (kSide - 1) / step + 1;
    auto const box = Box::OfSize({count, count, count, 1});
    readRegion(
        chain, everyNth(step),
        ArrayRef<4>(box, SharedArray<4>::DenseStrides(box), reinterpret_cast<char*>(out.data()), 0, typeid(float), 32));
    return checksum(out, static_cast<std::size_t>(box.pointCount()));
}

void readNetcdf(Report& report, Folder const& folder) {
    Files::NetcdfLayout layout;
    layout.shape = {kSide, kSide, kSide};
    layout.chunks = {32, 64, 64};
    auto const path = folder.path / "chunks.nc";
    Files::createNetcdf(path, layout);
    fill(*Files::openNetcdfVariable({path, layout.variable, {false, true}}).store);
    auto const chain = open(Files::NetcdfFileDef(path, layout.variable));
    std::vector<float> ours(kCount), theirs(kCount);
    int file = 0, variable = 0;
    require(nc_open(path.c_str(), NC_NOWRITE, &file) == NC_NOERR);
    require(nc_inq_varid(file, layout.variable.c_str(), &variable) == NC_NOERR);
    Contest contest("netCDF, 192³ floats in chunks");
    contest.enter("whole", [&] { return read(*chain, 1, ours); });
    contest.enter("nc_get_var", [&] {
        require(nc_get_var_float(file, variable, theirs.data()) == NC_NOERR);
        return checksum(theirs, kCount);
    });
    contest.run();
    report.ratio(contest, "whole", "nc_get_var", {1.15});
    for (int const step : {2, 3}) {
        // Both sums are there for the time alone: they are of different samples.
        Contest steps("netCDF, every " + std::string(step == 2 ? "second" : "third") + " sample along each axis");
        std::uint64_t const same = read(*chain, 1, theirs);
        steps.enter("decimated", [&] { return read(*chain, step, ours), same; });
        steps.enter("the whole", [&] { return read(*chain, 1, theirs), same; });
        steps.run();
        report.ratio(steps, "decimated", "the whole", {1.0});
    }
    nc_close(file);
}

void readRaw(Report& report, Folder const& folder) {
    Files::RawLayout const layout{{kSide, kSide, kSide}, "float32", Files::RawLayout::ByteOrder::Big, 100, {}};
    auto const path = folder.path / "samples.raw";
    Files::createRaw(path, layout);
    fill(*Files::openRawStore(Files::RawFileDef(path, layout, true)));
    auto const chain = open(Files::RawFileDef(path, layout));
    std::vector<float> ours(kCount), from(kCount), to(kCount);
    read(*chain, 1, from);
    Contest contest("raw, 192³ big-endian floats");
    contest.enter("whole", [&] { return read(*chain, 1, ours); });
    contest.enter("memcpy", [&] {
        std::memcpy(to.data(), from.data(), kCount * sizeof(float));
        return checksum(to, kCount);
    });
    contest.run();
    report.ratio(contest, "whole", "memcpy", {1.3});
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report(
        "Files: raw and netCDF",
        "Whole files through a pool that keeps nothing; the files are in memory. Each sum is timed as well.");
    Folder const folder;
    readNetcdf(report, folder);
    readRaw(report, folder);
}
