// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the program does, one function for each of its commands. Results go to standard output.
//
// Each throws std::exception with one line that says what is wrong and where, and CancelledException where the user
// stopped it; no output is left half written then.

#include "dravik/adt/core/extent.h"
#include "dravik/command/measure.h"
#include "dravik/command/session.h"

#include <optional>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Command {

/// How the samples of an input are cut before anything is done with them.
struct Selection {
    /// Per axis from the first on, of those that the input has; missing ones are whole.
    std::vector<Adt::ExtentImpl<int>> subset;
    std::vector<int> axes;             ///< their order afterwards; empty: as they are
    std::optional<RangeWish> missing;  ///< what means "missing" beside not-a-number; low may be high
};

/// "7", "2:1:10" (origin, step, count) or ":" for all.
/// @throws std::invalid_argument for any other text
Adt::ExtentImpl<int> extentFrom(std::string const& text);

/// The part of an input that a selection shows.
/// @throws std::exception where the selection does not fit
Input selected(Input input, Selection const& selection, Session const& session);

struct InfoWish {
    std::vector<std::string> inputs;
    bool asJson = false;
};
void info(InfoWish const& wish, Session& session);

struct CopyWish {
    std::string input, output;
    Selection selection;
    std::string type;    ///< empty: the input's
    std::string format;  ///< empty: by the output's name
    double scale = 1, offset = 0;
    std::optional<RangeWish> range;  ///< to the whole range of an integer type, in place of scale and offset
    std::vector<int> chunks;
    bool mayReplace = false;
};
void copy(CopyWish const& wish, Session& session);

struct StatisticsWish {
    std::string input;
    Selection selection;
    std::string histogram;  ///< a picture of this name; empty: none
    bool asJson = false, mayReplace = false;
};
void statistics(StatisticsWish const& wish, Session& session);

struct DrawWish {
    enum class Style { Auto, Relief, Palette };

    std::string input, output;
    Selection selection;
    std::vector<std::string> slices;  ///< "axis=index", the axis by name or number
    std::optional<RangeWish> range;
    Style style = Style::Auto;
    int size = 1200;  ///< points of the longer side of the data at most
    bool mayReplace = false;
};
void draw(DrawWish const& wish, Session& session);

/// @return whether all samples are equal, not-a-number to itself as well
bool compare(std::string const& first, std::string const& second, Session& session);

}  // namespace Quorvel::Dravik::Command
