// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/input.h"

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkdef/view/composite_view_def.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/text/definition_text.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Command {

namespace {

using namespace Adt::BulkDef;

std::string contentOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

Input fromText(std::string name, std::string const& text) {
    try {
        auto const definitions = Text::definitionsFromText(text);
        auto entity = definitions.entity;
        if (entity == nullptr && definitions.source != nullptr) {
            entity = boost::make_shared<Entity::SourceEntityDef>(*definitions.source);
        }
        if (entity == nullptr) {
            throw std::runtime_error("the text has neither an entity nor a source");
        }
        return {std::move(name), std::move(entity), definitions.view};
    } catch (std::exception const& error) {
        throw std::runtime_error(name + ": " + error.what());
    }
}

Input fromFile(std::string const& name, std::string const& path, std::string const& variable, Session const& session) {
    if (!std::filesystem::exists(path)) {
        throw std::system_error(ENOENT, std::generic_category(), path);
    }
    try {
        auto const source = session.openers().sourceAt(path, variable);
        return {name, boost::make_shared<Entity::SourceEntityDef>(*source), nullptr};
    } catch (Adt::Exceptions::NotSupportedException const&) {
        throw std::runtime_error(
            path + ": of no format known; a file without a header is opened by a definition, as @" + path + ".json");
    }
}

}  // namespace

std::string Input::text() const {
    return Text::toText({.entity = entity, .view = view});
}

Input inputOf(std::string const& argument, Session const& session) {
    if (argument == "-") {
        return fromText("standard input", {std::istreambuf_iterator<char>(std::cin), {}});
    }
    if (argument.starts_with('@')) {
        return fromText(argument.substr(1), contentOf(argument.substr(1)));
    }
    auto const colon = argument.rfind(':');
    if (std::filesystem::exists(argument) || colon == std::string::npos || colon == 0) {
        return fromFile(argument, argument, "", session);
    }
    return fromFile(argument, argument.substr(0, colon), argument.substr(colon + 1), session);
}

Opened open(Input const& input, Session const& session) {
    try {
        auto data = input.view == nullptr ? session.openers().open(*input.entity)
                                          : session.openers().open(*input.entity, *input.view);
        auto const traits = Adt::BulkView::traitsOf(*data.chain);
        if (*traits.sampleType == typeid(void)) {
            throw std::runtime_error("the type of the samples is unknown");
        }
        data.chain = session.counted(std::move(data.chain));
        Opened opened{std::move(data), {}, traits.sampleType};
        for (int axis = 0; axis < opened.data.info.axisCount; ++axis) {
            opened.shape.push_back(opened.data.chain->getSize()[axis]);
        }
        return opened;
    } catch (std::exception const& error) {
        std::string const what = error.what();
        throw std::runtime_error(what.find(input.name) == std::string::npos ? input.name + ": " + what : what);
    }
}

Input transformed(Input input, TransformDef const& transform) {
    auto const derived = boost::make_shared<Entity::DerivedEntityDef>(transform);
    derived->setInput(0, *input.entity);
    input.entity = derived;
    return input;
}

Input seenThrough(Input input, ViewDef const& view) {
    input.view = input.view == nullptr ? view.clone() : View::CompositeViewDef::compose(*input.view, view);
    return input;
}

std::string shapeText(std::vector<int> const& shape) {
    std::string text;
    for (int const size : shape) {
        text.append(text.empty() ? "" : " x ").append(std::to_string(size));
    }
    return text;
}

}  // namespace Quorvel::Dravik::Command
