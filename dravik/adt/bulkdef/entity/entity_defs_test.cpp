#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/transform/min_max_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
#include "dravik/adt/exceptions/plain_exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef::Entity {
namespace {

using testing::ThrowsMessage;

static_assert(
    !std::is_constructible_v<DerivedEntityDef, TransformDef const&, EntityDef const&>, "unary transforms only");

SourceEntityDef file(char const* name) {
    return SourceEntityDef(Source::BulkFileDef(name, Source::BulkFileDef::FILEFORMAT_OTHER));
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

TEST(DerivedEntityDef, RefusesWhatIsNotThere) {
    DerivedEntityDef entity{DifferenceDef()};
    entity.setInput(0, file("a"));
    EXPECT_EQ(entity.numInputs(), 2u);
    EXPECT_EQ(entity.getInputPtr(1), nullptr);
    EXPECT_TRUE(entity.getInput(0).equals(file("a")));
    EXPECT_THAT(
        [&] { entity.getInput(1); },
        ThrowsMessage<Exceptions::PlainException>("[DerivedEntityDef::getInput] Input entity is not set."));
    for (unsigned const slot : {2u, ~0u}) {
        EXPECT_THAT(
            [&] { entity.getInput(slot); },
            ThrowsMessage<std::invalid_argument>("[DerivedEntityDef::getInput] Index is out of range."));
        EXPECT_THAT(
            [&] { entity.getInputPtr(slot); },
            ThrowsMessage<std::invalid_argument>("[DerivedEntityDef::getInputPtr] Index is out of range."));
        EXPECT_THAT(
            [&] { entity.setInput(slot, file("b")); },
            ThrowsMessage<std::invalid_argument>("[DerivedEntityDef::setInput] Index is out of range."));
    }
    for (auto const& transform :
         {Transform::DecimateDef({}, {}).clone(), Transform::MinMaxDef({}).clone(),
          Transform::MultiresDef(2, "").clone()}) {
        EXPECT_EQ(DerivedEntityDef(*transform).numInputs(), 1u);
        EXPECT_EQ(transform->numOutputs(), 1u);
    }
}

TEST(DerivedEntityDef, ComparesSlotBySlot) {
    DerivedEntityDef const none{DifferenceDef()};
    DerivedEntityDef first = none;
    first.setInput(0, file("a"));
    DerivedEntityDef second = none;
    second.setInput(1, file("a"));
    DerivedEntityDef both = first;
    both.setInput(1, file("a"));
    DerivedEntityDef const* const entities[] = {&none, &first, &second, &both};
    for (auto const* const left : entities) {
        for (auto const* const right : entities) {
            EXPECT_EQ(left->equals(*right), left == right) << *left << " and " << *right;
        }
    }
    EXPECT_FALSE(DifferenceDef().equals(Transform::MinMaxDef({}))) << "the other side says no";
}

TEST(EntityDefs, ShareOrCloneWhatTheyHold) {
    SourceEntityDef const source = file("a");
    auto const sourceClone = source.clone();
    EXPECT_NE(SourceEntityDef::Cast(sourceClone.get())->sourcePtr(), source.sourcePtr()) << "a clone has its own";
    EXPECT_EQ(SourceEntityDef(source).sourcePtr(), source.sourcePtr()) << "a copy shares";

    DerivedEntityDef derived(Transform::MultiresDef(2, "a"), source);
    auto const derivedClone = derived.clone();
    EXPECT_EQ(DerivedEntityDef::Cast(derivedClone.get())->transformPtr(), derived.transformPtr());
    EXPECT_EQ(DerivedEntityDef::Cast(derivedClone.get())->getInputPtr(0), derived.getInputPtr(0));
    EXPECT_NE(derived.getInputPtr(0).get(), &source);
    derived.setInput(0, derived);
    EXPECT_TRUE(derived.getInput(0).equals(*derivedClone)) << "the slot holds what the entity was";

    DerivedEntityDef const taken(std::move(derived));                          // NOLINT(performance-move-const-arg)
    EXPECT_TRUE(derived.equals(taken)) << "moving leaves a definition whole";  // NOLINT(bugprone-use-after-move)
}

// A chain that asked both sides at every level would ask 2^60 times.
TEST(DerivedEntityDef, ComparesLongChainsInOnePass) {
    auto const chain = [](char const* name) {
        boost::shared_ptr<EntityDef const> entity = file(name).clone();
        for (int level = 0; level < 60; ++level) {
            entity = DerivedEntityDef(Transform::MultiresDef(2, ""), *entity).clone();
        }
        return entity;
    };
    EXPECT_TRUE(chain("a")->equals(*chain("a")));
    EXPECT_FALSE(chain("a")->equals(*chain("b")));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef::Entity
