// SPDX-License-Identifier: Apache-2.0
// Every row of testing/texts.txt, trees of all classes and broken texts, there and back.
#include "dravik/text/definition_text.h"

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/source/constant_def.h"
#include "dravik/adt/bulkdef/source/project_item_def.h"
#include "dravik/adt/bulkdef/transform/cache_def.h"
#include "dravik/adt/bulkdef/transform/concat_def.h"
#include "dravik/adt/bulkdef/transform/convert_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/transform/min_max_def.h"
#include "dravik/adt/bulkdef/transform/missing_value_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
#include "dravik/adt/bulkdef/view/inverse_array_view_def.h"
#include "dravik/adt/testing/modelled_views.h"
#include "dravik/text/text_exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>

namespace Quorvel::Dravik::Text {
namespace {

using namespace Adt;
using namespace Adt::BulkDef;
using Adt::Testing::Random;
using testing::EndsWith;
using testing::ThrowsMessage;
using ArrayView = View::ArrayViewDef;

constexpr int kRounds = 1000;

// A transform of a host, with a value of each kind.
struct HostFields {
    unsigned inputs = 1;
    std::vector<float> floats;
    double number = 0;
    std::int64_t whole = 0;
    bool flag = false;
};

class HostDef : public TransformDef {
  public:
    explicit HostDef(HostFields values) : fields(std::move(values)) {}

    unsigned int numInputs() const override { return fields.inputs; }
    unsigned int numOutputs() const override { return 1; }
    int getHashCode() const override { return static_cast<int>(fields.whole); }

    HostFields fields;

  protected:
    bool compare(TransformDef const& other) const override {
        auto const bitsOf = [](double value) { return std::bit_cast<std::uint64_t>(value); };
        auto const isSame = [&](double left, double right) { return bitsOf(left) == bitsOf(right); };
        auto const* const host = dynamic_cast<HostDef const*>(&other);
        return host != nullptr && fields.inputs == host->fields.inputs && fields.flag == host->fields.flag &&
               fields.whole == host->fields.whole && isSame(fields.number, host->fields.number) &&
               std::ranges::equal(fields.floats, host->fields.floats, isSame);
    }
    std::unique_ptr<TransformDef> makeClone() const override { return std::make_unique<HostDef>(*this); }
};

Node writeHost(HostDef const& def, DefinitionWriter&) {
    HostFields const& fields = def.fields;
    return Node()
        .set("whole", fields.whole)
        .set("floats", Node::MakeArray(fields.floats))
        .set("number", fields.number)
        .set("inputs", fields.inputs)
        .set("flag", fields.flag);
}

boost::shared_ptr<TransformDef const> readHost(Node const& node, DefinitionReader&) {
    HostFields fields{
        node.at("inputs").as<std::uint8_t>(),
        {},
        node.at("number").as<double>(),
        node.at("whole").as<std::int64_t>(),
        node.at("flag").as<bool>()};
    for (Node const& element : node.at("floats").elements()) {
        fields.floats.push_back(element.as<float>());
    }
    return fields.inputs > 0 ? boost::make_shared<HostDef const>(fields) : throw std::invalid_argument("no inputs");
}

// The standard forms, and the host's.
Forms const& hostForms() {
    static Forms const& forms = *[] {
        auto* const made = new Forms(Forms::standard());
        made->add<HostDef>("Host", writeHost, readHost);
        return made;
    }();
    return forms;
}

template <class Call>
void expectRefused(std::string const& message, Call const& call) {
    EXPECT_THAT(call, ThrowsMessage<TextException>(message));
}

// What the rows of that kind say: a message, where the kind has one, and a text.
std::vector<std::pair<std::string, std::string>> rows(std::string const& kind) {
    std::ifstream file(std::getenv("DRAVIK_TEXTS"));
    std::vector<std::pair<std::string, std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(kind + " ")) {
            auto const separator = line.find(" :: ");
            rows.emplace_back(
                line.substr(kind.size() + 1, separator - kind.size() - 1),
                line.substr(separator + std::strlen(" :: ")));
        }
    }
    EXPECT_FALSE(rows.empty()) << kind;
    return rows;
}

TEST(DefinitionText, KeepsEveryGoodRow) {
    for (auto const* const kind : {"good", "own"}) {
        for (auto const& [name, text] : rows(kind)) {
            EXPECT_EQ(toText(definitionsFromText(text, hostForms()), hostForms()), text) << name;
        }
    }
}

TEST(DefinitionText, ReadsOtherSpellingsToo) {
    EXPECT_EQ(
        toText(definitionsFromText(
            " {\"view\" : {\"type\":\"ArraySubset\", \"axes\":[[-0, 1e0, 0.3E1], [7,9,-8]], \"x-a\":{\"b\":1}},\n"
            "\"x-b\":[{}], \"source\":{\"type\":\"BulkFile\",\"path\":{\"bytes\":\"w4Q=\"},\"format\":1}, "
            "\"dravik\":1.0}")),
        R"({"dravik":1,"source":{"format":"FILEFORMAT_OTHER","path":"Ä","type":"BulkFile"},)"
        R"("view":{"axes":[[0,1,3],[0,1,0]],"type":"ArraySubset"}})");
}

TEST(DefinitionText, TellsWhatIsWrongWhere) {
    for (auto const* const kind : {"bad", "odd"}) {
        for (auto const& row : rows(kind)) {
            expectRefused(row.first, [&] { definitionsFromText(row.second, hostForms()); });
        }
    }
}

std::string anyByte(Random& random) {
    return std::string(1, static_cast<char>(random.between(0, 255)));
}

std::string randomBytes(Random& random) {
    std::string bytes;
    for (int length = random.oneOf({0, 1, 2, 3, 9}); length > 0; --length) {
        bytes += random.chance(80) ? random.oneOf({"a", "/", "\"", "\\", "\n", "é", "x-"}) : anyByte(random);
    }
    return bytes;
}

std::int64_t randomBits(Random& random) {
    return random.between(std::numeric_limits<std::int64_t>::min(), INT64_MAX);
}

double randomReal(Random& random) {
    return random.chance(50) ? std::bit_cast<double>(randomBits(random))
                             : std::ldexp(random.anyInt(), random.between(-9, 60));
}

boost::shared_ptr<SourceDef const> randomSource(Random& random) {
    auto const bytes = [&] { return randomBytes(random); };
    auto const any = [&] { return random.anyInt(); };
    switch (random.between(0, 2)) {
    case 0:
        return Source::BulkFileDef(
                   bytes(), static_cast<Source::BulkFileDef::FileFormat>(random.oneOf({any(), 0, 1, 10, 41})))
            .clone();
    case 1:
        return Source::ConstantDef({any(), any(), any(), any()}, bytes(), randomReal(random)).clone();
    default:
        return Source::ProjectItemDef(bytes(), bytes(), bytes(), bytes(), bytes(), bytes()).clone();
    }
}

boost::shared_ptr<TransformDef const> randomTransform(Random& random) {
    auto const any = [&] { return random.anyInt(); };
    auto const floating = [&] { return std::bit_cast<float>(any()); };
    auto const real = [&] { return randomReal(random); };
    switch (random.between(0, 7)) {
    case 0:
        return Transform::DecimateDef({any(), any(), any(), any()}, {any(), any(), any(), any()}).clone();
    case 1:
        return Transform::MinMaxDef({any(), any(), any()}).clone();
    case 2:
        return Transform::MultiresDef(any(), randomBytes(random)).clone();
    case 3:
        return Transform::CacheDef(any()).clone();
    case 4:
        return Transform::ConvertDef(randomBytes(random), real(), real()).clone();
    case 5:
        return Transform::ConcatDef(random.between(0u, 3u), any()).clone();
    case 6:
        return Transform::MissingValueDef(real(), real()).clone();
    default:
        return HostDef({random.between(1u, 3u),
                        {floating(), 0.1f, floating()},
                        real(),
                        randomBits(random),
                        random.chance(50)})
            .clone();
    }
}

boost::shared_ptr<EntityDef const> randomEntity(Random& random, int depth) {
    if (depth == 0 || random.chance(40)) {
        return Entity::SourceEntityDef(*randomSource(random)).clone();
    }
    Entity::DerivedEntityDef entity(*randomTransform(random));
    for (unsigned slot = 0; slot < entity.numInputs(); ++slot) {
        random.chance(20) ? void() : entity.setInput(slot, *randomEntity(random, depth - 1));
    }
    return entity.clone();
}

boost::shared_ptr<ViewDef const> randomView(Random& random) {
    auto view = Adt::Testing::randomView(random, 2, /*exchanges=*/true).def;
    while (random.chance(20) && ArrayView::Cast(view) != nullptr) {
        view = boost::make_shared<ArrayView::InverseArrayViewDef const>(*ArrayView::Cast(view));
    }
    return view;
}

Definitions randomDefinitions(Random& random) {
    return {randomEntity(random, 3), randomSource(random), randomTransform(random), randomView(random)};
}

TEST(DefinitionText, CarriesEveryTreeThereAndBack) {
    Random random;
    for (int round = 0; round < kRounds; ++round) {
        Definitions const defs = randomDefinitions(random);
        std::string const text = toText(defs, hostForms());
        Definitions const read = definitionsFromText(text, hostForms());
        auto const expectSame = [&](auto const& def, auto const& again) {
            ASSERT_TRUE(again->equals(*def)) << *def << '\n' << text;
            ASSERT_EQ(again->getHashCode(), def->getHashCode()) << text;
        };
        expectSame(defs.entity, read.entity);
        expectSame(defs.source, read.source);
        expectSame(defs.transform, read.transform);
        expectSame(defs.view, read.view);
        ASSERT_EQ(toText(read, hostForms()), text);
        ASSERT_TRUE(entityFromText(toText(*defs.entity, hostForms()), hostForms())->equals(*defs.entity)) << text;
        ASSERT_TRUE(sourceFromText(toText(*defs.source))->equals(*defs.source)) << text;
    }
}

TEST(DefinitionText, IsTheSameForEqualViews) {
    Random random;
    // So few that equal ones are met again and again, spelt alike or not.
    auto const subset = [&]() -> boost::shared_ptr<ViewDef const> {
        ExtentImpl<int> const axis{random.between(0, 1), random.between(-1, 1), random.between(-1, 2)};
        View::ArraySubsetDef<1> const def{ExtentK<1, int>(axis)};
        return random.chance(50) ? def.clone() : def.inverse();
    };
    for (int round = 0; round < kRounds; ++round) {
        auto const one = subset(), other = subset();
        ASSERT_EQ(one->equals(*other), toText(*one) == toText(*other)) << *one << " and " << *other;
    }
}

// Cuts out, doubles or replaces a part.
void damage(std::string& text, Random& random) {
    auto const begin = random.between<std::size_t>(0, text.size());
    auto const length = random.oneOf<std::size_t>({0, 1, 2, random.between<std::size_t>(0, text.size())});
    auto const with = random.oneOf<std::string>(
        {"", anyByte(random), text.substr(begin, length) + text.substr(begin, length), "[", "{", "9", "-0", "1e9",
         "1e999", "\"", "\\", R"("x-a":[{"b":1}],)", R"({"bytes":"/w=="})", "null"});
    text.replace(begin, length, with);
}

TEST(DefinitionText, RefusesOrUnderstandsDamagedTexts) {
    Random random;
    int refused = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::string text = toText(randomDefinitions(random), hostForms());
        for (int times = random.between(1, 3); times > 0; --times) {
            damage(text, random);
        }
        try {
            std::string const understood = toText(definitionsFromText(text, hostForms()), hostForms());
            ASSERT_EQ(toText(definitionsFromText(understood, hostForms()), hostForms()), understood);
        } catch (TextException const& e) {
            ++refused;
            ASSERT_EQ(e.msg(), e.pointer().empty() ? e.problem() : e.pointer() + ": " + e.problem());
        }
    }
    EXPECT_LT(refused, kRounds);
    EXPECT_GT(refused, kRounds / 4);
}

TEST(DefinitionText, BoundsLevelsBytesAndDefinitions) {
    boost::shared_ptr<ArrayView const> view =
        View::ArraySubsetDef<1>(ExtentK<1, int>(ExtentImpl<int>{1, 2, 5})).clone();
    for (int level = 0; level < kMostLevels - 4; ++level) {  // besides those of the text, the subset and its axes
        view = boost::make_shared<ArrayView::InverseArrayViewDef const>(*view);
    }
    EXPECT_TRUE(viewFromText(toText(*view))->equals(*view));
    ArrayView::InverseArrayViewDef const deeper(*view);
    expectRefused("nests deeper than 512 levels", [&] { toText(deeper); });
    std::string const arrays(100000, '[');
    EXPECT_THAT(
        [&] { definitionsFromText(arrays); },
        ThrowsMessage<TextException>(EndsWith("/0: nests deeper than 512 levels")));

    auto const file = [](std::size_t bytes) {
        return Source::BulkFileDef(std::string(bytes, 'a'), Source::BulkFileDef::FILEFORMAT_OTHER);
    };
    std::size_t const most = kMostBytes - toText(file(0)).size();
    EXPECT_TRUE(sourceFromText(toText(file(most)))->equals(file(most)));
    expectRefused("has more than 4194304 bytes", [&] { toText(file(most + 1)); });
    expectRefused("has more than 4194304 bytes", [] { definitionsFromText(std::string(kMostBytes + 1, ' ')); });

    boost::shared_ptr<EntityDef const> entity = Entity::SourceEntityDef(file(1)).clone();
    for (int level = 0; level < 60; ++level) {  // each level has the one below twice
        Entity::DerivedEntityDef both(HostDef({2, {}, 0, 0, false}));
        both.setInput(0, *entity);
        both.setInput(1, *entity);
        entity = both.clone();
    }
    expectRefused("has more than 65536 definitions", [&] { toText(*entity, hostForms()); });
}

TEST(Forms, GiveEachClassOneNamedForm) {
    expectRefused("has no form for the class Quorvel::Dravik::Adt::Testing::ForeignView", [] {
        toText(Adt::Testing::ForeignView());
    });
    auto const write = [](auto const&, DefinitionWriter&) { return Node::MakeObject(); };
    auto const read = [](Node const&, DefinitionReader&) { return boost::shared_ptr<TransformDef const>(); };
    Forms forms;
    forms.add<HostDef>("Host", write, read);
    EXPECT_THAT(
        [&] { forms.add<Transform::MinMaxDef>("Host", write, read); },
        ThrowsMessage<std::invalid_argument>("[Forms::add] The name is taken. (Host)"));
    EXPECT_THROW((forms.add<Transform::MinMaxDef, HostDef>("Other", write, read)), std::invalid_argument);
    Forms const before = forms;
    forms.add<Transform::MinMaxDef>("Other", write, read);
    std::string const text = toText(Transform::MinMaxDef({1, 2, 3}), forms);
    EXPECT_EQ(text, R"({"dravik":1,"transform":{"type":"Other"}})");
    expectRefused("/transform: was read as no definition", [&] { transformFromText(text, forms); });
    expectRefused(R"(/transform/type: names an unknown type, "Other")", [&] { transformFromText(text, before); });
    expectRefused(R"(has no "view")", [] { viewFromText(R"({"dravik":1})"); });
}

}  // namespace
}  // namespace Quorvel::Dravik::Text
