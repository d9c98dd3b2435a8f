// What holds for every definition: the contract of the four roots.

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/source/project_item_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/transform/min_max_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
#include "dravik/adt/testing/modelled_views.h"

#include <gtest/gtest.h>

#include <sstream>
#include <typeinfo>
#include <unordered_map>

namespace Quorvel::Dravik::Adt::BulkDef {
namespace {

using Entity::DerivedEntityDef;
using Entity::SourceEntityDef;
using Source::BulkFileDef;
using Source::ProjectItemDef;
using Testing::Random;
using Transform::DecimateDef;
using Transform::MinMaxDef;
using Transform::MultiresDef;

static_assert(Definition<View::ArraySubsetDef<3>> && Definition<EntityDef const> && !Definition<std::string>);

template <class Def>
std::string text(Def const& def) {
    return (std::ostringstream() << def).str();
}

TEST(Definitions, PrintOneReadableLine) {
    BulkFileDef const file("/data/a \"b\"\n\x10.vol", BulkFileDef::FILEFORMAT_TORVAN_A);
    EXPECT_EQ(text(file), R"(BulkFileDef("/data/a \"b\"\x0a\x10.vol", FILEFORMAT_TORVAN_A))");
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

TEST(Definitions, AreEqualWhenEitherSideAcceptsTheOther) {
    BulkFileDef const file("a", BulkFileDef::FILEFORMAT_OTHER);
    ArchivedFile const archived("a", BulkFileDef::FILEFORMAT_OTHER);
    LinkedFile const linked("a", BulkFileDef::FILEFORMAT_OTHER);
    EXPECT_FALSE(file.equals(archived)) << "the file alone would say yes";
    EXPECT_FALSE(archived.equals(file));
    EXPECT_TRUE(archived.equals(archived));
    EXPECT_TRUE(file.equals(linked) && linked.equals(file)) << "neither says no";
}

// An entity of a host that writes down when it is asked, and prints as the host left it.
class Asked : public EntityDef {
  public:
    Asked(char name, bool answer, std::string& log) : name_(name), answer_(answer), log_(log) {}
    int getHashCode() const override { return 1; }

  protected:
    bool compare(EntityDef const&) const override {
        log_ += name_;
        return answer_;
    }
    std::unique_ptr<EntityDef> makeClone() const override { return std::make_unique<Asked>(*this); }

  private:
    char name_;
    bool answer_;
    std::string& log_;
};

TEST(Definitions, AskTheOtherSideSecondAndOnlyAfterAYes) {
    std::string log;
    Asked const yes('y', true, log);
    Asked const no('n', false, log);
    EXPECT_FALSE(no.equals(yes));
    EXPECT_EQ(log, "n");
    EXPECT_FALSE(yes.equals(no));
    EXPECT_EQ(log, "nyn");
    EXPECT_EQ(text(yes), "Quorvel::Dravik::Adt::BulkDef::(anonymous namespace)::Asked");
}

// A definition and what it describes, in a notation of its own: equal definitions are those with equal notations.
template <class Root>
struct Described {
    boost::shared_ptr<Root const> def;
    std::string notation;
};

Described<SourceDef> randomSource(Random& random) {
    auto const letter = [&] { return random.oneOf<std::string>({"", "a", "b"}); };
    if (random.chance(50)) {
        std::string const name = letter();
        int const format = random.oneOf({0, 1, 42});
        return {
            BulkFileDef(name, static_cast<BulkFileDef::FileFormat>(format)).clone(),
            "file " + name + " " + std::to_string(format)};
    }
    std::string const type = letter(), store = letter(), parent = letter(), item = letter();
    return {
        ProjectItemDef(type, store, parent, item, letter(), letter()).clone(),
        "item " + type + "/" + store + "/" + parent + "/" + item};
}

Described<TransformDef> randomTransform(Random& random) {
    auto const any = [&] { return random.between(-1, 0); };
    FixedVector<4, int> const first(any(), any(), any(), any());
    FixedVector<4, int> const second(any(), any(), any(), any());
    FixedVector<3, int> const bins(any(), any(), any());
    switch (random.between(0, 3)) {
    case 0:
        return {MultiresDef(bins[0], random.oneOf<std::string>({"a", "b"})).clone(), "levels " + text(bins[0])};
    case 1:
        return {MinMaxDef(bins).clone(), "bins " + text(bins)};
    default:
        return {DecimateDef(first, second).clone(), "decimate " + text(first) + text(second)};
    }
}

Described<EntityDef> randomEntity(Random& random, int depth) {
    if (depth == 0 || random.chance(40)) {
        auto const source = randomSource(random);
        return {SourceEntityDef(*source.def).clone(), "at " + source.notation};
    }
    auto const transform = randomTransform(random);
    DerivedEntityDef entity(*transform.def);
    if (random.chance(20)) {
        return {entity.clone(), transform.notation + " of nothing"};
    }
    auto const input = randomEntity(random, depth - 1);
    entity.setInput(0, *input.def);
    return {entity.clone(), transform.notation + " of " + input.notation};
}

Described<ViewDef> describedView(Random& random) {
    auto const view = random.chance(50) ? Testing::randomSubset<1>(random) : Testing::randomView(random, 1);
    std::ostringstream notation;
    notation << text(*view.def).substr(0, 5);
    for (auto const& axis : view.axes) {
        notation << (axis ? " axis" : "");
        for (auto const& [viewIndex, targetIndex] : axis.value_or(std::map<int, int>())) {
            notation << ' ' << viewIndex << '>' << targetIndex;
        }
    }
    return {view.def, notation.str()};
}

// Definitions of one root, kept in a table of their own and found again by notation.
template <class Root, class Generate>
void expectKeys(Generate generate) {
    using Key = boost::shared_ptr<Root const>;
    std::unordered_map<Key, std::string, std::hash<Key>, EqualDefinitions> table;
    std::unordered_map<std::string, Key> byNotation;
    for (int round = 0; round < 1500; ++round) {
        Described<Root> const one = generate();
        Described<Root> const other = generate();
        ASSERT_EQ(one.def->equals(*other.def), one.notation == other.notation) << *one.def << " and " << *other.def;
        ASSERT_EQ(other.def->equals(*one.def), one.notation == other.notation) << *one.def << " and " << *other.def;
        table.emplace(one.def, one.notation);
        auto const& first = *byNotation.emplace(one.notation, one.def).first->second;
        ASSERT_EQ(one.def->getHashCode(), first.getHashCode()) << *one.def << " and " << first;
        auto const clone = one.def->clone();
        ASSERT_NE(clone, one.def);
        ASSERT_EQ(typeid(*clone), typeid(*one.def));
        ASSERT_EQ(text(*clone), text(*one.def));
        ASSERT_EQ(table.find(Key(clone))->second, one.notation) << "by pointer";
        ASSERT_EQ(table.find(*clone)->second, one.notation) << "by reference";
    }
    EXPECT_EQ(table.size(), byNotation.size());
    EXPECT_FALSE(table.contains(Key()));
    EXPECT_TRUE(table.emplace(Key(), "").second && !table.emplace(Key(), "").second) << "an empty pointer is one key";
}

TEST(Definitions, AreKeysByWhatTheyDescribe) {
    Random random;
    expectKeys<SourceDef>([&] { return randomSource(random); });
    expectKeys<TransformDef>([&] { return randomTransform(random); });
    expectKeys<EntityDef>([&] { return randomEntity(random, 3); });
    expectKeys<ViewDef>([&] { return describedView(random); });
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
    EXPECT_EQ(SourceEntityDef(ProjectItemDef("", "", "", "a")).getHashCode(), 11 * 5 + 'a');
    EXPECT_EQ(
        DerivedEntityDef(MinMaxDef({1, 2, 3}), SourceEntityDef(ProjectItemDef("", "", "", "a"))).getHashCode(),
        mix({1, 2, 3}, 15));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef
