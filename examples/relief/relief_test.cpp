// The demo as its users meet it: the program, what it prints, the pictures it leaves.

#include "chain.h"
#include "grid.h"
#include "made_files.h"
#include "raster.h"
#include "relief.h"

#include <dravik/adt/bulkview/typed_2d_views.h>
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

using Testing::Folder;
using ::testing::HasSubstr;
using Testing::MadeFile;
using ::testing::MatchesRegex;
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

TEST(Relief, TellsWhatItDid) {
    Files const files;
    struct Row {
        char const* name;
        std::string arguments;
        std::size_t pictures;
        std::vector<std::string> says;
        std::string before = "";
    };
    std::string const counts = "9 for bricks of 16 x 25, 2400 samples read\n";
    std::string const values = "50.7963 to 100 meters, mean 77.1, 1 missing\n";
    Row const rows[] = {
        {"File",
         files.cone + "--brick 16x25",
         2,
         {"cone of " + files.coneFile + ", 40 x 60 samples\n", values, counts,
          "120 requests, 92.5 % of them answered without reading\n", "/picture.png, 60 x 40 points\n"}},
        {"Bytes", files.cone + "--brick 16x25 --bits 8", 2, {values, counts}},
        {"Generated",
         "--input generated:90x180 --brick 64",
         2,
         {"generated terrain, 90 x 180 samples\n", "6 for bricks of 64 x 64, 16200 samples read\n"}},
        {"Timers",
         "--input generated:4",
         2,
         {"\nTiming results:\n  relief: count ", "End of report\n\n"},
         "DRAVIK_TIMERS=1 "},
        {"Swap", files.cone + "--swap generated:40x60", 2, {"\nbelow     generated terrain\n"}},
        {"Help",
         "--help",
         0,
         {"--input", "--variable", "--brick", "--subset", "--bits", "--swap", "--output", "--help"}},
    };
    for (Row const& row : rows) {
        Folder const folder;
        auto const outcome = runRelief(folder, row.arguments, row.before);
        EXPECT_TRUE(outcome.status == 0 && outcome.errors.empty()) << row.name << ": " << outcome.errors;
        for (std::string const& line : row.says) {
            EXPECT_THAT(outcome.output, HasSubstr(line)) << row.name;
        }
        EXPECT_EQ(outcome.output.find("Timing") == std::string::npos, row.before.empty()) << row.name;
        EXPECT_EQ(folder.fileCount(), row.pictures) << row.name;
    }
}

TEST(Relief, DrawsWithNorthUpAndTheSunInTheNorthWestAndBytesMuchAsFloats) {
    Files const files;
    runRelief(files, files.cone);
    auto const picture = pictureIn(files.file("picture.png"));
    EXPECT_GT(pictureIn(files.file("picture-histogram.png")).columns(), 180);
    ASSERT_TRUE(picture.rows() == 40 && picture.columns() == 60);
    Colour const missing = picture.row(39)[0];
    EXPECT_TRUE(missing.red - missing.blue < 10 && missing != picture.row(0)[0]) << "row 0 is the southernmost";
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

TEST(Relief, SaysInOneLineWhatIsWrongAndLeavesNoPicture) {
    Files const files;
    std::string const& cone = files.cone;
    struct Row {
        char const* name;
        std::string arguments;
        int status;
        std::string message;
    };
    Row const rows[] = {
        {"NoFile", "--input nothing.nc", 1, "cannot open 'nothing.nc'"},
        {"TextFile", "--input '" + files.file("text.nc") + "'", 1, "cannot open '"},
        {"NoGrid", "--input '" + files.file("empty.nc") + "'", 1, "there is no grid"},
        {"NoVariable", cone + "--variable depth", 1, "there is no variable 'depth' in '"},
        {"ThreeAxes", cone + "--variable deep", 1, "deep of "},
        {"Letters", cone + "--variable words", 1, "variable 'words' of "},
        {"NoFolder", cone + "--output '" + files.file("nowhere/p.png") + "'", 1, "cannot write '"},
        {"OutputIsFolder", cone + "--output /", 1, "cannot write '/'"},
        {"BadSize", "--input generated:4xx", 1, "'generated:4xx' names no size"},
        {"BadBrick", cone + "--brick 0x8", 2, "--brick: '0x8' is no size"},
        {"NoSubset", cone + "--subset 0:2", 2, "--subset: '0:2' is no part"},
        {"StandingStill", cone + "--subset 0:0:2", 2, "--subset: '0:0:2' is no part"},
        {"SubsetOutside", cone + "--subset 0:1:9 60:1:5", 1, "nothing of cone of "},
        {"OddBits", cone + "--bits 16", 2, "--bits: "},
        {"NoSwap", cone + "--swap nothing.nc", 1, "cannot open 'nothing.nc'"},
        {"SwapOfOtherSize", cone + "--swap generated:40x61", 1, "generated terrain does not lie as "},
        {"UnknownOption", cone + "--blick 8", 2, "The following argument"},
    };
    for (Row const& row : rows) {
        Folder const folder;
        auto const outcome = runRelief(folder, row.arguments);
        EXPECT_EQ(outcome.status, row.status) << row.name << ": " << outcome.errors;
        EXPECT_THAT(outcome.errors, StartsWith("relief: " + row.message)) << row.name;
        EXPECT_THAT(outcome.errors, MatchesRegex("[^\n]+\n")) << row.name;
        EXPECT_EQ(folder.fileCount(), 0u) << row.name;
    }
}

TEST(Relief, ADiskThatFillsUpLeavesThePictureOfTheLastRun) {
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
    grid.source->read(Box::OfSize(grid.source->size()), whole.data());
    auto const [lowest, highest] = std::minmax_element(whole.begin(), whole.end());
    EXPECT_TRUE(*lowest < -3000 && *highest > 2000) << "oceans and mountains";
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
    terrain.source->read({Position(30, 20, 0, 0), Position(31, 21, 1, 1)}, &expected);
    EXPECT_EQ(view(9, 20), expected) << "neither the view nor the cache serves what was there before";
}

}  // namespace
}  // namespace Relief
