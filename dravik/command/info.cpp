// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/commands.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/command/formats.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <sstream>

namespace Quorvel::Dravik::Command {

namespace {

using Json = nlohmann::ordered_json;

// The format of the file that an input lies in, if it is a file as it stands.
Format const* formatOf(Input const& input) {
    auto const* const entity = Adt::BulkDef::Entity::SourceEntityDef::Cast(input.entity.get());
    return entity == nullptr || input.view != nullptr ? nullptr : Command::formatOf(entity->source());
}

// The whole file as one input for each of its variables.
std::vector<Input> variablesOf(std::string const& argument, Session& session) {
    Input const input = inputOf(argument, session);
    auto const* const format = formatOf(input);
    bool const isWholeFile = argument != "-" && !argument.starts_with('@') && std::filesystem::exists(argument);
    if (format == nullptr || format->variables == nullptr || !isWholeFile) {
        return {input};
    }
    std::vector<Input> inputs;
    for (std::string const& variable : format->variables(argument)) {
        std::string part = argument;
        inputs.push_back(variable.empty() ? input : inputOf(part.append(":").append(variable), session));
    }
    return inputs;
}

Json axisOf(Adt::BulkView::DataAxis const& axis, int size) {
    Json json{{"name", axis.name}, {"unit", axis.unit}, {"size", size}};
    if (!axis.coordinates.empty()) {
        json["first"] = axis.coordinates.front();
        json["last"] = axis.coordinates.back();
    }
    return json;
}

Json describe(Input const& input, Session& session) {
    auto const data = open(input, session);
    auto const& info = data.data.info;
    auto const traits = Adt::BulkView::traitsOf(*data.data.chain);
    Json json{{"name", input.name}};
    if (auto const* const format = formatOf(input)) {
        json["format"] = format->name;
    }
    json["type"] = Adt::sampleTypeName(*data.sampleType);
    json["shape"] = data.shape;
    json["value"] = {{"name", info.valueName}, {"unit", info.valueUnit}};
    json["missing"] = info.missingValue ? Json(*info.missingValue) : Json();
    for (std::size_t axis = 0; axis < data.shape.size(); ++axis) {
        json["axes"].push_back(axisOf(info.axes[axis], data.shape[axis]));
        int const block = traits.naturalBlock[static_cast<int>(axis)];
        json["bricks"].push_back(block > 0 ? std::min(block, data.shape[axis]) : 1);
    }
    json["definition"] = Json::parse(input.text());
    return json;
}

std::string number(Json const& json) {
    std::ostringstream text;
    text << json.get<double>();
    return text.str();
}

void print(Json const& json, std::string const& definition) {
    std::cout << json["name"].get<std::string>() << '\n';
    auto const line = [](char const* name, std::string const& text) {
        std::cout << "  " << name << std::string(12 - std::string_view(name).size(), ' ') << text << '\n';
    };
    if (json.contains("format")) {
        line("format", json["format"]);
    }
    line("samples", json["type"].get<std::string>() + ", " + shapeText(json["shape"].get<std::vector<int>>()));
    for (std::size_t axis = 0; axis < json["axes"].size(); ++axis) {
        Json const& its = json["axes"][axis];
        std::string text = std::to_string(axis);
        std::string const name = its["name"], unit = its["unit"];
        text.append(name.empty() ? "" : " " + name).append(": ").append(std::to_string(its["size"].get<int>()));
        if (its.contains("first")) {
            text.append(", ").append(number(its["first"])).append(" to ").append(number(its["last"]));
        }
        line("axis", text.append(unit.empty() ? "" : " " + unit));
    }
    std::string const name = json["value"]["name"], unit = json["value"]["unit"];
    if (!name.empty() || !unit.empty()) {
        line("value", name + (unit.empty() ? "" : (name.empty() ? "" : ", ") + unit));
    }
    if (!json["missing"].is_null()) {
        line("missing", number(json["missing"]));
    }
    auto const bricks = json["bricks"].get<std::vector<int>>();
    if (std::any_of(bricks.begin(), bricks.end(), [](int length) { return length > 1; })) {
        line("bricks", shapeText(bricks));
    }
    line("definition", definition);
}

}  // namespace

void info(InfoWish const& wish, Session& session) {
    Json all = Json::array();
    for (std::string const& argument : wish.inputs) {
        for (Input const& input : variablesOf(argument, session)) {
            auto const json = describe(input, session);
            all.push_back(json);
            if (!wish.asJson) {
                print(json, input.text());
            }
        }
    }
    if (wish.asJson) {
        std::cout << all.dump(2) << '\n';
    }
}

}  // namespace Quorvel::Dravik::Command
