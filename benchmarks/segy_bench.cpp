// SPDX-License-Identifier: Apache-2.0
// What reading a SEG-Y volume costs beside the format's own library.

#include "report.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/files/segy/segy_file.h"

#include <segyio/segy.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

using Files::SegyLayout;
using Box = OpenEndedRange<4, int>;

constexpr int kLines = 160, kSamples = 400;  // inlines and crosslines; 41 MB
constexpr int kDepth = 177;

void require(bool condition, char const* what) {
    if (!condition) {
        std::fprintf(stderr, "segy_bench: %s\n", what);
        std::exit(EXIT_FAILURE);
    }
}

/// The same bits give the same number, whoever read them.
std::uint64_t checksum(float const* samples, std::size_t count) {
    std::uint64_t sum = 0;
    for (std::size_t n = 0; n < count; n += 97) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, samples + n, sizeof bits);
        sum = sum * 31 + bits;
    }
    return sum;
}

/// A volume in a file of its own, which goes with it.
class Volume {
  public:
    explicit Volume(SegyLayout::Format format)
        : path_(
              std::filesystem::temp_directory_path() /
              ("segy_bench." + std::to_string(getpid()) + "." + std::to_string(static_cast<int>(format)))) {
        SegyLayout layout;
        layout.inlines.count = layout.crosslines.count = kLines;
        layout.sampleCount = kSamples;
        layout.format = format;
        Files::createSegy(path_, layout);
        auto const store = Files::openSegyVolume(Files::SegyFileDef(path_, /*writable=*/true)).store;
        std::vector<float> line(std::size_t{kLines} * kSamples);
        for (int i = 0; i < kLines; ++i) {
            for (std::size_t n = 0; n < line.size(); ++n) {
                line[n] = static_cast<float>(static_cast<int>((n * 7919 + static_cast<std::size_t>(i)) % 4001) - 2000);
            }
            store->write(Box{{i, 0, 0, 0}, {i + 1, kLines, kSamples, 1}}, line.data());
        }
        store->flush();
    }
    Volume(Volume const&) = delete;
    Volume& operator=(Volume const&) = delete;
    ~Volume() { std::filesystem::remove(path_); }

    std::filesystem::path const& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

/// The format's own library, with the file read or mapped.
class Peer {
  public:
    Peer(Volume const& volume, int format, bool isMapped)
        : file_(segy_open(volume.path().c_str(), "rb")), format_(format), traceBytes_(segy_trsize(format, kSamples)) {
        require(file_ != nullptr, "the peer cannot open the file");
        std::vector<char> header(static_cast<std::size_t>(segy_binheader_size()));
        require(segy_binheader(file_, header.data()) == SEGY_OK, "the peer cannot read the header");
        first_ = segy_trace0(header.data());
        segy_set_format(file_, format);
        require(!isMapped || segy_mmap(file_) == SEGY_OK, "the peer cannot map the file");
    }
    Peer(Peer const&) = delete;
    Peer& operator=(Peer const&) = delete;
    ~Peer() { segy_close(file_); }

    std::uint64_t whole(std::vector<float>& samples) const {
        constexpr std::size_t kLine = std::size_t{kLines} * kSamples;
        for (int i = 0; i < kLines; ++i) {
            float* const line = samples.data() + static_cast<std::size_t>(i) * kLine;
            int const result = segy_read_line(file_, i * kLines, kLines, 1, 1, line, first_, traceBytes_);
            require(result == SEGY_OK, "the peer cannot read a line");
            segy_to_native(format_, kLine, line);
        }
        return checksum(samples.data(), samples.size());
    }
    std::uint64_t slice(std::vector<float>& samples) const {
        for (int trace = 0; trace < kLines * kLines; ++trace) {
            float* const to = samples.data() + trace;
            int const result = segy_readsubtr(file_, trace, kDepth, kDepth + 1, 1, to, nullptr, first_, traceBytes_);
            require(result == SEGY_OK, "the peer cannot read a sample");
        }
        segy_to_native(format_, kLines * kLines, samples.data());
        return checksum(samples.data(), kLines * kLines);
    }

  private:
    segy_file* file_;
    int format_;
    int traceBytes_;
    long first_ = 0;
};

void volume(Report& report, SegyLayout::Format format, char const* name) {
    Volume const made(format);
    BulkView::Openers openers(std::make_shared<BulkView::BrickPool>(std::int64_t{4} << 20));
    Files::registerSegy(openers);
    auto const chain = openers.open(BulkDef::Entity::SourceEntityDef(Files::SegyFileDef(made.path()))).chain;
    Peer const read(made, static_cast<int>(format), /*isMapped=*/false);
    Peer const mapped(made, static_cast<int>(format), /*isMapped=*/true);
    std::vector<float> samples(std::size_t{kLines} * kLines * kSamples);
    auto const ours = [&](Box const& box) {
        auto const array = SharedArray<4>::Make<float>(box);
        return [&, box, array] {
            BulkView::readRegion(*chain, ExtentK<4, int>(box), array);
            return checksum(
                reinterpret_cast<float const*>(array.constData()), static_cast<std::size_t>(box.pointCount()));
        };
    };
    Contest all(std::string(name) + ": all of 160² traces of 400 samples");
    all.enter("readRegion", ours(Box::OfSize(chain->getSize())));
    all.enter("segyio", [&] { return read.whole(samples); });
    all.enter("segyio, mapped", [&] { return mapped.whole(samples); });
    all.run();
    report.ratio(all, "readRegion", "segyio", {1.2});
    report.ratio(all, "readRegion", "segyio, mapped");

    Contest slice(std::string(name) + ": a time slice of them");
    slice.enter("readRegion", ours(Box{{0, 0, kDepth, 0}, {kLines, kLines, kDepth + 1, 1}}));
    slice.enter("segyio", [&] { return read.slice(samples); });
    slice.enter("segyio, mapped", [&] { return mapped.slice(samples); });
    slice.run();
    report.ratio(slice, "readRegion", "segyio", {0.1});
    report.ratio(slice, "readRegion", "segyio, mapped");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("SEG-Y", "A volume in the page cache, read as regions and by the format's own library.");
    volume(report, SegyLayout::Format::IeeeFloat, "IEEE floats");
    volume(report, SegyLayout::Format::IbmFloat, "IBM floats");
}
