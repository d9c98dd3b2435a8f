// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/picture.h"

#include "dravik/command/draft.h"

#include <cairo.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Command {

namespace {

constexpr int kLeft = 84, kTop = 44, kBelow = 56, kBar = 22, kGap = 24, kRight = 92;  // points around the colours
constexpr int kLarge = 800;  // points that a small picture is shown larger up to
constexpr double kInk = 0.22;

struct Release {
    void operator()(cairo_surface_t* surface) const noexcept { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const noexcept { cairo_destroy(context); }
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

// "-12.5", with no more digits than tell it from its neighbours.
std::string number(double value, double step) {
    char text[32];
    int const digits = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    bool const isPlain = digits < 6 && std::abs(value) < 1e7;
    std::snprintf(text, sizeof text, isPlain ? "%.*f" : "%.*g", isPlain ? digits : 4, value + 0.0);
    return text;
}

// Round numbers from low to high, some `wanted` of them.
std::vector<double> roundNumbers(double low, double high, int wanted, double& step) {
    double const rough = (high - low) / wanted;
    double const power = std::pow(10, std::floor(std::log10(rough)));
    step = power * (rough / power > 5 ? 10 : rough / power > 2 ? 5 : rough / power > 1 ? 2 : 1);
    std::vector<double> numbers;
    for (double at = std::ceil(low / step - 1e-9); at * step <= high + step * 1e-9; ++at) {
        numbers.push_back(at * step == 0 ? 0 : at * step);
    }
    return numbers;
}

class Canvas {
  public:
    Canvas(int width, int height)
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)),
          context_(cairo_create(surface_.get())) {
        cairo_set_source_rgb(context_.get(), 1, 1, 1);
        cairo_paint(context_.get());
        cairo_select_font_face(context_.get(), "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(context_.get(), 12);
        cairo_set_line_width(context_.get(), 1);
    }

    cairo_t* context() const noexcept { return context_.get(); }

    // Each colour as a square of `zoom` points.
    void place(Raster<Colour> const& colours, int left, int top, int zoom) {
        cairo_surface_flush(surface_.get());
        unsigned char* const memory = cairo_image_surface_get_data(surface_.get());
        int const stride = cairo_image_surface_get_stride(surface_.get());
        for (int y = 0; y < colours.rows() * zoom; ++y) {
            auto* const points = reinterpret_cast<std::uint32_t*>(memory + std::ptrdiff_t{top + y} * stride) + left;
            Colour const* const row = colours.row(y / zoom);
            for (int x = 0; x < colours.columns() * zoom; ++x) {
                Colour const colour = row[x / zoom];
                points[x] = static_cast<std::uint32_t>(colour.red << 16 | colour.green << 8 | colour.blue);
            }
        }
        cairo_surface_mark_dirty(surface_.get());
    }

    // `place`: the share of the text's width that lies left of x.
    void write(std::string const& text, double x, double y, double place) {
        cairo_text_extents_t extents;
        cairo_text_extents(context_.get(), text.c_str(), &extents);
        ink();
        cairo_move_to(context_.get(), std::round(x - place * extents.x_advance), std::round(y));
        cairo_show_text(context_.get(), text.c_str());
    }

    void writeUpwards(std::string const& text, double x, double y) {
        cairo_save(context_.get());
        cairo_translate(context_.get(), x, y);
        cairo_rotate(context_.get(), -std::acos(-1.0) / 2);
        write(text, 0, 0, 0.5);
        cairo_restore(context_.get());
    }

    void line(double x0, double y0, double x1, double y1) {
        ink();
        cairo_move_to(context_.get(), std::floor(x0) + 0.5, std::floor(y0) + 0.5);
        cairo_line_to(context_.get(), std::floor(x1) + 0.5, std::floor(y1) + 0.5);
        cairo_stroke(context_.get());
    }

    void frame(int left, int top, int width, int height) {
        ink();
        cairo_rectangle(context_.get(), left - 0.5, top - 0.5, width + 1, height + 1);
        cairo_stroke(context_.get());
    }

    void save(std::filesystem::path const& path, bool mayReplace) {
        Draft draft(path, mayReplace);
        std::unique_ptr<std::FILE, Release> file(std::fopen(draft.path().c_str(), "wbx"));
        bool isWritten = file != nullptr;
        if (isWritten) {
            auto const write = [](void* to, unsigned char const* bytes, unsigned count) {
                bool const isWhole = std::fwrite(bytes, 1, count, static_cast<std::FILE*>(to)) == count;
                return isWhole ? CAIRO_STATUS_SUCCESS : CAIRO_STATUS_WRITE_ERROR;
            };
            isWritten = cairo_surface_write_to_png_stream(surface_.get(), write, file.get()) == CAIRO_STATUS_SUCCESS &&
                        std::fflush(file.get()) == 0;
        }
        if (!isWritten) {
            throw std::system_error(errno, std::generic_category(), path.string());
        }
        file.reset();
        draft.publish();
    }

  private:
    void ink() { cairo_set_source_rgb(context_.get(), kInk, kInk, kInk); }

    std::unique_ptr<cairo_surface_t, Release> surface_;
    std::unique_ptr<cairo_t, Release> context_;
};

// Ticks, numbers and a label; the scale's ends lie half a cell inside the side's.
void drawBottom(Canvas& canvas, Scale const& scale, int left, int base, int length, int cells) {
    double step = 1;
    double const low = std::min(scale.first, scale.last), high = std::max(scale.first, scale.last);
    double const half = cells > 1 ? 0.5 * length / cells : 0;
    for (double const at : high > low ? roundNumbers(low, high, std::max(2, length / 110), step) : std::vector{low}) {
        double const share = high > low ? (at - scale.first) / (scale.last - scale.first) : 0.5;
        double const x = left + half + share * (length - 2 * half);
        canvas.line(x, base, x, base + 5);
        canvas.write(number(at, step), x, base + 19, 0.5);
    }
    canvas.write(scale.label, left + length / 2.0, base + 40, 0.5);
}

void drawSide(Canvas& canvas, Scale const& scale, int left, int top, int length, int cells, bool isRight) {
    double step = 1;
    double const low = std::min(scale.first, scale.last), high = std::max(scale.first, scale.last);
    double const half = cells > 1 ? 0.5 * length / cells : 0;
    for (double const at : high > low ? roundNumbers(low, high, std::max(2, length / 70), step) : std::vector{low}) {
        double const share = high > low ? (at - scale.first) / (scale.last - scale.first) : 0.5;
        double const y = top + half + share * (length - 2 * half);
        canvas.line(left, y, left + (isRight ? 5 : -5), y);
        canvas.write(number(at, step), left + (isRight ? 8 : -8), y + 4, isRight ? 0 : 1);
    }
    canvas.writeUpwards(scale.label, left + (isRight ? kRight - kBar - 6 : 18 - kLeft), top + length / 2.0);
}

Raster<Colour> colourBar(Figure const& figure, int height) {
    Raster<Colour> bar(height, kBar);
    for (int row = 0; row < height; ++row) {
        float const share = 1 - (static_cast<float>(row) + 0.5f) / static_cast<float>(height);
        float const value = figure.range.lowest + share * (figure.range.highest - figure.range.lowest);
        std::fill_n(bar.row(row), kBar, tint(value, figure.range, figure.palette));
    }
    return bar;
}

}  // namespace

Scale scaleOf(Adt::BulkView::DataAxis const& axis, int first, int last) {
    Scale scale{
        axis.name + (axis.unit.empty() ? "" : (axis.name.empty() ? "" : ", ") + axis.unit), double(first),
        double(last)};
    auto const& at = axis.coordinates;
    bool const isKnown = static_cast<int>(at.size()) > std::max(first, last);
    if (isKnown) {
        scale.first = at[static_cast<std::size_t>(first)];
        scale.last = at[static_cast<std::size_t>(last)];
        // Ticks assume even steps; where coordinates are not even the indices are told.
        int const between = (first + last) / 2;
        double const share = last == first ? 0 : double(between - first) / (last - first);
        double const even = scale.first + (scale.last - scale.first) * share;
        if (std::abs(at[static_cast<std::size_t>(between)] - even) > 0.01 * std::abs(scale.last - scale.first)) {
            return {(axis.name.empty() ? "" : axis.name + ", ") + "index", double(first), double(last)};
        }
    }
    return scale;
}

void drawFigure(Figure const& figure, std::filesystem::path const& path, bool mayReplace) {
    auto const& colours = figure.colours;
    int const longer = std::max(colours.rows(), colours.columns());
    int const zoom = std::max(1, kLarge / longer);
    int const width = colours.columns() * zoom, height = colours.rows() * zoom;
    int const right = kLeft + width, high = std::max(height, 120);
    Canvas canvas(right + kGap + kBar + kRight, kTop + high + kBelow);
    canvas.write(figure.title, kLeft, kTop - 18, 0);
    canvas.place(colours, kLeft, kTop, zoom);
    canvas.frame(kLeft, kTop, width, height);
    drawBottom(canvas, figure.across, kLeft, kTop + height, width, colours.columns());
    drawSide(canvas, figure.down, kLeft, kTop, height, colours.rows(), false);
    canvas.place(colourBar(figure, high), right + kGap, kTop, 1);
    canvas.frame(right + kGap, kTop, kBar, high);
    Scale const values{figure.valueLabel, figure.range.highest, figure.range.lowest};
    drawSide(canvas, values, right + kGap + kBar, kTop, high, 1, true);
    canvas.save(path, mayReplace);
}

void drawHistogram(
    Adt::Histogram const& histogram, Adt::BulkView::DataInfo const& info, std::filesystem::path const& path,
    bool mayReplace) {
    constexpr int kBars = 240, kBarWidth = 3, kHeight = 320, kWidth = kBars * kBarWidth;
    Canvas canvas(kLeft + kWidth + kGap, kTop + kHeight + kBelow);
    ValueRange const range{histogram.min(), histogram.max()};
    auto const counts = histogram.bins(kBars, range.lowest, range.highest);
    auto const tallest =
        static_cast<double>(std::max<std::int64_t>(1, *std::max_element(counts.begin(), counts.end())));
    cairo_set_source_rgb(canvas.context(), 0.25, 0.45, 0.62);
    for (int bar = 0; bar < kBars; ++bar) {
        double const height = kHeight * static_cast<double>(counts[static_cast<std::size_t>(bar)]) / tallest;
        cairo_rectangle(canvas.context(), kLeft + bar * kBarWidth, kTop + kHeight - height, kBarWidth, height);
    }
    cairo_fill(canvas.context());
    canvas.frame(kLeft, kTop, kWidth, kHeight);
    std::string const unit = info.valueUnit.empty() ? "" : ", " + info.valueUnit;
    canvas.write("samples by value", kLeft, kTop - 18, 0);
    drawBottom(canvas, {info.valueName + unit, range.lowest, range.highest}, kLeft, kTop + kHeight, kWidth, 1);
    drawSide(canvas, {"samples in a bar", tallest, 0}, kLeft, kTop, kHeight, 1, false);
    canvas.save(path, mayReplace);
}

}  // namespace Quorvel::Dravik::Command
