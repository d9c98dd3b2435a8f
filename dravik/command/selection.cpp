// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/commands.h"

#include "dravik/adt/bulkdef/transform/missing_value_def.h"
#include "dravik/adt/bulkdef/view/array_map_def.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Command {

namespace {

using Adt::ExtentImpl;
using Map = Adt::BulkDef::View::ArrayMapDef<4>;

int wholeNumber(std::string const& text, std::string const& all) {
    int number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument(
            all + " is no part of an axis: write an index, ORIGIN:STEP:COUNT, or : for all of it");
    }
    return number;
}

void requireInside(ExtentImpl<int> const& part, int axis, int size) {
    auto const bounds = part.bounds();
    if (part.count < 1 || bounds.min < 0 || bounds.max >= size) {
        std::ostringstream text;
        text << "the part " << part << " reaches outside axis " << axis << ", whose indices are 0 to " << size - 1;
        throw std::out_of_range(text.str());
    }
}

// The axes in their new order; those that the data set does not have stay behind.
Adt::FixedVector<4, int> orderOf(std::vector<int> const& axes, int axisCount) {
    Adt::FixedVector<4, int> order(0, 1, 2, 3);
    std::vector<int> sorted = axes;
    std::sort(sorted.begin(), sorted.end());
    for (int axis = 0; axis < static_cast<int>(sorted.size()); ++axis) {
        if (sorted[static_cast<std::size_t>(axis)] != axis || static_cast<int>(sorted.size()) != axisCount) {
            throw std::invalid_argument(
                "--axes: name each of the axes from 0 to " + std::to_string(axisCount - 1) + " once");
        }
        order[axis] = axes[static_cast<std::size_t>(axis)];
    }
    return order;
}

}  // namespace

ExtentImpl<int> extentFrom(std::string const& text) {
    if (text == ":") {
        return Map::kWhole;
    }
    std::vector<int> numbers;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ':');) {
        numbers.push_back(wholeNumber(part, text));
    }
    if (numbers.size() == 1 && text.back() != ':') {
        return {numbers[0], 1, 1};
    }
    if (numbers.size() != 3 || numbers[1] == 0 || numbers[2] < 1 || text.back() == ':') {
        wholeNumber("", text);
    }
    return {numbers[0], numbers[1], numbers[2]};
}

Input selected(Input input, Selection const& selection, Session const& session) {
    if (selection.missing) {
        input = transformed(
            std::move(input),
            Adt::BulkDef::Transform::MissingValueDef(selection.missing->low, selection.missing->high));
    }
    if (selection.subset.empty() && selection.axes.empty()) {
        return input;
    }
    auto const shape = open(input, session).shape;
    if (selection.subset.size() > shape.size()) {
        throw std::invalid_argument(
            "--subset: " + std::to_string(selection.subset.size()) + " parts for " + std::to_string(shape.size()) +
            " axes");
    }
    Adt::ExtentK<4, int> parts(Map::kWhole, Map::kWhole, Map::kWhole, Map::kWhole);
    for (std::size_t axis = 0; axis < selection.subset.size(); ++axis) {
        auto const& part = selection.subset[axis];
        if (part != Map::kWhole) {
            requireInside(part, static_cast<int>(axis), shape[axis]);
            parts[static_cast<int>(axis)] = part;
        }
    }
    return seenThrough(std::move(input), Map(orderOf(selection.axes, static_cast<int>(shape.size())), parts));
}

}  // namespace Quorvel::Dravik::Command
