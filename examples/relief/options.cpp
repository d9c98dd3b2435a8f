// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <filesystem>
#include <iostream>
#include <string_view>

namespace Relief {
namespace {

std::optional<int> parseNumber(std::string_view text) {
    int number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::optional<int> parseCount(std::string_view text) {
    auto const number = parseNumber(text);
    return number && *number >= 1 ? number : std::nullopt;
}

std::string shapeProblem(std::string const& text) {
    return parseShape(text) ? "" : "'" + text + "' is no size; 256x512 or 256 would be";
}

std::string extentProblem(std::string const& text) {
    return parseExtent(text) ? "" : "'" + text + "' is no part of an axis; 0:2:100 would be one";
}

}  // namespace

std::string Options::histogramOutput() const {
    std::filesystem::path const path(output);
    return path.parent_path() / (path.stem().string() + "-histogram" + path.extension().string());
}

std::optional<Quorvel::Dravik::Adt::ExtentImpl<int>> parseExtent(std::string const& text) {
    auto const first = text.find(':');
    auto const second = first == std::string::npos ? first : text.find(':', first + 1);
    if (second == std::string::npos) {
        return std::nullopt;
    }
    std::string_view const all = text;
    auto const origin = parseNumber(all.substr(0, first));
    auto const step = parseNumber(all.substr(first + 1, second - first - 1));
    auto const count = parseCount(all.substr(second + 1));
    return origin && step && *step != 0 && count
               ? std::optional(Quorvel::Dravik::Adt::ExtentImpl<int>{*origin, *step, *count})
               : std::nullopt;
}

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
    std::vector<std::string> subset;
    app.add_option("-s,--subset", subset, "what to draw of the rows, from the north, and of the columns")
        ->check(extentProblem, "ORIGIN:STEP:COUNT")
        ->expected(1, 2)
        ->default_str("all of both")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--bits", options.bits, "of the samples that are drawn, 8 or 32")->check(CLI::IsMember({8, 32}));
    app.add_option("--swap", options.swap, "another file of the same size, for the lower half");
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
    for (std::string const& extent : subset) {
        options.subset.push_back(*parseExtent(extent));
    }
    return std::nullopt;
}

}  // namespace Relief
