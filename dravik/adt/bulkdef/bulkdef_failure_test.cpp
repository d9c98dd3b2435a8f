// SPDX-License-Identifier: Apache-2.0
// Whatever fails while a definition or a converter is changed, it stays as it was.

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/source/project_item_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/array_view_converter.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"

#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Quorvel::Dravik::Adt::BulkDef {
namespace {

using namespace Entity;
using namespace Source;
using Testing::callOut;
using Testing::Fails;

// A source of a host that may fail where it is cloned.
struct HostSource : SourceDef {
    int getHashCode() const override { return 7; }
    bool compare(SourceDef const& other) const override { return dynamic_cast<HostSource const*>(&other) != nullptr; }
    std::unique_ptr<SourceDef> makeClone() const override {
        return callOut("makeClone"), std::make_unique<HostSource>();
    }
};

// A transform of a host with three inputs.
struct HostTransform : TransformDef {
    unsigned int numInputs() const override { return 3; }
    unsigned int numOutputs() const override { return 1; }
    int getHashCode() const override { return 7; }
    bool compare(TransformDef const&) const override { return true; }
    std::unique_ptr<TransformDef> makeClone() const override { return std::make_unique<HostTransform>(); }
};

// Shows the target moved by ten, and may fail at every look.
struct HostView : View::ArrayViewDef {
    AxisExtent viewToTargetAxisExtent(AxisExtent const& axis) const override {
        callOut("map");
        return {axis.first, {axis.second.origin + 10, axis.second.step, axis.second.count}};
    }
    AxisExtent targetToViewAxisExtent(AxisExtent const& axis) const override { return axis; }
    int getHashCode() const override { return 7; }
    bool compare(ViewDef const&) const override { return true; }
    std::unique_ptr<ViewDef> makeClone() const override { return callOut("makeClone"), std::make_unique<HostView>(); }
};

std::string name(char what) {
    return std::string(40, what);
}

using Converter = View::ArrayViewConverter<2>;

struct Scene {
    Scene() { set.add(Converter::Range{{20, 20}, {30, 25}}); }

    BulkFileDef file{name('f'), BulkFileDef::FILEFORMAT_VIRSET};
    BulkFileDef nextFile{name('f') + "g", BulkFileDef::FILEFORMAT_OTHER};
    ProjectItemDef item{name('t'), name('d'), name('p'), name('i')};
    ProjectItemDef nextItem{name('a') + "b", name('c') + "d", name('e') + "f", name('g') + "h", name('i'), name('j')};
    Transform::MultiresDef multires{2, name('m')}, nextMultires{7, name('n') + "o"};
    SourceEntityDef entity{HostSource()};
    DerivedEntityDef derived{multires, entity}, nextDerived{HostTransform()};
    Converter converter{View::ArraySubsetDef<2>({ExtentImpl<int>{0, 1, 50}, ExtentImpl<int>{0, 1, 50}})};
    Converter::Set set{Converter::Range{{0, 0}, {4, 4}}};
    Converter::Array array{{{0, 0}, {4, 4}}, {4, 1}, nullptr, 0, typeid(int), 32}, out = array;
};

std::string text(auto const& def) {
    return (std::ostringstream() << def).str();
}

template <auto Def, auto Next>
void assign(Scene& scene) {
    scene.*Def = scene.*Next;
}
template <auto Def, auto Next>
void isAssigned(Scene& scene, bool completed) {
    EXPECT_EQ(text(scene.*Def), text(completed ? scene.*Next : Scene().*Def));
}

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"assigning a file", Fails::kAllocations, assign<&Scene::file, &Scene::nextFile>,
     isAssigned<&Scene::file, &Scene::nextFile>},
    {"assigning an item", Fails::kAllocations, assign<&Scene::item, &Scene::nextItem>,
     isAssigned<&Scene::item, &Scene::nextItem>},
    {"assigning levels", Fails::kAllocations, assign<&Scene::multires, &Scene::nextMultires>,
     isAssigned<&Scene::multires, &Scene::nextMultires>},
    {"assigning an entity", Fails::kAllocations, assign<&Scene::derived, &Scene::nextDerived>,
     isAssigned<&Scene::derived, &Scene::nextDerived>},
    {"setting an input", Fails::kBoth, [](Scene& s) { s.nextDerived.setInput(0, s.entity); },
     [](Scene& s, bool completed) { EXPECT_EQ(s.nextDerived.getInputPtr(0) != nullptr, completed); }},
    {"setting a source", Fails::kBoth, [](Scene& s) { s.entity.setSource(HostSource()); },
     [](Scene& s, bool) { EXPECT_EQ(s.entity.getHashCode(), 7); }},
    {"making a converter", Fails::kBoth,
     [](Scene& s) { s.converter = Converter(HostView(), /*inverse=*/true).inverse(); },
     [](Scene& s, bool completed) {
         EXPECT_EQ(s.converter.convert(Converter::Range{{1, 1}, {2, 2}}).min[0], completed ? 11 : 1);
     }},
    {"converting a set in place", Fails::kBoth, [](Scene& s) { Converter{HostView()}.convertRegion(s.set, &s.set); },
     [](Scene& s, bool completed) {
         EXPECT_TRUE(s.set.contains({29, 24}));
         EXPECT_TRUE(!completed || s.set.contains({10, 10}));
     }},
    {"converting an array", Fails::kBoth, [](Scene& s) { Converter{HostView()}.convertArray(s.array, &s.out); },
     [](Scene& s, bool completed) { EXPECT_EQ(s.out.range().min[0], completed ? 10 : 0); }},
};

TEST(Definitions, SurviveEveryFailure) {
    Testing::failUntilMade("the names of file formats", [] {
        EXPECT_EQ(BulkFileDef::getFileFormat("FILEFORMAT_HALDOR"), BulkFileDef::FILEFORMAT_HALDOR);
    });
    Testing::failUntilMade(
        "the name of no format", [] { BulkFileDef::getFileFormatString(BulkFileDef::FileFormat(7)); });
    Testing::failUntilMade("the shared complete view", [] { EXPECT_NE(View::CompleteViewDef::Instance(), nullptr); });
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef
