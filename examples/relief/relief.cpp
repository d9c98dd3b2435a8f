#include "relief.h"

#include "chain.h"
#include "grid.h"
#include "histogram_picture.h"
#include "png_file.h"
#include "progress.h"
#include "raster.h"
#include "shading.h"

#include <dravik/adt/bulkview/typed_2d_views.h>
#include <dravik/adt/diagnostics/histogram.h>
#include <dravik/adt/diagnostics/named_timer.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

namespace Relief {
namespace {

using Adt::Histogram;
using Adt::Logging::NamedTimer;
using Adt::Logging::Timer;

// Does a piece of work under a named timer, and says how many seconds it took.
template <class Work>
auto timed(char const* name, double& seconds, Work work) {
    NamedTimer const named(name);
    Timer timer;
    auto result = work();
    timer.stop();
    seconds = timer.getLast();
    return result;
}

// The grid that was asked for; without a question, the one that there is.
Grid openInput(Options const& options, std::ostream& out) {
    if (!options.inputGiven && !std::filesystem::exists(options.input)) {
        out << options.input << " is not there: drawing a generated terrain instead\n";
        return openGrid(entityOf("generated"), options.variable);
    }
    return openGrid(entityOf(options.input), options.variable);
}

std::optional<Grid> openSwap(Options const& options, Grid const& first) {
    if (options.swap.empty()) {
        return std::nullopt;
    }
    Grid second = openGrid(entityOf(options.swap), options.variable);
    if (second.source->size() != first.source->size() || second.rowsGoNorth != first.rowsGoNorth) {
        throw std::runtime_error(second.name + " does not lie as " + first.name + " does");
    }
    return second;
}

// The whole view, row by row. `atHalf` is called before the lower half is read.
Raster<float> readAll(BulkView::Typed2dRoView<float> const& view, std::function<void()> const& atHalf) {
    Raster<float> heights(view.size(0), view.size(1));
    Progress progress("reading", heights.rows());
    for (int row = 0; row < heights.rows(); ++row) {
        if (row == heights.rows() / 2) {
            atHalf();
        }
        for (int column = 0; column < heights.columns(); ++column) {
            heights.row(row)[column] = view.get(row, column);
        }
        progress.advance(1);
    }
    return heights;
}

std::string number(char const* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

struct Seconds {
    double open, read, count, shade, write;
};

void reportValues(std::ostream& out, Histogram const& histogram, std::size_t samples, std::string const& unit) {
    out << "values    ";
    if (!histogram.empty()) {
        out << number("%g", histogram.min()) << " to " << number("%g", histogram.max())
            << (unit.empty() ? "" : " " + unit) << ", mean " << number("%.1f", histogram.mean()) << ", ";
    }
    out << samples - histogram.nofSamples() << " missing\n";
}

void reportTraffic(std::ostream& out, Chain const& chain, BrickShape brick) {
    double const asked = static_cast<double>(*chain.asked);
    double const read = static_cast<double>(chain.read->requests);
    out << "requests  " << chain.read->requests << " for bricks of " << brick.rows << " x " << brick.columns << ", "
        << chain.read->samples << " samples read\n"
        << "cache     " << *chain.asked << " requests, " << number("%.1f %%", 100 * (asked - read) / asked)
        << " of them answered without reading\n";
}

void reportTime(std::ostream& out, Seconds const& seconds) {
    double const together = seconds.open + seconds.read + seconds.count + seconds.shade + seconds.write;
    out << "time      " << number("%.2f s", together) << ": read " << number("%.2f", seconds.read) << ", count "
        << number("%.2f", seconds.count) << ", shade " << number("%.2f", seconds.shade) << ", write "
        << number("%.2f", seconds.write) << "\n";
}

}  // namespace

void run(Options const& options, std::ostream& out) {
    Seconds seconds{};
    Grid const grid = timed("relief: open", seconds.open, [&] { return openInput(options, out); });
    auto const second = openSwap(options, grid);
    BrickShape const brick{std::min(options.brick.rows, grid.rows()), std::min(options.brick.columns, grid.columns())};
    auto const shown = viewOf(grid, options.subset);
    Chain chain = makeChain(grid, brick, *shown);
    BulkView::Typed2dRoView<float> view(std::move(chain.top));

    auto const heights = timed("relief: read", seconds.read, [&] {
        return readAll(view, [&] {
            if (second) {
                exchangeGrid(chain, *second, brick);
            }
        });
    });
    auto const histogram = timed("relief: count", seconds.count, [&] {
        Histogram counted;
        counted.add(heights.values());
        return counted;
    });
    auto const picture = timed("relief: shade", seconds.shade, [&] {
        return shadedRelief(heights, {histogram.min(), histogram.max()});
    });
    timed("relief: write", seconds.write, [&] {
        writePng(options.output, picture);
        writePng(options.histogramOutput(), histogramPicture(histogram));
        return true;
    });

    out << "grid      " << grid.name << ", " << grid.rows() << " x " << grid.columns() << " samples\n";
    if (second) {
        out << "below     " << second->name << "\n";
    }
    out << "view      " << *shown << "\n";
    reportValues(out, histogram, heights.values().size(), grid.unit);
    reportTraffic(out, chain, brick);
    reportTime(out, seconds);
    out << "pictures  " << options.output << ", " << picture.columns() << " x " << picture.rows() << " points\n"
        << "          " << options.histogramOutput() << "\n";
}

}  // namespace Relief
