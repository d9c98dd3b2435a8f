// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/commands.h"

#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/box_mean_filter.h"
#include "dravik/adt/logging/named_timer.h"
#include "dravik/command/picture.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Command {

namespace {

using Adt::BulkView::DataInfo;

bool isNumber(std::string const& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

// One more fixed index in the selection: "depth=3" or "0=3".
void addSlice(std::string const& text, Opened const& data, Selection& selection) {
    auto const sign = text.find('=');
    auto const name = text.substr(0, sign), index = sign == std::string::npos ? "" : text.substr(sign + 1);
    if (!isNumber(index)) {
        throw std::invalid_argument("--slice " + text + ": write axis=index");
    }
    std::size_t axis = data.shape.size();
    std::string known;
    for (std::size_t each = 0; each < data.shape.size(); ++each) {
        std::string const& its = data.data.info.axes[each].name;
        known.append(known.empty() ? "" : ", ").append(std::to_string(each)).append(its.empty() ? "" : " " + its);
        axis = name == its || name == std::to_string(each) ? each : axis;
    }
    if (axis == data.shape.size()) {
        throw std::invalid_argument("--slice " + text + ": there is no axis " + name + "; there are " + known);
    }
    selection.subset.resize(std::max(selection.subset.size(), axis + 1), extentFrom(":"));
    selection.subset[axis] = extentFrom(index);
}

// The axes along which there is more than one sample.
std::vector<int> drawnAxes(Opened const& data) {
    std::vector<int> axes;
    for (int axis = 0; axis < static_cast<int>(data.shape.size()); ++axis) {
        if (data.shape[static_cast<std::size_t>(axis)] > 1) {
            axes.push_back(axis);
        }
    }
    if (axes.size() > 2) {
        throw std::invalid_argument(
            "a picture has two axes, the samples have " + shapeText(data.shape) +
            ": choose slices by --slice axis=index");
    }
    // Where an axis has a single sample, it stands in.
    for (int axis = static_cast<int>(data.shape.size()) - 1; axis >= 0 && axes.size() < 2; --axis) {
        if (std::find(axes.begin(), axes.end(), axis) == axes.end()) {
            axes.insert(axes.begin(), axis);
        }
    }
    if (axes.size() < 2) {
        axes.push_back(static_cast<int>(data.shape.size()));  // every chain has four
    }
    std::sort(axes.begin(), axes.end());
    return axes;
}

// Which axis of the data runs down the picture, which across, and whether the first index is at the bottom.
struct Layout {
    int down, across;
    bool isUpwards;
};

Layout layoutOf(Opened const& data) {
    auto const axes = drawnAxes(data);
    auto const& info = data.data.info;
    Layout layout{axes[0], axes[1], false};
    if (layout.across > 3) {
        layout.across = 3;
    }
    auto const isDownward = [&](int axis) {
        auto const& its = info.axes[static_cast<std::size_t>(axis)];
        return its.unit == "ms" || its.unit == "us" || its.name == "time" || its.name == "depth" ||
               its.name == "sample";
    };
    if (isDownward(layout.across) && !isDownward(layout.down)) {
        std::swap(layout.down, layout.across);
    }
    auto const& rows = info.axes[static_cast<std::size_t>(layout.down)];
    bool const isNorthward = rows.unit.find("north") != std::string::npos || rows.name.starts_with("lat");
    layout.isUpwards = isNorthward && rows.coordinates.size() > 1 && rows.coordinates.front() < rows.coordinates.back();
    return layout;
}

// The samples as rows of a picture, means of boxes where there are too many.
Raster<float> readRaster(Opened& data, Layout const& layout, int factor, Session& session) {
    auto chain =
        factor > 1
            ? Adt::BulkView::BoxMeanFilter::Apply(data.data.chain->createClone(), factor, session.openers().pool())
            : data.data.chain->createClone();
    auto const size = chain->getSize();
    Raster<float> raster(size[layout.down], size[layout.across]);
    Adt::FixedVector<4, int> strides;
    strides[layout.across] = 1;
    strides[layout.down] = layout.isUpwards ? -raster.columns() : raster.columns();
    int const offset = layout.isUpwards ? (raster.rows() - 1) * raster.columns() : 0;
    auto const box = Adt::OpenEndedRange<4, int>::OfSize(size);
    Adt::ArrayRef<4> const array(
        box, strides, reinterpret_cast<char*>(raster.row(0)), offset, typeid(float), 8 * sizeof(float));
    Adt::BulkView::readRegion(*chain, Adt::ExtentK<4, int>(box), array, session.transfer("draw"));
    return raster;
}

ValueRange endsOf(Raster<float> const& raster) {
    ValueRange range{HUGE_VALF, -HUGE_VALF};
    for (float const value : raster.values()) {
        range.lowest = std::isnan(value) ? range.lowest : std::min(range.lowest, value);
        range.highest = std::isnan(value) ? range.highest : std::max(range.highest, value);
    }
    return range.lowest > range.highest ? ValueRange{0, 1} : range;
}

// Whether values lie on both sides of 0, and not nearly all of them on one.
bool isSigned(ValueRange const& range) {
    return range.lowest < 0 && range.highest > 0 &&
           std::min(-range.lowest, range.highest) > std::max(-range.lowest, range.highest) / 8;
}

// As the user wants it, or what all samples but the outermost lie in, on both sides of 0 alike.
ValueRange rangeOf(DrawWish const& wish, Raster<float> const& raster, Palette palette, Opened& data, Session& session) {
    if (wish.range) {
        auto const [low, high] = endsOf(*wish.range, data, session);
        return {static_cast<float>(low), static_cast<float>(high)};
    }
    ValueRange range = endsOf(raster);
    if (palette == Palette::Relief) {
        return range;
    }
    Adt::Histogram histogram(Adt::Histogram::fixed, range.lowest, range.highest, 4096);
    histogram.add(raster.values());
    Moments moments;
    moments.add(std::vector<double>{range.lowest, range.highest});
    range.lowest = static_cast<float>(percentile(histogram, moments, 0.005));
    range.highest = static_cast<float>(percentile(histogram, moments, 0.995));
    if (palette == Palette::Signed) {
        float const most = std::max(std::abs(range.lowest), std::abs(range.highest));
        return {-most, most};
    }
    return range;
}

std::string labelOf(DataInfo const& info) {
    return info.valueName + (info.valueUnit.empty() ? "" : (info.valueName.empty() ? "" : ", ") + info.valueUnit);
}

}  // namespace

void draw(DrawWish const& wish, Session& session) {
    Adt::Logging::NamedTimer const timer("dravik: draw");
    auto const input = inputOf(wish.input, session);
    Selection selection = wish.selection;
    bool const isGrid = wish.slices.empty() && open(input, session).shape.size() == 2;
    for (std::string const& slice : wish.slices) {
        addSlice(slice, open(input, session), selection);
    }
    auto data = open(selected(input, selection, session), session);
    Layout const layout = layoutOf(data);
    auto const size = data.data.chain->getSize();
    int const longer = std::max(size[layout.down], size[layout.across]);
    auto const raster = readRaster(data, layout, (longer + wish.size - 1) / wish.size, session);
    ValueRange const ends = endsOf(raster);
    bool const isRelief = wish.style == DrawWish::Style::Relief || (wish.style == DrawWish::Style::Auto && isGrid);
    Figure figure;
    figure.palette = isRelief ? Palette::Relief : isSigned(ends) ? Palette::Signed : Palette::Unsigned;
    figure.range = rangeOf(wish, raster, figure.palette, data, session);
    figure.colours = isRelief ? shadedRelief(raster, figure.range) : coloured(raster, figure.range, figure.palette);
    figure.title = wish.input.substr(wish.input.rfind('/') + 1);
    for (std::string const& slice : wish.slices) {
        figure.title.append(", ").append(slice);
    }
    auto const& axes = data.data.info.axes;
    int const last = size[layout.down] - 1;
    figure.down =
        scaleOf(axes[static_cast<std::size_t>(layout.down)], layout.isUpwards ? last : 0, layout.isUpwards ? 0 : last);
    figure.across = scaleOf(axes[static_cast<std::size_t>(layout.across)], 0, size[layout.across] - 1);
    figure.valueLabel = labelOf(data.data.info);
    session.throwIfStopped();
    drawFigure(figure, wish.output, wish.mayReplace);
}

}  // namespace Quorvel::Dravik::Command
