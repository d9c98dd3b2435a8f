#include "options.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <iostream>
#include <string_view>

namespace Relief {
namespace {

std::optional<int> parseCount(std::string_view text) {
    int count = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && end == text.data() + text.size() && count >= 1 ? std::optional(count) : std::nullopt;
}

std::string shapeProblem(std::string const& text) {
    return parseShape(text) ? "" : "'" + text + "' is no size; 256x512 or 256 would be";
}

}  // namespace

std::optional<BrickShape> parseShape(std::string const& text) {
    auto const separator = text.find('x');
    auto const rows = parseCount(std::string_view(text).substr(0, separator));
    auto const columns =
        separator == std::string::npos ? rows : parseCount(std::string_view(text).substr(separator + 1));
    return rows && columns ? std::optional(BrickShape{*rows, *columns}) : std::nullopt;
}

std::optional<int> parseCommandLine(int argc, char const* const* argv, Options& options) {
    CLI::App app{"Draws a shaded relief of a grid that is read in bricks, one at a time.", "relief"};
    app.option_defaults()->take_last()->always_capture_default();
    auto const* const input =
        app.add_option("-i,--input", options.input, "netCDF file with the grid, or 'generated' for a made-up world");
    app.add_option("-v,--variable", options.variable, "variable of the file [its largest one with two axes]");
    std::string brick = "256x256";
    app.add_option("-b,--brick", brick, "rows x columns that are read at a time")->check(shapeProblem, "SIZE");
    app.add_option("-o,--output", options.output, "PNG file to write");
    try {
        app.parse(argc, argv);
    } catch (CLI::CallForHelp const& help) {
        return app.exit(help);
    } catch (CLI::ParseError const& error) {
        std::cerr << "relief: " << error.what() << " (--help lists the options)\n";
        return 2;
    }
    options.inputGiven = input->count() > 0;
    options.brick = *parseShape(brick);
    return std::nullopt;
}

}  // namespace Relief
