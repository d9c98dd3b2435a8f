// SPDX-License-Identifier: Apache-2.0
// What holds for every definition, and what sources, transforms and entities do beyond that.

#include "dravik/adt/bulkdef/definition_containers.h"
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
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/child_output.h"
#include "dravik/adt/testing/modelled_views.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef {
namespace {

using namespace Entity;
using namespace Source;
using namespace Transform;
using Testing::Random;
using testing::ThrowsMessage;

static_assert(Definition<View::ArraySubsetDef<3>> && Definition<EntityDef const> && !Definition<std::string>);
static_assert(
    !std::is_constructible_v<DerivedEntityDef, TransformDef const&, EntityDef const&>, "unary transforms only");

template <class Def>
std::string text(Def const& def) {
    return (std::ostringstream() << def).str();
}

BulkFileDef file(char const* name) {
    return {name, BulkFileDef::FILEFORMAT_OTHER};
}

// A transform of a host: the difference of two data sets. By itself it accepts every other transform.
class DifferenceDef : public TransformDef {
  public:
    unsigned int numInputs() const override { return 2; }
    unsigned int numOutputs() const override { return 1; }
    int getHashCode() const override { return 1; }

  protected:
    bool compare(TransformDef const&) const override { return true; }
    std::unique_ptr<TransformDef> makeClone() const override { return std::make_unique<DifferenceDef>(); }
};

TEST(Definitions, PrintOneReadableLine) {
    BulkFileDef const odd("/data/a \"b\"\\\n\x10\x7f.vol", BulkFileDef::FILEFORMAT_TORVAN_A);
    EXPECT_EQ(text(odd), R"(BulkFileDef("/data/a \"b\"\\\x0a\x10\x7f.vol", FILEFORMAT_TORVAN_A))");
    SourceEntityDef const entity(BulkFileDef("a", static_cast<BulkFileDef::FileFormat>(42)));
    DerivedEntityDef derived(MinMaxDef({4, 4, 2}), entity);
    EXPECT_EQ(text(derived), R"(DerivedEntityDef(MinMaxDef((4,4,2)), SourceEntityDef(BulkFileDef("a", 42))))");
    EXPECT_EQ(
        text(DerivedEntityDef(DecimateDef({2, 2, 1, 1}, {0, 1, 0, 0}))),
        "DerivedEntityDef(DecimateDef((2,2,1,1), offset (0,1,0,0)), unset)");
    EXPECT_EQ(text(MultiresDef(2, MultiresDef::BasicAverage)), "MultiresDef(2, \"BasicAverage\")");
    EXPECT_EQ(
        text(ProjectItemDef(ProjectItemDef::KestruneDataStoreType, "D", "P", "I", "2", "")),
        R"(ProjectItemDef("Kestrune" store "D", parent "P", item "I", scalar "2", offset "0"))");
    View::ArraySubsetDef<2> const subset({ExtentImpl<int>{10, 2, 5}, ExtentImpl<int>{9, -1, 10}});
    EXPECT_EQ(text(*subset.inverse()), "InverseArrayViewDef(ArraySubsetDef(10:2:5 x 9:-1:10))");
    EXPECT_EQ(text(View::CompleteViewDef()), "CompleteViewDef");
    EXPECT_EQ(text(DifferenceDef()), "Quorvel::Dravik::Adt::BulkDef::(anonymous namespace)::DifferenceDef");
}

// A file of a host: its compare() accepts its own class only, as a derived class has to, or is the one it inherits.
class ArchivedFile : public BulkFileDef {
  public:
    using BulkFileDef::BulkFileDef;

  protected:
    bool compare(SourceDef const& other) const override {
        return dynamic_cast<ArchivedFile const*>(&other) != nullptr && BulkFileDef::compare(other);
    }
};
class LinkedFile : public BulkFileDef {
  public:
    using BulkFileDef::BulkFileDef;
};

// An entity of a host that counts the questions.
struct Asked : EntityDef {
    Asked(bool answers, int& questions) : answer(answers), count(questions) {}
    int getHashCode() const override { return 1; }
    bool compare(EntityDef const&) const override { return ++count, answer; }
    std::unique_ptr<EntityDef> makeClone() const override { return std::make_unique<Asked>(*this); }
    bool answer;
    int& count;
};

TEST(Definitions, AreEqualWhenBothSidesAccept) {
    int questions = 0;
    Asked const yes(true, questions), no(false, questions);
    EXPECT_FALSE(no.equals(yes));
    EXPECT_EQ(questions, 1) << "the other side is asked only after a yes";
    EXPECT_FALSE(yes.equals(no));
    EXPECT_EQ(questions, 3);
    ArchivedFile const archived("a", BulkFileDef::FILEFORMAT_OTHER);
    LinkedFile const linked("a", BulkFileDef::FILEFORMAT_OTHER);
    EXPECT_FALSE(file("a").equals(archived)) << "the file alone would say yes";
    EXPECT_FALSE(archived.equals(file("a")));
    EXPECT_TRUE(archived.equals(archived));
    EXPECT_TRUE(file("a").equals(linked)) << "neither says no";
}

boost::shared_ptr<SourceDef const> randomSource(Random& random) {
    auto const letter = [&] { return random.oneOf<std::string>({"", "a", "b"}); };
    if (random.chance(30)) {
        int const length = random.between(0, 1);
        return Source::ConstantDef({length, 1, 1, length}, random.oneOf<std::string>({"int8", "int16"}), length * 0.5)
            .clone();
    }
    if (random.chance(50)) {
        return BulkFileDef(letter(), static_cast<BulkFileDef::FileFormat>(random.oneOf({0, 1, 42}))).clone();
    }
    return ProjectItemDef(letter(), letter(), letter(), letter(), letter(), letter()).clone();
}

boost::shared_ptr<TransformDef const> randomTransform(Random& random) {
    auto const any = [&] { return random.between(-1, 0); };
    switch (random.between(0, 8)) {
    case 8:
        return Transform::MissingValueDef(any(), any() + 1.5).clone();
    case 7:
        return Transform::ConcatDef(2, any()).clone();
    case 5:
        return CacheDef(any()).clone();
    case 6:
        return ConvertDef(random.oneOf<std::string>({"int8", "int16"}), any(), any() + 0.5).clone();
    case 0:
        return MultiresDef(any(), random.oneOf<std::string>({"a", "b"})).clone();
    case 1:
        return MinMaxDef({any(), any(), any()}).clone();
    case 2:
        return DifferenceDef().clone();
    default:
        return DecimateDef({any(), any(), any(), any()}, {any(), any(), any(), any()}).clone();
    }
}

boost::shared_ptr<EntityDef const> randomEntity(Random& random, int depth) {
    if (depth == 0 || random.chance(40)) {
        return SourceEntityDef(*randomSource(random)).clone();
    }
    DerivedEntityDef entity(*randomTransform(random));
    EXPECT_EQ(entity.numInputs(), UnaryTransDef::Cast(&entity.transform()) != nullptr ? 1u : 2u);
    for (unsigned slot = 0; slot < entity.numInputs(); ++slot) {
        random.chance(30) ? void() : entity.setInput(slot, *randomEntity(random, depth - 1));
    }
    return entity.clone();
}

// What a definition describes: equal definitions are those with equal notations. Its text says as much, and what takes
// no part in equality as well.
std::string notation(auto const& def) {
    static std::regex const besides(R"re(, scalar "\w*", offset "\w*"|, "\w"\))re");
    return std::regex_replace(text(def), besides, "");
}
// The text of a view tells steps that do not matter; what it shows is listed index by index.
std::string notation(Testing::ModelledView const& view) {
    std::string notation = text(*view.def).substr(0, 5);
    for (auto const& axis : view.axes) {
        notation += axis ? " axis" : "";
        for (auto const& [viewIndex, targetIndex] : axis.value_or(std::map<int, int>())) {
            notation += text(viewIndex) + ">" + text(targetIndex) + " ";
        }
    }
    return notation;
}

// Definitions of one root, kept in a table of their own and found again by notation.
template <class Root, class Generate>
void expectKeys(Generate generate) {
    using Key = boost::shared_ptr<Root const>;
    DefinitionMap<Root, std::string> table;
    std::unordered_map<std::string, Key> byNotation;
    for (int round = 0; round < 1500; ++round) {
        std::pair<Key, std::string> const one = generate(), other = generate();
        Root const& def = *one.first;
        ASSERT_EQ(def.equals(*other.first), one.second == other.second) << def << " and " << *other.first;
        ASSERT_EQ(other.first->equals(def), one.second == other.second) << def << " and " << *other.first;
        table.insert(one);
        Root const& first = *byNotation.emplace(one.second, one.first).first->second;
        ASSERT_EQ(def.getHashCode(), first.getHashCode()) << def << " and " << first;
        auto const clone = def.clone();
        ASSERT_NE(clone, one.first);
        ASSERT_EQ(text(*clone), text(def));
        ASSERT_EQ(table.find(Key(clone))->second, one.second) << "by pointer";
        ASSERT_EQ(table.find(*clone)->second, one.second) << "by reference";
    }
    EXPECT_EQ(table.size(), byNotation.size());
    EXPECT_FALSE(table.contains(Key()));
    table.emplace(Key(), "");
    EXPECT_EQ(table.count(Key()), 1u) << "an empty pointer is a key";
}

TEST(Definitions, AreKeysByWhatTheyDescribe) {
    Random random;
    auto const noted = [](auto def) { return std::pair(def, notation(*def)); };
    expectKeys<SourceDef>([&] { return noted(randomSource(random)); });
    expectKeys<TransformDef>([&] { return noted(randomTransform(random)); });
    expectKeys<EntityDef>([&] { return noted(randomEntity(random, 3)); });
    expectKeys<ViewDef>([&] {
        auto const view = random.chance(50) ? Testing::randomSubset<1>(random) : Testing::randomView(random, 1);
        return std::pair(view.def, notation(view));
    });
}

TEST(Definitions, HashTheirFieldsInOrder) {
    auto const mix = [](std::initializer_list<int> numbers, unsigned hash) {
        for (int const number : numbers) {
            hash = (hash + static_cast<unsigned>(number)) * 0x9E3779B9u + 5;
        }
        return static_cast<int>(hash);
    };
    EXPECT_EQ(BulkFileDef("ab", BulkFileDef::FILEFORMAT_OTHER).getHashCode(), mix({1}, 1008));
    EXPECT_EQ(ProjectItemDef("d", "c", "b", "a").getHashCode(), (((11 * 5 + 'a') * 5 + 'b') * 5 + 'c') * 5 + 'd');
    EXPECT_EQ(DecimateDef({1, -2, 3, 4}, {5, 6, 7, 8}).getHashCode(), mix({1, -2, 3, 4, 5, 6, 7, 8}, 17));
    EXPECT_EQ(MinMaxDef({1, -2, 3}).getHashCode(), mix({1, -2, 3}, 15));
    EXPECT_EQ(MultiresDef(-2, "a").getHashCode(), mix({-2}, 13));
    View::ArraySubsetDef<1> const subset(ExtentK<1, int>(ExtentImpl<int>{1, 2, 3}));
    EXPECT_EQ(subset.getHashCode(), 19);
    EXPECT_EQ(subset.inverse()->getHashCode(), 19);
    EXPECT_EQ(View::CompleteViewDef().getHashCode(), 27);
    SourceEntityDef const entity(ProjectItemDef("", "", "", "a"));
    EXPECT_EQ(entity.getHashCode(), 11 * 5 + 'a');
    EXPECT_EQ(DerivedEntityDef(MinMaxDef({1, 2, 3}), entity).getHashCode(), mix({1, 2, 3}, 15));
}

TEST(BulkFileDef, NamesItsFormatsBothWays) {
    constexpr std::pair<char const*, int> kFormats[] = {
        {"FILEFORMAT_UNKNOWN", 0},  {"FILEFORMAT_OTHER", 1},     {"FILEFORMAT_BRANTEL", 10},
        {"FILEFORMAT_FOLMAR", 11},  {"FILEFORMAT_QUENDA", 12},   {"FILEFORMAT_VIRSET", 13},
        {"FILEFORMAT_HALDOR", 14},  {"FILEFORMAT_TORVAN_A", 20}, {"FILEFORMAT_TORVAN_B", 21},
        {"FILEFORMAT_SPINDRA", 30}, {"FILEFORMAT_WYNDEL_A", 40}, {"FILEFORMAT_WYNDEL_B", 41},
    };
    auto const nameOf = [](int value) {
        return BulkFileDef::getFileFormatString(static_cast<BulkFileDef::FileFormat>(value));
    };
    for (auto const& [name, value] : kFormats) {
        EXPECT_EQ(BulkFileDef::getFileFormat(name), value) << name;
        EXPECT_EQ(nameOf(value), name);
    }
    EXPECT_EQ(nameOf(2) + nameOf(-1), "FILEFORMAT_UNDEFINEDFILEFORMAT_UNDEFINED");
    for (char const* const name : {"FILEFORMAT_UNDEFINED", "", "fileformat_other", " FILEFORMAT_OTHER"}) {
        EXPECT_EQ(BulkFileDef::getFileFormat(name), BulkFileDef::FILEFORMAT_UNKNOWN) << name;
    }
}

// A user's static that is made before any of the library's, and so goes after all of them.
struct PrintsAtExit {
    ~PrintsAtExit() {
        std::puts(BulkFileDef::getFileFormatString(BulkFileDef::FILEFORMAT_HALDOR).c_str());
        std::puts(BulkFileDef::getFileFormatString(BulkFileDef::FileFormat(7)).c_str());
        std::puts(text(*View::CompleteViewDef::Instance()).c_str());
    }
};

TEST(Definitions, KeepTheirNamesUntilTheEnd) {
    auto const output = Testing::outputOfChild([] {
        static PrintsAtExit const atExit;
        EXPECT_EQ(BulkFileDef::getFileFormat("FILEFORMAT_HALDOR"), BulkFileDef::FILEFORMAT_HALDOR);
        BulkFileDef::getFileFormatString(BulkFileDef::FileFormat(7));
    });
    EXPECT_EQ(output, "FILEFORMAT_HALDOR\nFILEFORMAT_UNDEFINED\nCompleteViewDef\n");
}

TEST(Definitions, HandOutWhatTheyHold) {
    ProjectItemDef item("T", "D", "P", "I", "", "");
    auto const fields = [](ProjectItemDef const& i) {
        return i.datastoreType() + i.datastoreId() + i.parentId() + i.itemId() + i.bulkScalar() + i.bulkOffset();
    };
    EXPECT_EQ(fields(item), "TDPI10");
    item.datastoreType() = "t", item.datastoreId() = "d", item.parentId() = "p", item.itemId() = "i";
    item.bulkScalar() = item.bulkOffset() = "";
    EXPECT_EQ(fields(item), "tdpi");
    EXPECT_EQ(fields(*ProjectItemDef::Cast(item.clone().get())), "tdpi10") << "no scale is 1, no offset is 0";
    BulkFileDef link = file("a");
    link.fileName() += "b";
    link.fileFormat() = BulkFileDef::FILEFORMAT_HALDOR;
    BulkFileDef const& sameLink = link;
    EXPECT_EQ(sameLink.fileName() + text(int{sameLink.fileFormat()}), "ab14");
    EXPECT_TRUE(SourceEntityDef(link).source().equals(link));
    link.setFileName("c");
    EXPECT_EQ(sameLink.fileName(), "c");
    for (SourceDef const* const source : {static_cast<SourceDef const*>(&item), static_cast<SourceDef const*>(&link)}) {
        EXPECT_THAT(
            [&] { source->toString(); },
            ThrowsMessage<std::exception>("[SourceDef::toString] Default implementation not supported."));
    }
    EXPECT_EQ(BulkFileDef::ClassName + ProjectItemDef::ClassName, "BulkFileDefProjectItemDef");
    EXPECT_EQ(ProjectItemDef::VellomarDataStoreType, "Vellomar");
    MultiresDef const multires(2, MultiresDef::FirstValid + MultiresDef::Decimation);
    EXPECT_EQ(multires.getName() + text(multires.getFactor()), "FirstValidDecimation2");
    EXPECT_EQ(text(multires.numInputs()) + text(multires.numOutputs()), "11");
    DecimateDef const decimate({1, 2, 3, 4}, {5, 6, 7, 8});
    EXPECT_EQ(text(decimate.getDecimation()) + text(decimate.getOffset()), "(1,2,3,4)(5,6,7,8)");
    EXPECT_EQ(MinMaxDef({4, 4, 2}).getBinSize()[2], 2);
    using Extents = ExtentK<1, int>;
    View::ArraySubsetDef<1> subset(Extents(ExtentImpl<int>{1, 2, 3}));
    subset.setSubset(Extents(ExtentImpl<int>{3, 2, 1}));
    EXPECT_EQ(text(subset), "ArraySubsetDef(3:2:1)");
    EXPECT_EQ(UnaryTransDef::Cast(DifferenceDef().clone().get()), nullptr);
}

TEST(DerivedEntityDef, RefusesWhatIsNotThere) {
    DerivedEntityDef entity{DifferenceDef()};
    entity.setInput(0, SourceEntityDef(file("a")));
    EXPECT_EQ(entity.getInputPtr(1), nullptr);
    EXPECT_THAT(
        [&] { entity.getInput(1); },
        ThrowsMessage<Exceptions::PlainException>("[DerivedEntityDef::getInput] Input entity is not set."));
    auto const expectRefused = [](std::string const& operation, auto call) {
        EXPECT_THAT(
            call, ThrowsMessage<std::invalid_argument>(
                      "[DerivedEntityDef::" + operation + "] Index is out of range. (index 2, 2 inputs)"));
    };
    expectRefused("getInput", [&] { entity.getInput(2); });
    expectRefused("getInputPtr", [&] { entity.getInputPtr(2); });
    expectRefused("setInput", [&] { entity.setInput(2, entity); });
}

TEST(EntityDefs, ShareOrCloneWhatTheyHold) {
    SourceEntityDef const source(file("a"));
    auto const sourceClone = source.clone();
    EXPECT_NE(SourceEntityDef::Cast(sourceClone.get())->sourcePtr(), source.sourcePtr()) << "a clone has its own";
    EXPECT_EQ(SourceEntityDef(source).sourcePtr(), source.sourcePtr()) << "a copy shares";
    DerivedEntityDef derived(MultiresDef(2, "a"), source);
    auto const clone = derived.clone();
    EXPECT_EQ(DerivedEntityDef::Cast(clone.get())->transformPtr(), derived.transformPtr());
    EXPECT_EQ(DerivedEntityDef::Cast(clone.get())->getInputPtr(0), derived.getInputPtr(0));
    EXPECT_NE(derived.getInputPtr(0).get(), &source);
    derived.setInput(0, derived);
    EXPECT_TRUE(derived.getInput(0).equals(*clone)) << "the slot holds what the entity was";
    DerivedEntityDef const taken(std::move(derived));                          // NOLINT(performance-move-const-arg)
    EXPECT_TRUE(derived.equals(taken)) << "moving leaves a definition whole";  // NOLINT(bugprone-use-after-move)
}

TEST(Definitions, StayKeysByIdentityWhereAsked) {
    auto const link = boost::make_shared<BulkFileDef>(file("a"));
    std::unordered_set<boost::shared_ptr<BulkFileDef>> const byIdentity{link};
    link->setFileName("b");
    EXPECT_TRUE(byIdentity.contains(link));
    SourceEntityDef const source(*link);
    DerivedEntityDef const derived(MultiresDef(2, "a"), source);
    EXPECT_FALSE(EqualDefinitions()(source, derived));
    EXPECT_TRUE(DefinitionSet<EntityDef>({source.clone()}).contains(source));
}

// What took a stack frame per level would run out of stack, and what asked both sides at every level out of time.
TEST(Definitions, NestAsDeepAsMemoryAllows) {
    constexpr int kLevels = 200000;
    auto const chain = [](char const* name) {
        boost::shared_ptr<EntityDef const> entity = SourceEntityDef(file(name)).clone();
        for (int level = 0; level < kLevels; ++level) {
            entity = DerivedEntityDef(MultiresDef(2, ""), *entity).clone();
        }
        return entity;
    };
    auto const entity = chain("a");
    EXPECT_TRUE(entity->equals(*chain("a")));
    EXPECT_FALSE(entity->equals(*chain("b")));
    EXPECT_TRUE(text(*entity).ends_with("BulkFileDef(\"a\", FILEFORMAT_OTHER)" + std::string(kLevels + 1, ')')));

    using View::ArrayViewDef;
    auto const inverted = [](int origin) {
        auto const subset = View::ArraySubsetDef<1>(ExtentK<1, int>(ExtentImpl<int>{origin, 2, 5}));
        boost::shared_ptr<ArrayViewDef const> view = subset.clone();
        for (int level = 0; level < kLevels + 1; ++level) {
            view = boost::make_shared<ArrayViewDef::InverseArrayViewDef>(*view);
        }
        return view;
    };
    auto const view = inverted(3);
    EXPECT_TRUE(view->equals(*inverted(3)));
    EXPECT_FALSE(view->equals(*inverted(4)));
    EXPECT_FALSE(view->equals(ArrayViewDef::InverseArrayViewDef(*view))) << "inverted once more";
    EXPECT_EQ(view->getHashCode(), 19);
    EXPECT_EQ(view->viewToTargetAxisExtent({0, {7, 2, 1}}).second, (ExtentImpl<int>{2, 1, 1}));
    EXPECT_EQ(view->targetToViewAxisExtent({0, {2, 1, 1}}).second, (ExtentImpl<int>{7, 2, 1}));
    EXPECT_TRUE(text(*view).ends_with("InverseArrayViewDef(ArraySubsetDef(3:2:5)" + std::string(kLevels + 1, ')')));
}

TEST(DerivedEntityDef, ComparesSharedInputsOnce) {
    auto const lattice = [](char const* name) {
        boost::shared_ptr<EntityDef const> entity = SourceEntityDef(file(name)).clone();
        for (int level = 0; level < 60; ++level) {
            DerivedEntityDef both{DifferenceDef()};
            both.setInput(0, *entity);
            both.setInput(1, *entity);
            entity = both.clone();
        }
        return entity;
    };
    EXPECT_TRUE(lattice("a")->equals(*lattice("a")));
    EXPECT_FALSE(lattice("a")->equals(*lattice("b")));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef
