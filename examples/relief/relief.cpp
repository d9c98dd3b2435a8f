// SPDX-License-Identifier: Apache-2.0
#include "relief.h"

#include "chain.h"
#include "grid.h"
#include "histogram_picture.h"
#include "png_file.h"
#include "progress.h"
#include "raster.h"
#include "shading.h"

#include <dravik/adt/bulkview/filters/value_convert_filter.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>
#include <dravik/adt/converters/scale_offset.h>
#include <dravik/adt/converters/value_converter_factory.h>
#include <dravik/adt/logging/named_timer.h>
#include <dravik/adt/statistics/histogram.h>
#include <dravik/text/definition_text.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

namespace Relief {
namespace {

using Adt::Histogram;
using Adt::ScaleOffset;
using Adt::Logging::NamedTimer;
using Adt::Logging::Timer;

// Measures the scope it lives in, for the report of the process and for that of the demo.
class Stage {
  public:
    Stage(char const* name, double& seconds) : named_(name), seconds_(seconds) {}
    ~Stage() {
        timer_.stop();
        seconds_ = timer_.getLast();
    }
    Stage(Stage const&) = delete;
    Stage& operator=(Stage const&) = delete;

  private:
    NamedTimer named_;
    Timer timer_;
    double& seconds_;
};

template <class Work>
auto timed(char const* name, double& seconds, Work work) {
    Stage const stage(name, seconds);
    return work();
}

// The grid that was asked for; without a question, the one that there is.
BulkDef::Entity::SourceEntityDef inputOf(Options const& options, std::ostream& out) {
    if (!options.inputGiven && !std::filesystem::exists(options.input)) {
        out << options.input << " is not there: drawing a generated terrain instead\n";
        return entityOf("generated");
    }
    return entityOf(options.input);
}

std::optional<Grid> openSwap(Options const& options, Grid const& first) {
    if (options.swap.empty()) {
        return std::nullopt;
    }
    Grid second = openGrid(entityOf(options.swap), options.variable);
    if (second.store->size() != first.store->size() || second.rowsGoNorth != first.rowsGoNorth) {
        throw std::runtime_error(second.name + " does not lie as " + first.name + " does");
    }
    return second;
}

// The whole view, row by row, each sample as `heightOf` makes it. `atHalf` is called before the lower half is read.
template <class T, class HeightOf>
Raster<float> readAll(BulkView::Typed2dRoView<T> const& view, HeightOf heightOf, std::function<void()> const& atHalf) {
    Raster<float> heights(view.size(0), view.size(1));
    Progress progress("reading", heights.rows());
    for (int row = 0; row < heights.rows(); ++row) {
        if (row == heights.rows() / 2) {
            atHalf();
        }
        for (int column = 0; column < heights.columns(); ++column) {
            heights.row(row)[column] = heightOf(view.get(row, column));
        }
        progress.advance(1);
    }
    return heights;
}

Raster<float> readFloats(std::unique_ptr<BulkView::IBufferAccessor> chain, std::function<void()> const& atHalf) {
    BulkView::Typed2dRoView<float> const view(std::move(chain));
    return readAll(
        view, [](float height) { return height; }, atHalf);
}

// The transform of what `shown` shows of the grid to the levels 1 to 255. Level 0 is left to what is missing: not a
// number becomes 0 where it is converted.
ScaleOffset levelsOf(Grid const& grid, BrickShape brick, BulkDef::ViewDef const& shown) {
    Histogram values;
    values.add(readFloats(makeChain(grid, brick, shown).top, [] {}).values());
    double const lowest = values.empty() ? 0 : double{values.min()};
    double const highest = values.empty() ? 1 : double{values.max()};
    bool const isFlat = highest - lowest < 1e-6;
    return ScaleOffset::getRangeTransform({lowest, isFlat ? lowest + 1 : highest}, {1, 255});
}

// As readFloats, through a view of single bytes.
Raster<float> readLevels(
    std::unique_ptr<BulkView::IBufferAccessor> chain, ScaleOffset const& levels, std::function<void()> const& atHalf) {
    auto const forward = Adt::Converters::ValueConverterFactory::getTypeConverter(
        typeid(float), typeid(unsigned char), levels, /*copyIfSame=*/true);
    BulkView::Typed2dRoView<unsigned char> const view(BulkView::Filters::ValueConvertFilter::Apply(
        std::move(chain), sizeof(unsigned char), forward, /*inverse=*/nullptr));
    ScaleOffset const back = levels.getInverse();
    auto const heightOf = [&back](unsigned char level) {
        return level == 0 ? std::numeric_limits<float>::quiet_NaN() : back.convertFloat(level);
    };
    return readAll(view, heightOf, atHalf);
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
    out << static_cast<std::int64_t>(samples) - histogram.nofSamples() << " missing\n";
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

// What is read, and how.
struct Job {
    boost::shared_ptr<BulkDef::EntityDef const> entity;
    Grid grid;
    std::optional<Grid> second;  // of the lower half
    BrickShape brick;
    boost::shared_ptr<BulkDef::ViewDef const> shown;
    Chain chain;
};

Job prepare(Options const& options, std::ostream& out) {
    auto const entity = inputOf(options, out);
    Grid grid = openGrid(entity, options.variable);
    auto second = openSwap(options, grid);
    BrickShape const brick{std::min(options.brick.rows, grid.rows()), std::min(options.brick.columns, grid.columns())};
    auto shown = viewOf(grid, options.subset);
    Chain chain = makeChain(grid, brick, *shown);
    return {entity.clone(), std::move(grid), std::move(second), brick, std::move(shown), std::move(chain)};
}

Raster<float> read(Job& job, int bits) {
    auto const atHalf = [&job] {
        if (job.second) {
            exchangeGrid(job.chain, *job.second, job.brick);
        }
    };
    return bits == 8 ? readLevels(std::move(job.chain.top), levelsOf(job.grid, job.brick, *job.shown), atHalf)
                     : readFloats(std::move(job.chain.top), atHalf);
}

}  // namespace

void run(Options const& options, std::ostream& out) {
    Seconds seconds{};
    Job job = timed("relief: open", seconds.open, [&] { return prepare(options, out); });
    auto const heights = timed("relief: read", seconds.read, [&] { return read(job, options.bits); });
    Histogram histogram;
    timed("relief: count", seconds.count, [&] { histogram.add(heights.values()); });
    auto const picture = timed("relief: shade", seconds.shade, [&] {
        return shadedRelief(heights, {histogram.min(), histogram.max()});
    });
    timed("relief: write", seconds.write, [&] {
        writePng(options.output, picture);
        writePng(options.histogramOutput(), histogramPicture(histogram));
    });

    out << "grid      " << job.grid.name << ", " << job.grid.rows() << " x " << job.grid.columns() << " samples\n";
    if (job.second) {
        out << "below     " << job.second->name << "\n";
    }
    out << "view      " << *job.shown << "\n"
        << "as text   " << Quorvel::Dravik::Text::toText({.entity = job.entity, .view = job.shown}) << "\n";
    reportValues(out, histogram, heights.values().size(), job.grid.unit);
    reportTraffic(out, job.chain, job.brick);
    reportTime(out, seconds);
    out << "pictures  " << options.output << ", " << picture.columns() << " x " << picture.rows() << " points\n"
        << "          " << options.histogramOutput() << "\n";
}

}  // namespace Relief
