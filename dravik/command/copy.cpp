// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/commands.h"

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/transform/convert_def.h"
#include "dravik/adt/bulkview/filters/permute_filter.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/scale_offset.h"
#include "dravik/adt/logging/named_timer.h"
#include "dravik/command/draft.h"
#include "dravik/command/formats.h"
#include "dravik/text/definition_text.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <limits>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Command {

namespace {

using Adt::BulkDef::Entity::SourceEntityDef;
using Adt::BulkView::BrickPool;
using Adt::BulkView::Openers;

// The ends of an integer type; of those that a range can be spread over.
std::pair<double, double> endsOfType(std::string const& type) {
    static std::map<std::string, std::pair<double, double>> const kEnds{
        {"uint8", {0, 255}},
        {"int8", {-128, 127}},
        {"uint16", {0, 65535}},
        {"int16", {-32768, 32767}},
        {"int32", {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}},
        {"uint32", {0, std::numeric_limits<unsigned>::max()}}};
    auto const ends = kEnds.find(type);
    if (ends == kEnds.end()) {
        throw std::invalid_argument("--range spreads samples over an integer type: name it by --type");
    }
    return ends->second;
}

// The input in the samples that are wanted.
Input converted(Input input, CopyWish const& wish, Session& session) {
    auto const type =
        wish.type.empty() ? std::string(Adt::sampleTypeName(*open(input, session).sampleType)) : wish.type;
    if (wish.range) {
        auto const to = endsOfType(type);
        auto opened = open(input, session);
        auto from = endsOf(*wish.range, opened, session);
        from.second = from.second > from.first ? from.second : from.first + 1;
        auto const scaling = Adt::ScaleOffset::getRangeTransform({from.first, from.second}, {to.first, to.second});
        return transformed(
            std::move(input), Adt::BulkDef::Transform::ConvertDef(type, scaling.getScale(), scaling.getOffset()));
    }
    if (wish.type.empty() && wish.scale == 1 && wish.offset == 0) {
        return input;
    }
    return transformed(std::move(input), Adt::BulkDef::Transform::ConvertDef(type, wish.scale, wish.offset));
}

// A format may leave out axes of one index, as TIFF does for one page and one band: they go behind the others.
void fitAxes(std::unique_ptr<Adt::BulkView::IBufferAccessor>& input, Adt::FixedVector<4, int> const& wanted) {
    auto const size = input->getSize();
    Adt::FixedVector<4, int> order;
    int kept = 0, last = 3;
    for (int axis = 0; axis < 4; ++axis) {
        bool const isLeftOut = size[axis] == 1 && wanted[kept] != 1;
        order[isLeftOut ? last-- : kept++] = axis;
    }
    if (size != wanted) {
        input = Adt::BulkView::Filters::PermuteFilter::Apply(std::move(input), order);
    }
}

// Opened on its own, so that its file is closed with it.
class Output {
  public:
    Output(SourcePtr const& source, Format const& format, std::int64_t memory)
        : openers_(std::make_shared<BrickPool>(memory / 8, [](std::string const&) {})) {
        format.enter(openers_);
        chain_ = openers_.open(SourceEntityDef(*source)).chain;
    }

    void fillFrom(Opened& input, Adt::BulkView::TransferOptions const& options) {
        fitAxes(input.data.chain, chain_->getSize());
        Adt::BulkView::copyRegion(*input.data.chain, *chain_, options);
        Adt::BulkView::flush(*chain_);
    }

  private:
    Openers openers_;
    std::unique_ptr<Adt::BulkView::IBufferAccessor> chain_;
};

// The text by which a file that does not tell what is in it can be opened.
void writeDefinition(Draft const& draft, std::string const& text) {
    std::ofstream file(draft.path(), std::ios::binary);
    file << text << '\n';
    if (!file.flush()) {
        throw std::system_error(errno, std::generic_category(), draft.path().string());
    }
}

// What fails in a draft is told by the name that the user knows.
std::string withNameOf(std::string text, std::string const& draft, std::string const& name) {
    for (auto at = text.find(draft); at != std::string::npos; at = text.find(draft)) {
        text.replace(at, draft.size(), name);
    }
    return text;
}

}  // namespace

void copy(CopyWish const& wish, Session& session) {
    Adt::Logging::NamedTimer const timer("dravik: copy");
    Format const& format = formatFor(wish.output, wish.format);
    auto const input = converted(selected(inputOf(wish.input, session), wish.selection, session), wish, session);
    auto opened = open(input, session);
    OutputLayout const layout{
        opened.shape, std::string(Adt::sampleTypeName(*opened.sampleType)), wish.chunks, opened.data.info};
    if (!wish.chunks.empty() && wish.chunks.size() != layout.shape.size()) {
        throw std::invalid_argument("--chunks: one number per axis of " + shapeText(layout.shape));
    }
    Draft draft(wish.output, wish.mayReplace);
    std::optional<Draft> definition;
    if (format.needsDefinition) {
        definition.emplace(wish.output + ".json", wish.mayReplace);
    }
    try {
        auto const source = format.create(draft.path(), layout);
        Output(source, format, session.resources().memory).fillFrom(opened, session.transfer("copy"));
        if (definition) {
            auto const text = Text::toText(SourceEntityDef(*source));
            writeDefinition(*definition, withNameOf(text, draft.path().string(), wish.output));
        }
    } catch (std::exception const& error) {
        session.throwIfStopped();
        throw std::runtime_error(withNameOf(error.what(), draft.path().string(), wish.output));
    }
    session.throwIfStopped();
    draft.publish();
    if (definition) {
        definition->publish();
    }
}

}  // namespace Quorvel::Dravik::Command
