#include "relief.h"

#include "brick_accessor.h"
#include "netcdf_source.h"
#include "png_file.h"
#include "progress.h"
#include "raster.h"
#include "shading.h"
#include "terrain_source.h"

#include <dravik/adt/bulkview/typed_2d_views.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

namespace Relief {
namespace {

using View = BulkView::Typed2dRoView<float>;

constexpr BrickShape kGeneratedSize{2161, 4320};

struct Grid {
    std::shared_ptr<BrickSource const> source;
    std::string name;
    std::string unit;
    bool rowsGoNorth;
};

Grid generatedGrid(BrickShape size) {
    return {std::make_shared<TerrainSource>(size.rows, size.columns), "generated terrain", "meters", true};
}

Grid fileGrid(Options const& options) {
    auto const source = std::make_shared<NetcdfSource>(options.input, options.variable);
    std::string const name = source->variable() + " of " + options.input;
    if (source->rank() != 2) {
        throw std::runtime_error(name + " is no grid: it has " + std::to_string(source->rank()) + " axes, not two");
    }
    return {source, name, source->unit(), source->risesAlong(0)};
}

Grid openGrid(Options const& options, std::ostream& out) {
    std::string const generated = "generated";
    if (options.input == generated) {
        return generatedGrid(kGeneratedSize);
    }
    if (options.input.starts_with(generated + ":")) {
        auto const size = parseShape(options.input.substr(generated.size() + 1));
        return size ? generatedGrid(*size) : throw std::runtime_error("'" + options.input + "' names no size");
    }
    if (!options.inputGiven && !std::filesystem::exists(options.input)) {
        out << options.input << " is not there: drawing a generated terrain instead\n";
        return generatedGrid(kGeneratedSize);
    }
    return fileGrid(options);
}

// The whole view as a raster with north at the top. Walks brick by brick: the view holds one block at a time, so this
// order asks for each of them once.
Raster<float> readAll(View const& view, BrickShape brick, bool rowsGoNorth) {
    int const rows = view.size(0);
    int const columns = view.size(1);
    Raster<float> heights(rows, columns);
    Progress progress("reading", static_cast<long long>(rows) * columns);
    for (int top = 0, bottom = 0; top < rows; top = bottom) {
        bottom = top + std::min(brick.rows, rows - top);
        for (int left = 0, right = 0; left < columns; left = right) {
            right = left + std::min(brick.columns, columns - left);
            for (int row = top; row < bottom; ++row) {
                float* const to = heights.row(rowsGoNorth ? rows - 1 - row : row);
                for (int column = left; column < right; ++column) {
                    to[column] = view.get(row, column);
                }
            }
            progress.advance(static_cast<long long>(bottom - top) * (right - left));
        }
    }
    return heights;
}

// Seconds since the last look.
class Stopwatch {
  public:
    double lap() {
        auto const now = std::chrono::steady_clock::now();
        double const seconds = std::chrono::duration<double>(now - last_).count();
        last_ = now;
        return seconds;
    }

  private:
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

std::string number(char const* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

void reportGrid(std::ostream& out, Grid const& grid, ValueRange const& range) {
    Position const size = grid.source->size();
    out << "grid      " << grid.name << ", " << size[0] << " x " << size[1] << " samples\n";
    out << "range     ";
    if (range.lowest <= range.highest) {
        out << number("%g", range.lowest) << " to " << number("%g", range.highest)
            << (grid.unit.empty() ? "" : " " + grid.unit) << ", ";
    }
    out << range.missing << " missing\n";
}

void reportTraffic(std::ostream& out, BrickShape brick, Traffic const& traffic) {
    out << "requests  " << traffic.requests << " for bricks of " << brick.rows << " x " << brick.columns << ", "
        << traffic.samples << " samples read\n";
}

}  // namespace

void run(Options const& options, std::ostream& out) {
    Stopwatch stopwatch;
    Grid const grid = openGrid(options, out);
    Position const size = grid.source->size();
    BrickShape const brick{std::min(options.brick.rows, size[0]), std::min(options.brick.columns, size[1])};
    auto const traffic = std::make_shared<Traffic>();
    View const view(std::make_unique<BrickAccessor>(grid.source, Position(brick.rows, brick.columns, 1, 1), traffic));
    auto const heights = readAll(view, brick, grid.rowsGoNorth);
    double const readSeconds = stopwatch.lap();
    ValueRange const range = rangeOf(heights);
    auto const picture = shadedRelief(heights, range);
    double const shadeSeconds = stopwatch.lap();
    writePng(options.output, picture);
    double const writeSeconds = stopwatch.lap();

    reportGrid(out, grid, range);
    reportTraffic(out, brick, *traffic);
    out << "time      " << number("%.2f s", readSeconds + shadeSeconds + writeSeconds) << ": read "
        << number("%.2f", readSeconds) << ", shade " << number("%.2f", shadeSeconds) << ", write "
        << number("%.2f", writeSeconds) << "\n";
    out << "picture   " << options.output << ", " << picture.columns() << " x " << picture.rows() << " points\n";
}

}  // namespace Relief
