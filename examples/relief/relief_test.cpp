// SPDX-License-Identifier: Apache-2.0
// The demo as its users meet it: the program, what it prints, the pictures it leaves.

#include "chain.h"
#include "grid.h"
#include "made_files.h"
#include "raster.h"
#include "relief.h"

#include <dravik/adt/bulkview/views/typed_2d_views.h>
#include <dravik/adt/testing/random.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <png.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace Relief {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using Testing::Folder;
using ::testing::HasSubstr;
using Testing::MadeFile;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

std::string contentOf(std::string const& path) {
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

struct Outcome {
    int status;
    std::string output, errors;
};

// Runs the program; its picture is "picture.png" of the folder unless the arguments say otherwise. `before` is what the
// shell does first.
Outcome runRelief(Folder const& folder, std::string const& arguments, std::string const& before = "") {
    Folder const records;
    std::string const command = before + RELIEF_PROGRAM + " --output '" + folder.file("picture.png") + "' " +
                                arguments + " >'" + records.file("out") + "' 2>'" + records.file("err") + "'";
    int const status = std::system(command.c_str());
    return {
        WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(records.file("out")), contentOf(records.file("err"))};
}

Raster<Colour> pictureIn(std::string const& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        ADD_FAILURE() << path << ": " << image.message;
        return {};
    }
    image.format = PNG_FORMAT_RGB;
    Raster<Colour> picture(static_cast<int>(image.height), static_cast<int>(image.width));
    EXPECT_NE(png_image_finish_read(&image, nullptr, picture.row(0), 0, nullptr), 0) << image.message;
    return picture;
}

int brightness(Colour colour) {
    return colour.red + colour.green + colour.blue;
}

// The files of a test: a cone of 40 rows (coordinates rising) and 60 columns around row 30, column 20, one corner of it
// missing, with more variables beside it; a text; nothing.
struct Files : Folder {
    Files() {
        std::vector<float> heights, latitudes;
        for (int row = 0; row < 40; ++row) {
            latitudes.push_back(static_cast<float>(row));
            for (int column = 0; column < 60; ++column) {
                heights.push_back(100 - std::hypot(static_cast<float>(row - 30), static_cast<float>(column - 20)));
            }
        }
        heights[0] = -999;
        MadeFile made(coneFile);
        int const variable = made.addVariable("cone", NC_FLOAT, {40, 60});
        made.addNumber(variable, "_FillValue", NC_FLOAT, -999);
        made.addText(variable, "units", "meters");
        made.addCoordinates("cone_0", latitudes);
        made.addVariable("deep", NC_FLOAT, {2, 3, 4});
        made.addVariable("words", NC_CHAR, {3, 4});
        made.write(variable, heights);
        std::ofstream(file("text.nc")) << "latitude,longitude,height\n";
        MadeFile const empty(file("empty.nc"));
    }
    std::string const coneFile = file("cone.nc");
    std::string const cone = "--input '" + coneFile + "' ";
};

// What the program says: in several lines what it did, or else in one line what is wrong, and then it leaves no
// picture.
TEST(Relief, TellsWhatItDid) {
    Files const files;
    std::string const& cone = files.cone;
    std::string const counts = "9 for bricks of 16 x 25, 2400 samples read\n";
    std::string const values = "50.7963 to 100 meters, mean 77.1, 1 missing\n";
    struct Row {
        int status;
        std::string arguments;
        std::vector<std::string> says;
    };
    Row const rows[] = {
        {0, cone + "--brick 16x25", {"cone of " + files.coneFile + ", 40 x 60 samples\n", values, counts}},
        {0, cone + "--bits 8", {"\nas text   {\"dravik\":1,\"entity\":{\"source\":{\"format\":\"FILEFORMAT_OTHER\","}},
        {0, cone + "--brick 16x25", {"120 requests, 92.5 % of them answered without reading\n", ", 60 x 40 points\n"}},
        {0, cone + "--brick 16x25 --bits 8", {values, counts}},
        {0, "--input generated:90x180 --brick 64", {"terrain, 90 x 180 samples\n", "6 for bricks of 64 x 64, 16200 "}},
        {0, cone + "--swap generated:40x60", {"\nbelow     generated terrain\n"}},
        {1, "--input nothing.nc", {"cannot open 'nothing.nc'"}},
        {1, "--input '" + files.file("text.nc") + "'", {"cannot open '"}},
        {1, "--input '" + files.file("empty.nc") + "'", {"there is no grid"}},
        {1, cone + "--variable depth", {"there is no variable 'depth' in '"}},
        {1, cone + "--variable deep", {"deep of "}},
        {1, cone + "--variable words", {"variable 'words' of "}},
        {1, cone + "--output '" + files.file("nowhere/p.png") + "'", {"cannot write '"}},
        {1, cone + "--output /", {"cannot write '/'"}},
        {1, "--input generated:4xx", {"'generated:4xx' names no size"}},
        {2, cone + "--brick 0x8", {"--brick: '0x8' is no size"}},
        {2, cone + "--subset 0:2", {"--subset: '0:2' is no part"}},
        {2, cone + "--subset 0:0:2", {"--subset: '0:0:2' is no part"}},
        {1, cone + "--subset 0:1:9 60:1:5", {"nothing of cone of "}},
        {2, cone + "--bits 16", {"--bits: "}},
        {1, cone + "--swap nothing.nc", {"cannot open 'nothing.nc'"}},
        {1, cone + "--swap generated:40x61", {"generated terrain does not lie as "}},
        {2, cone + "--blick 8", {"The following argument"}},
    };
    for (Row const& row : rows) {
        Folder const folder;
        auto const outcome = runRelief(folder, row.arguments);
        EXPECT_EQ(outcome.status, row.status) << row.arguments << ": " << outcome.errors;
        EXPECT_THAT(outcome.errors, MatchesRegex(row.status == 0 ? "" : "relief: [^\n]+\n")) << row.arguments;
        for (std::string const& line : row.says) {
            EXPECT_THAT(row.status == 0 ? outcome.output : outcome.errors, HasSubstr(line)) << row.arguments;
        }
        EXPECT_EQ(folder.fileCount(), row.status == 0 ? 2u : 0u) << row.arguments;
        EXPECT_THAT(outcome.output, Not(HasSubstr("Timing")));
    }
    Folder const folder;
    auto const help = runRelief(folder, "--help").output;
    for (char const* const option : {"--variable", "--brick", "--subset", "--bits", "--swap", "--output", "--help"}) {
        EXPECT_THAT(help, HasSubstr(option));
    }
    EXPECT_THAT(
        runRelief(folder, "--input generated:4", "DRAVIK_TIMERS=1 ").output,
        AllOf(HasSubstr("\nTiming results:\n  relief: count "), EndsWith("End of report\n\n")));
}

TEST(Relief, DrawsNorthUpAndLitFromNorthWest) {
    Files const files;
    runRelief(files, files.cone);
    auto const picture = pictureIn(files.file("picture.png"));
    EXPECT_GT(pictureIn(files.file("picture-histogram.png")).columns(), 180);
    ASSERT_TRUE(picture.rows() == 40 && picture.columns() == 60);
    Colour const missing = picture.row(39)[0];
    EXPECT_LT(missing.red - missing.blue, 10) << "row 0 is the southernmost";
    EXPECT_NE(missing, picture.row(0)[0]) << "row 0 is the southernmost";
    constexpr int kTop = 39 - 30;
    EXPECT_GT(brightness(picture.row(kTop - 5)[20 - 5]), brightness(picture.row(kTop + 5)[20 + 5]) + 60);

    runRelief(files, files.cone + " --bits 8");
    auto const bytes = pictureIn(files.file("picture.png"));
    EXPECT_EQ(bytes.row(39)[0], missing) << "what is missing stays missing";
    EXPECT_NE(bytes.values(), picture.values());
    int difference = 0;
    for (int column = 0; column < 60; ++column) {
        difference += std::abs(brightness(bytes.row(20)[column]) - brightness(picture.row(20)[column]));
    }
    EXPECT_LT(difference, 60 * 90) << "of 3 * 255 per point";
}

TEST(Relief, GeneratesWhatNobodyNamedAndNobodyInstalled) {
    Folder const folder;
    Options options;
    options.input = folder.file("not_installed.nc");
    options.output = folder.file("picture.png");
    options.brick = {8, 8};
    options.subset = {{0, 40, 54}, {0, 40, 108}};
    std::ostringstream out;
    run(options, out);
    EXPECT_THAT(out.str(), StartsWith(options.input + " is not there: drawing a generated terrain instead\n"));
    EXPECT_THAT(out.str(), HasSubstr("generated terrain, 2161 x 4320 samples\n"));
}

TEST(Relief, AFullDiskLeavesTheOldPicture) {
    Files const files;
    ASSERT_EQ(runRelief(files, files.cone).status, 0);
    auto const before = contentOf(files.file("picture.png"));
    auto const fileCount = files.fileCount();
    auto const outcome = runRelief(files, files.cone + "--brick 8", "trap '' XFSZ; ulimit -f 1; ");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, StartsWith("relief: cannot write '"));
    EXPECT_EQ(contentOf(files.file("picture.png")), before);
    EXPECT_EQ(files.fileCount(), fileCount);
}

TEST(Relief, ShowsTheSubsetCountedFromTheNorth) {
    Grid const grid = openGrid(entityOf("generated:50x80"), "");
    std::vector<float> whole(50 * 80);
    grid.store->read(Box::OfSize(grid.store->size()), whole.data());
    auto const [lowest, highest] = std::minmax_element(whole.begin(), whole.end());
    EXPECT_LT(*lowest, -3000) << "oceans and mountains";
    EXPECT_GT(*highest, 2000) << "oceans and mountains";
    Adt::Testing::Random random;
    for (int round = 0; round < 50; ++round) {
        auto const any = [&](int length) {
            int const step = random.oneOf({-3, -1, 1, 2, 7});
            int const origin = random.between(0, length - 1);
            int const room = step > 0 ? length - 1 - origin : origin;
            return Adt::ExtentImpl<int>{origin, step, random.between(1, room / std::abs(step) + 1)};
        };
        auto const rows = any(50);
        auto const columns = any(80);
        auto chain = makeChain(grid, {random.between(1, 20), random.between(1, 90)}, *viewOf(grid, {rows, columns}));
        BulkView::Typed2dRoView<float> const view(std::move(chain.top));
        ASSERT_EQ(view.size(), (Adt::FixedVector<2, int>(rows.count, columns.count)));
        for (int row = 0; row < rows.count; ++row) {
            for (int column = 0; column < columns.count; ++column) {
                int const southernRow = 49 - (rows.origin + row * rows.step);
                int const place = southernRow * 80 + columns.origin + column * columns.step;
                ASSERT_EQ(view(row, column), whole[static_cast<std::size_t>(place)])
                    << row << "," << column << " of " << rows << " x " << columns;
            }
        }
    }
}

TEST(Relief, SwapsTheGridUnderTheOpenView) {
    Files const files;
    Grid const cone = openGrid(entityOf(files.coneFile), "cone");
    Grid const terrain = openGrid(entityOf("generated:40x60"), "");
    auto chain = makeChain(cone, {16, 16}, *viewOf(cone, {}));
    BulkView::Typed2dRoView<float> const view(std::move(chain.top));
    EXPECT_EQ(view(9, 20), 100.0f);
    exchangeGrid(chain, terrain, {16, 16});
    float expected = 0;
    terrain.store->read({Position(30, 20, 0, 0), Position(31, 21, 1, 1)}, &expected);
    EXPECT_EQ(view(9, 20), expected) << "neither the view nor the cache serves what was there before";
}

}  // namespace
}  // namespace Relief
