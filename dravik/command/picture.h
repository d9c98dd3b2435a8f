// SPDX-License-Identifier: Apache-2.0
#pragma once

// Pictures in PNG files: colours with axes, units and a colour bar, and histograms. Threads: one.

#include "dravik/adt/bulkview/stores/data_info.h"
#include "dravik/adt/statistics/histogram.h"
#include "dravik/command/raster.h"
#include "dravik/command/shading.h"

#include <filesystem>
#include <string>

namespace Quorvel::Dravik::Command {

/// One side of a picture: a value per index, or the indices themselves.
struct Scale {
    std::string label;
    double first = 0, last = 1;  ///< at the centres of the first and the last row or column
};

/// The scale of an axis whose samples have been drawn from index `first` to `last`.
Scale scaleOf(Adt::BulkView::DataAxis const& axis, int first, int last);

struct Figure {
    Raster<Colour> colours;
    std::string title;
    Scale down, across;
    ValueRange range{0, 1};
    Palette palette = Palette::Relief;
    std::string valueLabel;
};

/// Colours of less than half of 800 points are shown larger.
/// @throws std::exception with the path; the file is then as it was
void drawFigure(Figure const& figure, std::filesystem::path const& path, bool mayReplace);

/// @throws as drawFigure
void drawHistogram(
    Adt::Histogram const& histogram, Adt::BulkView::DataInfo const& info, std::filesystem::path const& path,
    bool mayReplace);

}  // namespace Quorvel::Dravik::Command
