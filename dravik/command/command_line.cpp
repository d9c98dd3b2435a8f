// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/command_line.h"

#include "dravik/command/commands.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Command {

namespace {

constexpr char kAbout[] =
    "Looks into, cuts, converts, compares and draws volumes and grids of samples.\n"
    "IN is a file, FILE:variable, @ and the name of a file with the text of a definition, or - for such a text on "
    "standard input.";

std::vector<std::string> split(std::string const& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        parts.push_back(part);
    }
    return parts;
}

// An option whose text is read by `read`; what that throws is a mistake of the user.
template <class Read>
CLI::Option* addParsed(CLI::App& app, std::string const& name, std::string const& help, Read read) {
    return app.add_option_function<std::string>(
        name,
        [name, read = std::move(read)](std::string const& text) {
            try {
                read(text);
            } catch (std::exception const& error) {
                throw CLI::ValidationError(name, error.what());
            }
        },
        help);
}

std::vector<int> numbersFrom(std::string const& text) {
    std::vector<int> numbers;
    for (std::string const& part : split(text)) {
        std::size_t end = 0;
        numbers.push_back(std::stoi(part, &end));
        if (end != part.size()) {
            throw std::invalid_argument(part + " is no number");
        }
    }
    return numbers;
}

// "-1e34" or "-999:-990"
RangeWish missingFrom(std::string const& text) {
    if (text.find(':', 1) != std::string::npos) {
        return rangeFrom(text);
    }
    std::size_t end = 0;
    double const value = std::stod(text, &end);
    if (end != text.size()) {
        throw std::invalid_argument(text + " is no number");
    }
    return {value, value, false};
}

void addSelection(CLI::App& app, Selection& selection) {
    addParsed(
        app, "--subset", "The part of each axis, separated by commas: an index, ORIGIN:STEP:COUNT, or : for all of it",
        [&](std::string const& text) {
            for (std::string const& part : split(text)) {
                selection.subset.push_back(extentFrom(part));
            }
        })
        ->type_name("PARTS");
    addParsed(app, "--axes", "The order of the axes, as 2,0,1", [&](std::string const& text) {
        selection.axes = numbersFrom(text);
    })->type_name("ORDER");
    addParsed(
        app, "--missing", "The value, or the range LOW:HIGH, that means a missing sample",
        [&](std::string const& text) { selection.missing = missingFrom(text); })
        ->type_name("VALUE");
}

void addRange(CLI::App& app, std::optional<RangeWish>& range, std::string const& help) {
    addParsed(app, "--range", help, [&](std::string const& text) { range = rangeFrom(text); })->type_name("LOW:HIGH");
}

// The commands as they are read; `work` gets the one that the user has named.
class Commands {
  public:
    Commands() : app_(kAbout, "dravik") {
        app_.require_subcommand(1);
        app_.set_help_flag("--help,-h", "Print this help and end");
        app_.set_help_all_flag("--help-all", "Print the help of all commands and end");
        app_.set_version_flag("--version", DRAVIK_COMMAND_VERSION);
        addInfo();
        addCopy();
        addStatistics();
        addDraw();
        addCompare();
    }

    CLI::App& app() noexcept { return app_; }
    Work work() const { return {resources_, run_, failed_}; }

  private:
    CLI::App& add(std::string const& name, std::string const& help) {
        auto& app = *app_.add_subcommand(name, help);
        addParsed(app, "--memory", "Memory for samples, as 256M; at least 1M", [this](std::string text) {
            auto const problem = CLI::AsSizeValue(/*kb_is_1000=*/false)(text);
            resources_.memory = problem.empty() ? std::stoll(text) : 0;
            if (resources_.memory < 1 << 20) {
                throw std::invalid_argument(problem.empty() ? text + " bytes are too few" : problem);
            }
        })->type_name("SIZE");
        app.add_option("--threads", resources_.threads, "Threads that work")
            ->check(CLI::Range(1, 1024))
            ->type_name("N");
        app.add_flag("--verbose", resources_.verbose, "Tell on standard error what was read, and what the pool did");
        return app;
    }

    void addInfo() {
        auto const wish = std::make_shared<InfoWish>();
        auto& app = add("info", "Tell what files hold: axes, units, types, bricks, definitions");
        app.add_option("FILE", wish->inputs, "What to look into, each an IN")->required();
        app.add_flag("--json", wish->asJson, "As JSON");
        app.callback([this, wish] { run_ = [wish](Session& session) { return info(*wish, session), 0; }; });
    }

    void addCopy() {
        auto const wish = std::make_shared<CopyWish>();
        auto& app = add("copy", "Copy samples from any format to any that can be written");
        app.add_option("IN", wish->input, "What to copy")->required();
        app.add_option("OUT", wish->output, "The file to make; its ending tells the format")->required();
        addSelection(app, wish->selection);
        app.add_option("--type", wish->type, "The type of the copy's samples: uint8, int16, float32, …");
        auto* const scale = app.add_option("--scale", wish->scale, "What samples are multiplied by");
        auto* const offset = app.add_option("--offset", wish->offset, "What is added to them then");
        addRange(app, wish->range, "Spread these values, or percentiles as 1%:99%, over all of an integer type");
        app.get_option("--range")->excludes(scale)->excludes(offset);
        addParsed(
            app, "--chunks", "Samples per axis of a chunk in the file, as 64,64,64",
            [wish](std::string const& text) { wish->chunks = numbersFrom(text); })
            ->type_name("SIZES");
        app.add_option("--format", wish->format, "The format, whatever the ending of OUT");
        app.add_flag("--force", wish->mayReplace, "Replace OUT if it exists");
        app.callback([this, wish] { run_ = [wish](Session& session) { return copy(*wish, session), 0; }; });
    }

    void addStatistics() {
        auto const wish = std::make_shared<StatisticsWish>();
        auto& app = add("statistics", "Count samples: extremes, mean, deviation, percentiles");
        app.add_option("IN", wish->input, "What to count")->required();
        addSelection(app, wish->selection);
        app.add_option("--histogram", wish->histogram, "A picture (PNG) of how often values are")->type_name("OUT");
        app.add_flag("--json", wish->asJson, "As JSON");
        app.add_flag("--force", wish->mayReplace, "Replace the picture if it exists");
        app.callback([this, wish] { run_ = [wish](Session& session) { return statistics(*wish, session), 0; }; });
    }

    void addDraw() {
        auto const wish = std::make_shared<DrawWish>();
        auto& app = add("draw", "Draw a grid as shaded relief, or a slice of a volume in colours, as PNG");
        app.add_option("IN", wish->input, "What to draw")->required();
        app.add_option("OUT", wish->output, "The picture to make")->required();
        app.add_option("--slice", wish->slices, "One index of an axis, as depth=3 or 0=3; may be given again")
            ->expected(1)
            ->take_all()
            ->type_name("AXIS=INDEX");
        addSelection(app, wish->selection);
        addRange(app, wish->range, "The values, or percentiles, at the ends of the colours");
        app.add_option("--style", wish->style, "relief or palette; else as the data suggest")
            ->transform(CLI::CheckedTransformer(std::vector<std::pair<std::string, DrawWish::Style>>{
                {"relief", DrawWish::Style::Relief}, {"palette", DrawWish::Style::Palette}}))
            ->type_name("STYLE");
        app.add_option("--size", wish->size, "Points of the longer side at most; more samples are drawn as means")
            ->check(CLI::Range(16, 16384))
            ->type_name("N");
        app.add_flag("--force", wish->mayReplace, "Replace OUT if it exists");
        app.callback([this, wish] { run_ = [wish](Session& session) { return draw(*wish, session), 0; }; });
    }

    void addCompare() {
        auto const inputs = std::make_shared<std::pair<std::string, std::string>>();
        auto& app = add("compare", "Compare two inputs; exit status 0 if equal, 1 if not, 2 on trouble");
        app.add_option("A", inputs->first, "An IN")->required();
        app.add_option("B", inputs->second, "Another one")->required();
        app.callback([this, inputs] {
            failed_ = 2;
            run_ = [inputs](Session& session) { return compare(inputs->first, inputs->second, session) ? 0 : 1; };
        });
    }

    CLI::App app_;
    Resources resources_{
        .threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency())), .verbose = false};
    std::function<int(Session&)> run_;
    int failed_ = 1;
};

}  // namespace

std::optional<Work> parseCommandLine(int argc, char const* const* argv, int& status) {
    Commands commands;
    try {
        commands.app().parse(argc, argv);
        return commands.work();
    } catch (CLI::Success const& end) {
        status = commands.app().exit(end);
    } catch (CLI::RequiredError const& error) {
        bool const isUnknown = argc > 1 && argv[1][0] != '-' && commands.app().get_subcommands().empty();
        std::cerr << "dravik: " << (isUnknown ? std::string("there is no command ") + argv[1] : error.what())
                  << "; --help tells more\n";
        status = 2;
    } catch (CLI::ParseError const& error) {
        std::cerr << "dravik: " << error.what() << "; --help tells more\n";
        status = 2;
    }
    return std::nullopt;
}

}  // namespace Quorvel::Dravik::Command
