// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/segy/segy_file.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/testing/random.h"
#include "dravik/adt/testing/store_conformance.h"
#include "dravik/text/definition_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>

#include <unistd.h>

namespace Quorvel::Dravik::Files {
namespace {

using Adt::Testing::PlainArray;
using Box = Adt::OpenEndedRange<4, int>;
using Index = Adt::FixedVector<4, int>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

// A file as a foreign program writes it, trace by trace.
struct Notation {
    int format = 5;
    bool isLittleEndian = false;
    int sampleCount = 5;
    std::vector<std::pair<int, int>> traces;  // inline and crossline numbers
    int extensions = 0;

    void put(std::string& bytes, std::size_t at, std::size_t width, std::int64_t value) const {
        for (std::size_t k = 0; k < width; ++k) {
            bytes[at + (isLittleEndian ? k : width - 1 - k)] = static_cast<char>(value >> (8 * k) & 0xFF);
        }
    }
    template <class T, class SampleAt>
    std::string bytes(SampleAt sampleAt) const {
        std::string header(3600 + static_cast<std::size_t>(extensions) * 3200, '\0');
        header[0] = 'C';
        put(header, 3216, 2, 2000);
        put(header, 3220, 2, sampleCount);
        put(header, 3224, 2, format);
        put(header, 3504, 2, extensions);
        for (auto const& [line, crossline] : traces) {
            std::string trace(240, '\0');
            put(trace, 108, 2, 100);
            put(trace, 188, 4, line);
            put(trace, 192, 4, crossline);
            for (int k = 0; k < sampleCount; ++k) {
                T const sample = sampleAt(line, crossline, k);
                std::string one(reinterpret_cast<char const*>(&sample), sizeof sample);
                isLittleEndian ? void() : std::reverse(one.begin(), one.end());
                trace += one;
            }
            header += trace;
        }
        return header;
    }
};

class SegyFile : public testing::Test {
  protected:
    SegyFile() { std::filesystem::create_directories(folder); }
    ~SegyFile() override { std::filesystem::remove_all(folder); }

    std::filesystem::path write(std::string const& bytes) const {
        std::ofstream(folder / "line.sgy", std::ios::binary) << bytes;
        return folder / "line.sgy";
    }
    static int python(std::string const& script) {
        return std::system(("/usr/bin/python3 -c '" + script + "'").c_str());
    }

    template <class T>
    void conforms(int format, bool isLittleEndian, bool isCrosslineSorted) const {
        Notation notation{format, isLittleEndian, 20, {}, format == 3 ? 2 : 0};
        Adt::Testing::Random random;
        PlainArray<T> samples({6, 8, 20, 1});
        samples.fill(random, 98);
        for (int a = 0; a < (isCrosslineSorted ? 8 : 6); ++a) {
            for (int b = 0; b < (isCrosslineSorted ? 6 : 8); ++b) {
                notation.traces.emplace_back(
                    100 + 3 * (isCrosslineSorted ? b : a), -4 + 2 * (isCrosslineSorted ? a : b));
            }
        }
        auto const path = write(notation.bytes<T>([&](int line, int crossline, int k) {
            return samples.at({(line - 100) / 3, (crossline + 4) / 2, k, 0});
        }));
        Adt::Testing::expectStoreConforms<T>(
            {"format " + std::to_string(format), [&] { return openSegyVolume(SegyFileDef(path, true)).store; },
             samples});
        auto const info = openSegyVolume(SegyFileDef(path)).info;
        EXPECT_THAT(info.axes[0].coordinates, ElementsAre(100, 103, 106, 109, 112, 115));
        EXPECT_EQ(info.axes[1].coordinates.back(), 10);
        EXPECT_EQ(info.axes[2].coordinates[1], 102) << "milliseconds";
    }

    // Of this process alone, since a replay of inputs may run at the same time.
    std::filesystem::path const folder =
        std::filesystem::path(testing::TempDir()) / ("segy_file_test." + std::to_string(getpid()));
};

TEST_F(SegyFile, ConformsInEveryFormatAndOrder) {
    conforms<float>(5, false, false);
    conforms<float>(5, true, true);
    conforms<short>(3, false, true);
    conforms<int>(2, true, false);
    conforms<char>(8, false, false);
}

TEST_F(SegyFile, AgreesWithTheFormatsOwnLibrary) {
    auto const path = (folder / "foreign.sgy").string();
    for (int const format : {1, 5}) {
        ASSERT_EQ(
            python(
                "import segyio, numpy as n\n"
                "s = segyio.spec(); s.sorting = 2; s.format = " +
                std::to_string(format) +
                "; s.samples = range(7); s.ilines = range(3, 7); s.xlines = range(10, 15)\n"
                "f = segyio.create(\"" +
                path +
                "\", s)\n"
                "for t in range(20):\n"
                "    f.header[t] = {189: 3 + t // 5, 193: 10 + t % 5}\n"
                "    f.trace[t] = n.arange(7, dtype=n.float32) * 0.37 - t\n"
                "f.bin.update(tsort=2, hns=7)\n"
                "f.close()\n"),
            0);
        auto const volume = openSegyVolume(SegyFileDef(path, true));
        ASSERT_EQ(volume.store->size(), (Index{4, 5, 7, 1}));
        std::vector<float> samples(140);
        volume.store->read(Box::OfSize({4, 5, 7, 1}), samples.data());
        for (int n = 0; n < 140; ++n) {
            int const trace = n / 7, k = n % 7;
            ASSERT_NEAR(
                samples[static_cast<std::size_t>(n)], static_cast<float>(k) * 0.37f - static_cast<float>(trace), 1e-4)
                << "sample " << n << ", format " << format;
        }
        float const written = -118.625f;
        volume.store->write(Box{{2, 3, 4, 0}, {3, 4, 5, 1}}, &written);
        volume.store->flush();
        EXPECT_EQ(
            python(
                "import segyio\nf = segyio.open(\"" + path +
                "\")\nassert f.iline[5][3][4] == -118.625 and f.trace[13][5] != -118.625\n"),
            0);
    }
}

TEST_F(SegyFile, MakesFilesThatItsLibraryOpens) {
    SegyLayout layout;
    layout.inlines = {7, 2, 3};
    layout.crosslines = {1, 1, 4};
    layout.sampleCount = 6;
    layout.format = SegyLayout::Format::IbmFloat;
    createSegy(folder / "made.sgy", layout);
    EXPECT_THROW(createSegy(folder / "made.sgy", layout), std::system_error);
    auto beyond = layout;
    beyond.inlines.first = INT_MAX - 3;
    EXPECT_THROW(createSegy(folder / "beyond.sgy", beyond), std::invalid_argument);
    EXPECT_EQ(
        python(
            "import segyio\nf = segyio.open(\"" + (folder / "made.sgy").string() +
            "\")\nassert list(f.ilines) == [7, 9, 11] and len(f.samples) == 6 and f.trace[5][2] == 0\n"),
        0);
}

TEST_F(SegyFile, ShowsHolesAsMissingSamples) {
    Notation notation;
    notation.traces = {{1, 1}, {1, 2}, {2, 1}, {4, 3}};
    auto const path =
        write(notation.bytes<float>([](int i, int j, int k) { return static_cast<float>(100 * i + 10 * j + k); }));
    auto const store = openSegyVolume(SegyFileDef(path, true)).store;
    ASSERT_EQ(store->size(), (Index{4, 3, 5, 1}));
    EXPECT_FALSE(store->hasSamples(Box{{2, 0, 0, 0}, {3, 3, 5, 1}}));
    std::vector<float> slice(12);
    Box const second{{0, 0, 2, 0}, {4, 3, 3, 1}};
    store->read(second, slice.data());
    using testing::IsNan;
    EXPECT_THAT(
        slice, ElementsAre(112, 122, IsNan(), 212, IsNan(), IsNan(), IsNan(), IsNan(), IsNan(), IsNan(), IsNan(), 432));
    store->write(second, slice.data());
    slice[4] = 1;
    EXPECT_THAT(
        [&] { store->write(second, slice.data()); },
        ThrowsMessage<std::runtime_error>(HasSubstr("no trace at inline 2, crossline 2")));
}

TEST_F(SegyFile, ShowsLinesByTheirTraces) {
    Notation notation;
    notation.traces = {{0, 30}, {0, 20}, {0, 10}};
    auto const path = write(notation.bytes<float>([](int, int j, int k) { return static_cast<float>(j + k); }));
    auto const& openers = Adt::BulkView::Openers::standard();
    auto const source = openers.sourceAt(path);
    EXPECT_TRUE(source->equals(SegyFileDef(path)));
    EXPECT_TRUE(source->equals(*Text::sourceFromText(Text::toText(*source))));
    auto const data = openers.open(Adt::BulkDef::Entity::SourceEntityDef(*source));
    EXPECT_EQ(data.chain->getSize(), (Index{3, 5, 1, 1}));
    EXPECT_THAT(data.info.axes[0].coordinates, ElementsAre(30, 20, 10));
}

// Cut off and spoilt at every place: one line of text, or the samples.
TEST_F(SegyFile, SurvivesSpoiltFiles) {
    Adt::Testing::Random random;
    for (int round = 0; round < 500; ++round) {
        Notation notation;
        notation.traces = {{1, 1}, {1, 2}, {2, 1}, {2, 2}};
        if (random.chance(30)) {
            int const line = random.anyInt(), crossline = random.anyInt();
            notation.traces = {{line, crossline}, {random.anyInt(), random.anyInt()}};
        }
        std::string const whole = notation.bytes<float>([](int, int, int k) { return static_cast<float>(k); });
        std::string bytes =
            whole.substr(0, random.chance(20) ? random.between<std::size_t>(0, whole.size()) : whole.size());
        for (int spoilt = random.between(1, 3); spoilt > 0 && bytes.size() > 3200; --spoilt) {
            std::size_t const at = random.chance(50) ? random.between<std::size_t>(3200, 3599)
                                                     : random.between<std::size_t>(3200, bytes.size() - 1);
            bytes[std::min(at, bytes.size() - 1)] = static_cast<char>(random.between(-128, 127));
        }
        try {
            auto const store = openSegyVolume(SegyFileDef(write(bytes))).store;
            std::vector<double> samples(static_cast<std::size_t>(Box::OfSize(store->size()).pointCount()));
            store->read(Box::OfSize(store->size()), samples.data());
        } catch (std::exception const& e) {
            EXPECT_THAT(e.what(), testing::Not(HasSubstr("\n")));
        }
    }
}

TEST_F(SegyFile, RefusesNumbersThatMakeNoSurvey) {
    struct Row {
        std::vector<std::pair<int, int>> traces;
        char const* why;
    };
    for (Row const& row : {
             Row{{{INT_MIN, 1}, {INT_MAX, 2}}, "inline numbers are 4294967295 apart"},
             Row{{{1, INT_MIN}, {2, 0}}, "crossline numbers are 2147483648 apart"},
             Row{{{1, 1}, {2, 1}, {2, 1}}, "several traces at inline 2, crossline 1"},
         }) {
        Notation notation;
        notation.traces = row.traces;
        auto const path = write(notation.bytes<float>([](int, int, int) { return 0.0f; }));
        EXPECT_THAT([&] { openSegyVolume(SegyFileDef(path)); }, ThrowsMessage<std::runtime_error>(HasSubstr(row.why)));
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Files
